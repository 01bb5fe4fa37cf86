// Tribes end to end: a private Prosody, the reference back end keeping the project rooms,
// the client's own windows (offscreen) for one colleague and SDK sessions for two others.
#include <QtTest>

#include <QCheckBox>
#include <QComboBox>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLineEdit>
#include <QLoggingCategory>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>

#include "../support/clientsignin.h"
#include "../support/demobackend.h"
#include "base/at_exit.h"
#include "base/bind.h"
#include "clientsession.h"
#include "configstore.h"
#include "conversationcontentview.h"
#include "conversationview.h"
#include "directorystore.h"
#include "listwidget.h"
#include "loginview.h"
#include "mainwindow.h"
#include "manager.h"
#include "messageentry.h"
#include "openim/itribe.h"
#include "openim/itribe_service.h"
#include "openim/service_guids.h"
#include "openimmanager.h"
#include "resources.h"
#include "sdk/wide_text.h"
#include "support/prosody_server.h"
#include "support/test_session.h"
#include "tribemanager.h"
#include "view.h"

using wide_text::fromQ;
using wide_text::toQ;

namespace {

base::scoped_refptr<openim::ITribe> tribeOf(TestSession& s, quint64 id) {
    base::scoped_refptr<openim::ITribeService> service;
    service.adopt(
        s.root()->GetService<openim::ITribeService>(openim::kTribeModule, openim::kTribeInterface));
    openim::ITribe* raw = nullptr;
    service->GetTribe(openim::IMTribeID(id), &raw);
    base::scoped_refptr<openim::ITribe> out;
    out.adopt(raw);
    return out;
}

}  // namespace

class TestTribeClient : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void projectTribeAppearsAndCarriesMessages();
    void leavingAndDissolvingAskAndReachEveryone();

private:
    ProsodyServer prosody_;
    QStringList userNames_;
    QTemporaryDir data_;
    MainWindow* window_ = nullptr;
    std::unique_ptr<DemoBackend> http_;
    DemoPerson me_, owner_, third_;
    std::unique_ptr<TestSession> ownerIm_, thirdIm_;
};

void TestTribeClient::initTestCase() {
    // The client's trace lines still reach its log file; echoed into the test's output
    // they would bury the message of a failure.
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
    quelixInitResources();
    qunsetenv("DBUS_SESSION_BUS_ADDRESS");
    QVERIFY2(prosody_.start(), qPrintable(prosody_.lastError()));
    http_ = std::make_unique<DemoBackend>(QStringLiteral(QUELIX_BACKEND_BIN));
    QByteArray printed;
    QVERIFY2(http_->start(prosody_, data_.path(), &printed), printed.constData());
    userNames_ = http_->userNames(3);
    QCOMPARE(userNames_.size(), 3);
    me_ = http_->signIn(userNames_[0]);
    owner_ = http_->signIn(userNames_[1]);
    third_ = http_->signIn(userNames_[2]);
    QVERIFY(!me_.id.isEmpty() && !owner_.session.isEmpty());

    ConfigStore::instance().init();
    QVERIFY(OpenIMManager::instance()->init());
    window_ = startClient();
    QVERIFY(signInThroughLoginWindow(window_, me_.userName));

    ownerIm_ = std::make_unique<TestSession>("owner");
    thirdIm_ = std::make_unique<TestSession>("third");
    const QString authority = prosody_.adminJid().section('@', 0, 0);
    ownerIm_->login(prosody_, owner_.id, owner_.secret, authority);
    thirdIm_->login(prosody_, third_.id, third_.secret, authority);
    QVERIFY(waitUntil([&] {
        return ownerIm_->probe().count("loginOk") == 1 && thirdIm_->probe().count("loginOk") == 1;
    }));
}

void TestTribeClient::cleanupTestCase() {
    MainViewDelegate::setInstance(nullptr);
    http_->stop();
}

void TestTribeClient::projectTribeAppearsAndCarriesMessages() {
    QSignalSpy messages(OpenIMManager::instance(), &OpenIMManager::chatMessage);
    const QString project = http_->startProject(owner_, "发布会筹备", {me_.id, third_.id});
    QVERIFY(!project.isEmpty());
    const quint64 tribe = project.toULongLong();

    // The back end's notice brings the project to the client: its title is the row's name
    // and the page says the user was invited.
    QTRY_VERIFY_WITH_TIMEOUT(DirectoryStore::instance().tribe(project) != nullptr, 20000);
    QCOMPARE(DirectoryStore::instance().tribe(project)->name, QStringLiteral("发布会筹备"));
    ConversationView* view = window_->conversationView();
    QTRY_VERIFY_WITH_TIMEOUT(view->rowOf(project) >= 0, 20000);
    QTRY_VERIFY(view->page(project)->tips().contains(QStringLiteral("您已被邀请进该群。")));

    // The others' SDKs learn the project from the same notices.
    QVERIFY(waitUntil([&] { return tribeOf(*ownerIm_, tribe)->IsInRoom(); }, 20000));
    QVERIFY(waitUntil([&] { return tribeOf(*thirdIm_, tribe)->IsInRoom(); }, 20000));

    // A colleague's line reaches the tribe page, with its badge.
    messages.clear();
    tribeOf(*ownerIm_, tribe)
        ->SendText(fromQ(QStringLiteral("明天九点开会")), openim::ITribe::SendCallback());
    QTRY_VERIFY_WITH_TIMEOUT(!messages.isEmpty(), 20000);
    const BaseMsg::MMessage m = messages.first().first().value<BaseMsg::MMessage>();
    QVERIFY(m.isTribe);
    QCOMPARE(m.conversationId, project);
    QCOMPARE(m.senderId, owner_.id);
    QCOMPARE(m.text, QStringLiteral("明天九点开会"));
    QTRY_VERIFY(window_->unreadCount(project) >= 1);

    // And the client's line reaches the colleagues.
    QVERIFY(view->page(project)->sendText(QStringLiteral("收到")));
    QVERIFY(waitUntil(
        [&] {
            std::vector<openim::IMTribeMessage> unread;
            tribeOf(*thirdIm_, tribe)->GetUnreadMessages(&unread);
            for (const auto& u : unread)
                if (toQ(u.content.content) == QStringLiteral("收到") &&
                    toQ(u.sender.account) == me_.id)
                    return true;
            return false;
        },
        20000));
}

void TestTribeClient::leavingAndDissolvingAskAndReachEveryone() {
    TribeManager* tribes = OpenIMManager::instance()->tribes();
    QStringList asked;
    QMessageBox::StandardButton answer = QMessageBox::No;
    tribes->setQuestion([&](QWidget*, const QString& text) {
        asked << text;
        return answer;
    });
    QSignalSpy sent(tribes, &TribeManager::projectActionSent);
    QSignalSpy done(tribes, &TribeManager::projectActionDone);

    // A member is asked whether to leave; "No" sends nothing.
    const QString project = http_->startProject(owner_, "离开的项目", {me_.id, third_.id});
    QVERIFY(!project.isEmpty());
    QTRY_VERIFY_WITH_TIMEOUT(DirectoryStore::instance().tribe(project) != nullptr, 20000);
    OpenIMManager::instance()->dissolveOrLeave(project.toULongLong());
    QCOMPARE(asked, QStringList{QStringLiteral("是否确定退出该群？")});
    QCOMPARE(sent.size(), 0);

    // "Yes" leaves through the back end: the page says so, others are told, sends stop.
    answer = QMessageBox::Yes;
    OpenIMManager::instance()->dissolveOrLeave(project.toULongLong());
    QCOMPARE(sent.size(), 1);
    const QString leaveUrl = sent.first().first().toString();
    QVERIFY(leaveUrl.contains("?&kickUserId=" + me_.id + "&projectId=" + project + "&m=exitPro"));
    QVERIFY(!leaveUrl.contains("sign="));
    QTRY_VERIFY_WITH_TIMEOUT(done.size() == 1, 20000);
    QVERIFY(done.first().at(1).toBool());
    ConversationContentView* page = window_->conversationView()->page(project);
    QTRY_VERIFY_WITH_TIMEOUT(page->tips().contains(QStringLiteral("您已主动退出该群！")), 20000);
    QVERIFY(!page->sendText(QStringLiteral("还在吗")));

    // A send that reaches the IM core all the same (a failed row's link, a card shared from
    // elsewhere) is shown as failed in the page, with its reason and a link to send again.
    QSignalSpy failed(OpenIMManager::instance(), &OpenIMManager::sendFailed);
    const QString card = QStringLiteral(R"({"msgType":4,"userId":"%1"})").arg(third_.id);
    OpenIMManager::instance()->sendTextOrCustom(project, QStringLiteral("[名片]"), card);
    QTRY_VERIFY_WITH_TIMEOUT(failed.size() == 1, 20000);
    const auto lost = failed.first().first().value<BaseMsg::MMessage>();
    QVERIFY(lost.isTribe);
    QCOMPARE(lost.conversationId, project);
    QCOMPARE(lost.kind, int(BaseMsg::Custom));
    QCOMPARE(lost.sentContent, card);
    QVERIFY(!failed.first().at(1).toString().isEmpty());
    auto* out = qobject_cast<qx_output::View*>(page->output());
    QVERIFY(out);
    auto failedRows = [out] {
        int n = 0;
        for (int r = 1; r < out->listWidget()->count(); ++r)
            if (qx_output::EntryItem* e = out->listWidget()->entryAt(r)) n += e->entry.resend;
        return n;
    };
    QTRY_COMPARE(failedRows(), 1);
    // Its link tries again, for real: still not a member, so a second failed row.
    emit qx_output::Manager::instance()->resendRequested(lost);
    QTRY_VERIFY_WITH_TIMEOUT(failed.size() == 2, 20000);
    QCOMPARE(failed.last().first().value<BaseMsg::MMessage>().sentContent, card);
    QTRY_COMPARE(failedRows(), 2);

    // The owner is asked whether to dissolve; the address carries the project's sign.
    const QJsonObject made = http_->change(
        "/work/editProj.htm?m=createProj&title=%E8%A7%A3%E6%95%A3&memberIds=" + third_.id,
        me_.session);
    const QString own = made.value("results").toObject().value("projectId").toString().isEmpty()
                            ? made.value("results").toObject().value("id").toString()
                            : made.value("results").toObject().value("projectId").toString();
    QVERIFY(!own.isEmpty());
    QVERIFY(waitUntil([&] { return http_->roomReady(own, me_.session); }, 20000));
    QTRY_VERIFY_WITH_TIMEOUT(DirectoryStore::instance().tribe(own) &&
                                 !DirectoryStore::instance().tribe(own)->sign.isEmpty(),
                             20000);
    const quint64 ownTribe = own.toULongLong();
    QVERIFY(waitUntil([&] { return tribeOf(*thirdIm_, ownTribe)->IsInRoom(); }, 20000));
    asked.clear();
    OpenIMManager::instance()->dissolveOrLeave(ownTribe);
    QCOMPARE(asked, QStringList{QStringLiteral("您是群主，此操作将解散该群。是否确定解散该群？")});
    const QString dissolveUrl = sent.last().first().toString();
    QVERIFY(dissolveUrl.contains("?&projectId=" + own + "&sign=" +
                                 DirectoryStore::instance().tribe(own)->sign + "&m=delProj"));
    QTRY_VERIFY_WITH_TIMEOUT(done.size() == 2, 20000);
    QVERIFY(done.last().at(1).toBool());
    QTRY_VERIFY_WITH_TIMEOUT(window_->conversationView()->page(own)->tips().contains(
                                 QStringLiteral("该群刚刚被关闭，您已自动退出该群。")),
                             20000);
    QVERIFY(waitUntil([&] { return !tribeOf(*thirdIm_, ownTribe)->IsMember(); }, 20000));
}

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    base::AtExitManager atExit;
    TestTribeClient test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_tribeclient.moc"
