// The client end to end: a private Prosody, the reference back end with the demo company,
// the real SDK, and the client's own windows (offscreen). A second colleague talks to it
// through an SDK session of its own.
#include <QtTest>

#include <QCheckBox>
#include <QComboBox>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLineEdit>
#include <QLoggingCategory>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>

#include "../support/backendlistening.h"
#include "../support/companyca.h"
#include "../support/demobackend.h"
#include "base/at_exit.h"
#include "clientsession.h"
#include "companytrust.h"
#include "configstore.h"
#include "conversationcontentinputedit.h"
#include "conversationcontentinputview.h"
#include "conversationcontentview.h"
#include "conversationview.h"
#include "directorystore.h"
#include "emotionset.h"
#include "filemsgitem.h"
#include "filetransfer.h"
#include "listwidget.h"
#include "loginview.h"
#include "mainwindow.h"
#include "messageentry.h"
#include "openim/iconversation.h"
#include "openimmanager.h"
#include "prompts.h"
#include "resources.h"
#include "screenshotview.h"
#include "support/prosody_server.h"
#include "support/session_probe.h"
#include "support/test_session.h"
#include "view.h"

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
    void conversationPageShowsBothSides();
    void captureReachesTheColleagueAsAPicture();
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
    // The client's trace lines still reach its log file; echoed into the test's output
    // they would bury the message of a failure.
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
    quelixInitResources();
    qunsetenv("DBUS_SESSION_BUS_ADDRESS");
    QVERIFY2(prosody_.start(), qPrintable(prosody_.lastError()));
    const QString docs =
        QStandardPaths::standardLocations(QStandardPaths::DocumentsLocation).first();
    QVERIFY(handOutCompanyCa(prosody_.caFile()));
    backend_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    backend_.start(
        QStringLiteral(QUELIX_BACKEND_BIN),
        QStringList{"--data-dir", data_.filePath("backend"), "--seed-demo", "--pbkdf2-iterations",
                    "1", "--port", "0", "--im-host", prosody_.host(), "--im-port",
                    QString::number(prosody_.port()), "--im-domain", prosody_.domain(),
                    "--write-url-table", docs + "/Quelix/Resource/Text/UrlText.ini"} +
            prosody_.provisionArguments() + DemoBackend::tlsArguments(prosody_));
    QVERIFY(backend_.waitForStarted());
    QByteArray printed;
    backendUrl_ = waitForBackendUrl(backend_, &printed);
    QVERIFY2(!backendUrl_.isEmpty(), printed.constData());

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
    QVERIFY(CompanyTrust::install(nullptr));
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
    QTRY_COMPARE_WITH_TIMEOUT(window_->unreadCount(peer.id), 1, 20000);
    QTest::qWait(500);
    QCOMPARE(messages.size(), 1);  // shown once

    // Custom content both ways.
    colleague.sendCustom(me.id, "{\"msgType\":5,\"content\":\"{\\\"taskId\\\":\\\"7\\\"}\"}",
                         "[任务]");
    QTRY_VERIFY_WITH_TIMEOUT(messages.size() == 2, 20000);
    m = messages.last().first().value<BaseMsg::MMessage>();
    QCOMPARE(m.kind, int(BaseMsg::Custom));
    const QJsonObject card = QJsonDocument::fromJson(m.contentJson.toUtf8()).object();
    QCOMPARE(card.value("msgType").toInt(), 5);
    QVERIFY(card.value("isCustomMsg").toBool());
    QCOMPARE(window_->unreadCount(peer.id), 2);

    OpenIMManager::instance()->sendCustemSlot(peer.id, "[任务]",
                                              "{\"msgType\":5,\"content\":\"x\"}");
    QVERIFY(waitUntil([&] { return colleague.unreadCount(me.id) >= 1; }, 20000));
    const std::vector<openim::IMMessage> got = colleague.unread(me.id);
    QCOMPARE(got.back().content.type, std::int32_t(openim::kContentCustom));
    QTRY_VERIFY_WITH_TIMEOUT(messages.size() == 3,
                             20000);  // our own message echoed into the conversation
    QVERIFY(messages.last().first().value<BaseMsg::MMessage>().isSelf);

    // Text sent from the conversation page reaches the colleague.
    QVERIFY(window_->conversationView()->page(peer.id)->sendText("从会话页发出"));
    QVERIFY(waitUntil([&] { return colleague.unreadCount(me.id) >= 2; }, 20000));
    QCOMPARE(QString::fromStdWString(colleague.unread(me.id).back().content.content.str()),
             QStringLiteral("从会话页发出"));
    QTRY_VERIFY_WITH_TIMEOUT(messages.size() == 4, 20000);
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

namespace {
// The rows of a conversation page's output, newest last.
QList<qx_output::EntryItem*> rowsOf(qx_output::View* out) {
    QList<qx_output::EntryItem*> rows;
    for (int r = 1; r < out->listWidget()->count(); ++r)
        if (qx_output::EntryItem* e = out->listWidget()->entryAt(r)) rows << e;
    return rows;
}

qx_output::EntryItem* lastOf(qx_output::View* out, qx_output::MessageEntry::Kind kind, bool self) {
    const QList<qx_output::EntryItem*> rows = rowsOf(out);
    for (int i = rows.size() - 1; i >= 0; --i)
        if (rows[i]->entry.kind == kind && rows[i]->entry.msg.isSelf == self) return rows[i];
    return nullptr;
}
}  // namespace

// Both sides of a conversation on the page: what the colleague sends shows in the right
// conversation with its badge, what we send from the page reaches them, and files go up
// to the back end and come down again into the download folder.
void TestClient::conversationPageShowsBothSides() {
    using qx_output::MessageEntry;
    const Account me = account(0);
    const Account peer = account(1);
    TestSession colleague("page-peer");
    colleague.login(prosody_, peer.id, peer.secret);
    QVERIFY(waitUntil([&] { return colleague.probe().count("loginOk") == 1; }));
    ConversationView* conversations = window_->conversationView();
    // A conversation never opened has no rows laid out: the talk list counts its messages,
    // and its page reads the latest from the store when it is first opened.
    QVERIFY(!conversations->openedPage(peer.id));
    conversations->showConversation(peer.id, 0);
    auto* out = qobject_cast<qx_output::View*>(conversations->page(peer.id)->output());
    QVERIFY(out);
    auto copiesOf = [&](const QString& text) {
        int copies = 0;
        for (qx_output::EntryItem* row : rowsOf(out))
            copies += row->entry.html.contains(text) ? 1 : 0;
        return copies;
    };
    QTRY_COMPARE_WITH_TIMEOUT(copiesOf(QStringLiteral("第8条")), 1, 20000);
    // With another conversation in front, live messages still reach the opened page.
    conversations->showConversation(account(2).id, 0);
    QCOMPARE(conversations->currentConversationId(), account(2).id);

    const int unreadBefore = window_->unreadCount(peer.id);
    colleague.sendText(me.id, "页面上的字 <i>不是斜体</i> [smile]");
    QImage picture(320, 160, QImage::Format_RGB32);
    picture.fill(Qt::darkGreen);
    const QString pictureFile = data_.filePath("from-peer.png");
    QVERIFY(picture.save(pictureFile));
    colleague.sendImage(me.id, pictureFile, 320, 160);
    QTRY_VERIFY_WITH_TIMEOUT(lastOf(out, MessageEntry::Image, false), 20000);
    qx_output::EntryItem* text = lastOf(out, MessageEntry::Text, false);
    QVERIFY(text);
    QVERIFY(text->entry.html.contains("&lt;i&gt;不是斜体&lt;/i&gt;"));
    QVERIFY(text->entry.html.contains("<img class='emo'"));
    qx_output::EntryItem* image = lastOf(out, MessageEntry::Image, false);
    QTRY_VERIFY_WITH_TIMEOUT(!image->entry.loading, 20000);
    QCOMPARE(QImage(image->entry.msg.mediaPath).size(), QSize(320, 160));
    QCOMPARE(image->entry.content, QSize(200, 100));
    QTRY_COMPARE_WITH_TIMEOUT(window_->unreadCount(peer.id), unreadBefore + 2, 20000);

    // Opening the conversation clears its badge; the page shows the rows with widgets.
    conversations->showConversation(peer.id, 0);
    QCOMPARE(window_->unreadCount(peer.id), 0);
    QTRY_VERIFY_WITH_TIMEOUT(out->isVisible() && out->listWidget()->itemWidget(image), 20000);

    // From the page to the colleague: text, then a picture.
    colleague.markRead(me.id);
    ConversationContentView* page = conversations->page(peer.id);
    QVERIFY(page->sendText("收到，谢谢"));
    const QString ours = data_.filePath("ours.png");
    QVERIFY(picture.scaled(64, 64).save(ours));
    QVERIFY(page->sendMedia(ours));
    QVERIFY(page->sendText("图在上面"));  // must not overtake the picture's upload
    QVERIFY(waitUntil([&] { return colleague.unreadCount(me.id) >= 3; }, 20000));
    const std::vector<openim::IMMessage> got = colleague.unread(me.id);
    QCOMPARE(QString::fromStdWString(got[got.size() - 3].content.content.str()),
             QStringLiteral("收到，谢谢"));
    QCOMPARE(got[got.size() - 2].content.type, std::int32_t(BaseMsg::Media));
    QCOMPARE(QString::fromStdWString(got.back().content.content.str()), QStringLiteral("图在上面"));
    QTRY_VERIFY_WITH_TIMEOUT(lastOf(out, MessageEntry::Image, true),
                             20000);  // our own rows, on our side
    QVERIFY(lastOf(out, MessageEntry::Text, true));

    // Typed in the input: an emoticon leaves as its code and comes back as its picture.
    auto* input = qobject_cast<ConversationContentInputView*>(page->input());
    QVERIFY(input);
    colleague.markRead(me.id);
    const QString smile = EmotionSet::instance().pictureOf("[smile]");
    QVERIFY(!smile.isEmpty());
    input->edit()->addEmotion(smile, "[smile]");
    input->edit()->insertPlainText("好的");
    input->edit()->sendTextContent();
    QVERIFY(waitUntil([&] { return colleague.unreadCount(me.id) >= 1; }, 20000));
    QCOMPARE(QString::fromStdWString(colleague.unread(me.id).back().content.content.str()),
             QStringLiteral("[smile]好的"));
    colleague.sendText(me.id, "[smile]");
    QTRY_VERIFY_WITH_TIMEOUT(lastOf(out, MessageEntry::Text, false)
                                 ->entry.html.contains("<img class='emo' src=\"" + smile + "\""),
                             20000);

    // A shake goes as its custom message; one from the colleague reads as a tip line.
    colleague.markRead(me.id);
    input->conversationViewSendShake();
    QVERIFY(waitUntil([&] { return colleague.unreadCount(me.id) >= 1; }, 20000));
    QCOMPARE(QString::fromStdWString(colleague.unread(me.id).back().content.summary.str()),
             QStringLiteral("[抖动窗口]"));
    colleague.sendCustom(me.id, "{\"msgType\":\"shake\"}", "[抖动窗口]");
    QTRY_VERIFY_WITH_TIMEOUT(
        lastOf(out, MessageEntry::Tip, false) &&
            lastOf(out, MessageEntry::Tip, false)->entry.html == "对方向你发送了一个抖动窗口。",
        20000);

    // A file goes up to the back end and is offered to the colleague as a file card.
    colleague.markRead(me.id);
    const QString report = data_.filePath("周报 v2.txt");
    QFile file(report);
    QVERIFY(file.open(QIODevice::WriteOnly));
    const QByteArray body = QByteArray("本周完成：输出视图。\n").repeated(2000);
    file.write(body);
    file.close();
    QVERIFY(page->sendMedia(report));
    QVERIFY(waitUntil([&] { return colleague.unreadCount(me.id) >= 1; }, 20000));
    const openim::IMMessage card = colleague.unread(me.id).back();
    QCOMPARE(card.content.type, std::int32_t(BaseMsg::Custom));
    QCOMPARE(QString::fromStdWString(card.content.summary.str()), QStringLiteral("[文件]"));
    const QJsonObject offered =
        QJsonDocument::fromJson(QString::fromStdWString(card.content.content.str()).toUtf8())
            .object();
    QCOMPARE(offered.value("msgType").toInt(), 3);
    QCOMPARE(offered.value("fileName").toString(), QStringLiteral("周报 v2.txt"));
    QVERIFY(!offered.value("id").toString().isEmpty());
    QTRY_VERIFY_WITH_TIMEOUT(lastOf(out, MessageEntry::File, true), 20000);
    QCOMPARE(rowsOf(out).count(lastOf(out, MessageEntry::File, true)), 1);  // echo not doubled
    qx_output::EntryItem* ownFile = lastOf(out, MessageEntry::File, true);
    QTRY_VERIFY_WITH_TIMEOUT(out->listWidget()->itemWidget(ownFile), 20000);
    QCOMPARE(
        qobject_cast<qx_output::FileMsgItem*>(out->listWidget()->itemWidget(ownFile))->statusText(),
        QStringLiteral("上传完成"));
    QVERIFY(
        QJsonDocument::fromJson(ownFile->entry.msg.contentJson.toUtf8()).object().contains("id"));

    // The colleague hands the same file back; we download it.
    colleague.sendCustom(me.id, QString::fromStdWString(card.content.content.str()), "[文件]");
    QTRY_VERIFY_WITH_TIMEOUT(lastOf(out, MessageEntry::File, false), 20000);
    qx_output::EntryItem* received = lastOf(out, MessageEntry::File, false);
    QTRY_VERIFY_WITH_TIMEOUT(out->listWidget()->itemWidget(received), 20000);
    auto* item = qobject_cast<qx_output::FileMsgItem*>(out->listWidget()->itemWidget(received));
    QVERIFY(item);
    QStringList errors;
    qx_output::Prompts::setError([&](QWidget*, const QString& t) { errors << t; });
    item->operationOfLoad();
    QTRY_COMPARE_WITH_TIMEOUT(item->statusText(), QStringLiteral("下载完成"), 20000);
    const QString landed =
        ConfigStore::instance().folderPath(ConfigStore::Download) + "/周报 v2.txt";
    QFile down(landed);
    QVERIFY(down.open(QIODevice::ReadOnly));
    QCOMPARE(down.readAll(), body);
    down.close();
    QVERIFY(errors.isEmpty());

    // Fetching it again asks before replacing the file; declining keeps it as it is.
    QStringList asked;
    qx_output::Prompts::setAsk(
        [&](QWidget*, const QString& t, const QString& yes, const QString& no) {
            asked << t + "|" + yes + "|" + no;
            return false;
        });
    item->transfer()->setState(qx_output::FileTransfer::Idle);
    item->operationOfLoad();
    QCOMPARE(asked, QStringList{"文件：周报 v2.txt 已存在。您要替换吗？|替换|取消"});
    QVERIFY(!item->transfer()->busy());

    // A card naming a file the back end does not have fails with its texts.
    QJsonObject missing = offered;
    missing.insert("id", "987654321");
    missing.insert("fileName", "../../不存在.txt");
    colleague.sendCustom(me.id, QJsonDocument(missing).toJson(QJsonDocument::Compact), "[文件]");
    QTRY_VERIFY_WITH_TIMEOUT(lastOf(out, MessageEntry::File, false) != received, 20000);
    received = lastOf(out, MessageEntry::File, false);
    QTRY_VERIFY_WITH_TIMEOUT(out->listWidget()->itemWidget(received), 20000);
    item = qobject_cast<qx_output::FileMsgItem*>(out->listWidget()->itemWidget(received));
    item->operationOfLoad();
    QTRY_COMPARE_WITH_TIMEOUT(item->statusText(), QStringLiteral("下载失败"), 20000);
    QCOMPARE(errors, QStringList{QStringLiteral("下载文件：不存在.txt 失败。")});
    QVERIFY(
        !QFile::exists(ConfigStore::instance().folderPath(ConfigStore::Download) + "/不存在.txt"));
    qx_output::Prompts::setError({});
    qx_output::Prompts::setAsk({});
}

// A capture with an arrow and a line of text, finished into the open conversation's input,
// leaves with Enter and reaches the colleague as a picture. The offscreen platform has no
// screen to grab, so the overlay gets a desktop picture of our own.
void TestClient::captureReachesTheColleagueAsAPicture() {
    using qx_output::MessageEntry;
    const Account me = account(0);
    const Account peer = account(1);
    TestSession colleague("capture-peer");
    colleague.login(prosody_, peer.id, peer.secret);
    QVERIFY(waitUntil([&] { return colleague.probe().count("loginOk") == 1; }));
    colleague.markRead(me.id);
    ConversationView* conversations = window_->conversationView();
    conversations->showConversation(peer.id, 0);
    ConversationContentView* page = conversations->page(peer.id);
    auto* out = qobject_cast<qx_output::View*>(page->output());
    auto* input = qobject_cast<ConversationContentInputView*>(page->input());
    QVERIFY(out && input);
    const qx_output::EntryItem* before = lastOf(out, MessageEntry::Image, true);

    screenshot::DesktopImage desktop;
    desktop.geometry = QRect(0, 0, 640, 400);
    desktop.image = QImage(640, 400, QImage::Format_RGB32);
    desktop.image.fill(QColor(250, 250, 240));
    auto* shot = new screenshot::ScreenShotView(desktop);
    shot->setAttribute(Qt::WA_DeleteOnClose);
    conversations->attachScreenShot(shot);
    shot->showOverlay();
    shot->setSelection(QRect(100, 80, 300, 200));
    auto send = [&](QEvent::Type type, QPoint pos) {
        QMouseEvent e(type, pos, shot->mapToGlobal(pos),
                      type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton,
                      type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton,
                      Qt::NoModifier);
        QApplication::sendEvent(shot, &e);
    };
    shot->setTool(screenshot::ScreenShotView::Tool::Arrow);
    send(QEvent::MouseButtonPress, {130, 250});
    send(QEvent::MouseMove, {250, 150});
    send(QEvent::MouseButtonRelease, {260, 140});
    shot->setTool(screenshot::ScreenShotView::Tool::Text);
    send(QEvent::MouseButtonPress, {270, 130});
    send(QEvent::MouseButtonRelease, {270, 130});
    shot->textEdit()->insertPlainText(QStringLiteral("这里"));  // typed (keyClicks is ASCII only)
    shot->OnFinish();
    QCOMPARE(shot->annotations().count(), 2);
    QVERIFY(input->edit()->toHtml().contains("<img"));

    input->edit()->sendTextContent();
    QVERIFY(waitUntil([&] { return colleague.unreadCount(me.id) >= 1; }, 20000));
    QCOMPARE(colleague.unread(me.id).back().content.type, std::int32_t(BaseMsg::Media));
    QTRY_VERIFY_WITH_TIMEOUT(lastOf(out, MessageEntry::Image, true) != before, 20000);
    const qx_output::EntryItem* ours = lastOf(out, MessageEntry::Image, true);
    const QImage sent(ours->entry.msg.mediaPath);
    QCOMPARE(sent.size(), QSize(300, 200));
    QVERIFY(qRed(sent.pixel(95, 115)) > 200 && qGreen(sent.pixel(95, 115)) < 60);  // the arrow
    QTRY_VERIFY_WITH_TIMEOUT(window_->isVisible(), 20000);
}

void TestClient::secondDesktopTakesTheSessionOver() {
    const Account me = account(0);
    TestSession otherDesktop("other-desktop");
    otherDesktop.login(prosody_, me.id, me.secret);
    QVERIFY(waitUntil([&] { return otherDesktop.probe().count("loginOk") == 1; }));
    QTRY_VERIFY_WITH_TIMEOUT(!window_->isVisible(), 20000);
    QVERIFY(window_->loginView()->isVisible());
    QCOMPARE(window_->loginView()->hint(), QStringLiteral("您的账号在别处登录，请重新登录。"));
}

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    base::AtExitManager atExit;
    TestClient test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_client.moc"
