// The client end to end: a private Prosody, the reference back end with the demo company,
// the real SDK, and the client's own windows (offscreen). A second colleague talks to it
// through an SDK session of its own.
#include <QtTest>

#include <QCheckBox>
#include <QComboBox>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLineEdit>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>

#include "base/at_exit.h"
#include "clientsession.h"
#include "configstore.h"
#include "conversationcontentview.h"
#include "conversationview.h"
#include "directorystore.h"
#include "loginview.h"
#include "mainwindow.h"
#include "openim/iconversation.h"
#include "openimmanager.h"
#include "resources.h"
#include "support/prosody_server.h"
#include "support/session_probe.h"
#include "support/test_session.h"

namespace {
struct Account {
    QString userName;
    QString id;
    QString secret;
};
}  // namespace

class TestClient : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void wrongPasswordIsRefused();
    void signsInAndChats();
    void secondDesktopTakesTheSessionOver();

private:
    Account account(int index);
    void signIn(const QString& user, const QString& password);

    ProsodyServer prosody_;
    QProcess backend_;
    QString backendUrl_;
    QStringList userNames_;
    QTemporaryDir data_;
    MainWindow* window_ = nullptr;
};

void TestClient::initTestCase() {
    quelixInitResources();
    qunsetenv("DBUS_SESSION_BUS_ADDRESS");
    QVERIFY2(prosody_.start(), qPrintable(prosody_.lastError()));
    const QString docs =
        QStandardPaths::standardLocations(QStandardPaths::DocumentsLocation).first();
    backend_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    backend_.start(
        QStringLiteral(QUELIX_BACKEND_BIN),
        {"--data-dir", data_.filePath("backend"), "--seed-demo", "--pbkdf2-iterations", "1",
         "--port", "0", "--im-host", prosody_.host(), "--im-port", QString::number(prosody_.port()),
         "--im-domain", prosody_.domain(), "--prosody-data", prosody_.dataDir(),
         "--write-url-table", docs + "/Quelix/Resource/Text/UrlText.ini"});
    QVERIFY(backend_.waitForStarted());
    QByteArray line;
    QElapsedTimer clock;
    clock.start();
    while (!line.contains('\n') && clock.elapsed() < 60000) {
        backend_.waitForReadyRead(200);
        line += backend_.readAllStandardOutput();
    }
    QVERIFY2(line.contains("listening on http://"), line.constData());
    backendUrl_ = QString::fromLatin1(line.trimmed().split(' ').last());

    QProcess accounts;
    accounts.start(QStringLiteral(QUELIX_BACKEND_BIN),
                   {"--data-dir", data_.filePath("backend"), "--print-accounts", "3"});
    QVERIFY(accounts.waitForFinished(30000));
    for (const QByteArray& row : accounts.readAllStandardOutput().split('\n'))
        if (!row.trimmed().isEmpty())
            userNames_ << QString::fromUtf8(row.trimmed().split(' ').first());
    QCOMPARE(userNames_.size(), 3);

    ConfigStore::instance().init();
    QCOMPARE(ConfigStore::instance().url(UrlTable::UrlLogin),
             backendUrl_ + "/work/checkIn.htm?m=MobileLogin");
    QVERIFY(OpenIMManager::instance()->init());
    window_ = new MainWindow(ConfigStore::instance());
    MainViewDelegate::setInstance(window_);
    ClientSession::connect(window_, OpenIMManager::instance());
    window_->start(true, false);
}

void TestClient::cleanupTestCase() {
    MainViewDelegate::setInstance(nullptr);
    backend_.terminate();
    backend_.waitForFinished(10000);
}

// A colleague's IM identity, as the back end's log-in reply hands it out.
Account TestClient::account(int index) {
    Account a;
    a.userName = userNames_.at(index);
    QNetworkAccessManager network;
    QNetworkRequest request(QUrl(backendUrl_ + "/work/checkIn.htm?m=MobileLogin"));
    request.setHeader(QNetworkRequest::ContentTypeHeader, "application/x-www-form-urlencoded");
    QNetworkReply* reply =
        network.post(request, "username=" + a.userName.toUtf8() + "&password=quelix123&client=3");
    QSignalSpy done(reply, &QNetworkReply::finished);
    done.wait(20000);
    const QJsonObject user =
        QJsonDocument::fromJson(reply->readAll()).object().value("results").toObject();
    reply->deleteLater();
    a.id = user.value("id").toString();
    a.secret = user.value("imSecret").toString();
    return a;
}

void TestClient::signIn(const QString& user, const QString& password) {
    LoginView* login = window_->loginView();
    login->findChild<QComboBox*>("m_cboxUserName")->setEditText(user);
    login->findChild<QLineEdit*>("m_editPassword")->setText(password);
    login->findChild<QCheckBox*>("m_checkRemember")->setChecked(true);
    login->OnClickedLogin();
}

void TestClient::wrongPasswordIsRefused() {
    signIn(userNames_.at(0), "not-the-password");
    QTRY_VERIFY_WITH_TIMEOUT(!window_->loginView()->isBusy(), 20000);
    QVERIFY(!window_->loginView()->hint().isEmpty());
    QVERIFY(!window_->isVisible());
    QVERIFY(ConfigStore::instance().loginList().logins.isEmpty());
}

void TestClient::signsInAndChats() {
    const Account me = account(0);
    const Account peer = account(1);
    QSignalSpy messages(OpenIMManager::instance(), &OpenIMManager::chatMessage);
    signIn(me.userName, "quelix123");
    QTRY_VERIFY_WITH_TIMEOUT(window_->isVisible(), 30000);
    QCOMPARE(window_->ownId(), me.id);
    QVERIFY(OpenIMManager::instance()->isLoggedIn());
    QCOMPARE(ConfigStore::instance().loginList().logins.size(), 1);

    TestSession colleague("peer");
    colleague.login(prosody_, peer.id, peer.secret);
    QVERIFY(waitUntil([&] { return colleague.probe().count("loginOk") == 1; }));

    // Text reaches the talk list once, with its badge.
    colleague.sendText(me.id, "你好 <b>不是粗体</b>");
    QTRY_VERIFY_WITH_TIMEOUT(messages.size() == 1, 20000);
    BaseMsg::MMessage m = messages.first().first().value<BaseMsg::MMessage>();
    QCOMPARE(m.text, QStringLiteral("你好 <b>不是粗体</b>"));
    QCOMPARE(m.senderId, peer.id);
    QVERIFY(!m.isHistory);
    QTRY_COMPARE(window_->unreadCount(peer.id), 1);
    QTest::qWait(500);
    QCOMPARE(messages.size(), 1);  // shown once

    // Custom content both ways.
    colleague.sendCustom(me.id, "{\"msgType\":1,\"content\":\"{\\\"taskId\\\":\\\"7\\\"}\"}",
                         "[任务]");
    QTRY_VERIFY_WITH_TIMEOUT(messages.size() == 2, 20000);
    m = messages.last().first().value<BaseMsg::MMessage>();
    QCOMPARE(m.kind, int(BaseMsg::Custom));
    const QJsonObject card = QJsonDocument::fromJson(m.contentJson.toUtf8()).object();
    QCOMPARE(card.value("msgType").toInt(), 1);
    QVERIFY(card.value("isCustomMsg").toBool());
    QCOMPARE(window_->unreadCount(peer.id), 2);

    OpenIMManager::instance()->sendCustemSlot(peer.id, "[任务]",
                                              "{\"msgType\":1,\"content\":\"x\"}");
    QVERIFY(waitUntil([&] { return colleague.unreadCount(me.id) >= 1; }, 20000));
    const std::vector<openim::IMMessage> got = colleague.unread(me.id);
    QCOMPARE(got.back().content.type, std::int32_t(openim::kContentCustom));
    QTRY_VERIFY(messages.size() == 3);  // our own message echoed into the conversation
    QVERIFY(messages.last().first().value<BaseMsg::MMessage>().isSelf);

    // Text sent from the conversation page reaches the colleague.
    QVERIFY(window_->conversationView()->page(peer.id)->sendText("从会话页发出"));
    QVERIFY(waitUntil([&] { return colleague.unreadCount(me.id) >= 2; }, 20000));
    QCOMPARE(QString::fromStdWString(colleague.unread(me.id).back().content.content.str()),
             QStringLiteral("从会话页发出"));
    QTRY_VERIFY(messages.size() == 4);
    messages.removeLast();

    // History comes back seven at a time, marked as such.
    messages.clear();
    for (int i = 0; i < 9; ++i) colleague.sendText(me.id, QStringLiteral("第%1条").arg(i));
    QTRY_VERIFY_WITH_TIMEOUT(messages.size() == 9, 20000);
    messages.clear();
    OpenIMManager::instance()->getMoreMsg(peer.id);
    QTRY_VERIFY_WITH_TIMEOUT(messages.size() == 7, 20000);
    QTest::qWait(300);
    QCOMPARE(messages.size(), 7);
    for (const QList<QVariant>& args : messages)
        QVERIFY(args.first().value<BaseMsg::MMessage>().isHistory);

    // A colleague the directory does not know yet is looked up, then shown.
    const Account stranger = account(2);
    DirectoryStore& store = DirectoryStore::instance();
    QVERIFY(
        store.load("{\"errorCode\":0,\"results\":{\"allDeptList\":[{\"id\":\"1\"}],\"allUserList\":"
                   "[{\"id\":\"" +
                   me.id.toUtf8() + "\",\"section\":\"1\"}]}}"));
    QVERIFY(!store.isUser(stranger.id));
    TestSession third("stranger");
    third.login(prosody_, stranger.id, stranger.secret);
    QVERIFY(waitUntil([&] { return third.probe().count("loginOk") == 1; }));
    third.sendText(me.id, "我是新同事");
    QTRY_VERIFY_WITH_TIMEOUT(messages.size() == 8, 20000);
    QCOMPARE(messages.last().first().value<BaseMsg::MMessage>().text, QStringLiteral("我是新同事"));
    QVERIFY(store.isUser(stranger.id));
}

void TestClient::secondDesktopTakesTheSessionOver() {
    const Account me = account(0);
    TestSession otherDesktop("other-desktop");
    otherDesktop.login(prosody_, me.id, me.secret);
    QVERIFY(waitUntil([&] { return otherDesktop.probe().count("loginOk") == 1; }));
    QTRY_VERIFY_WITH_TIMEOUT(!window_->isVisible(), 20000);
    QVERIFY(window_->loginView()->isVisible());
    QCOMPARE(window_->loginView()->hint(), QStringLiteral("您的账号在别处登陆，请重新登陆。"));
}

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    base::AtExitManager atExit;
    TestClient test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_client.moc"
