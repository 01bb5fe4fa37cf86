// Tribes end to end: a private Prosody, the reference back end keeping the project rooms,
// the client's own windows (offscreen) for one colleague and SDK sessions for two others.
#include <QtTest>

#include <QCheckBox>
#include <QComboBox>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLineEdit>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>

#include "../support/clientrig.h"
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
#include "openimmanager.h"
#include "sdk/wide_text.h"
#include "tribemanager.h"
#include "view.h"

using wide_text::fromQ;
using wide_text::toQ;

class TestTribeClient : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void projectTribeAppearsAndCarriesMessages();
    void leavingAndDissolvingAskAndReachEveryone();

private:
    ClientRig rig_{QStringLiteral(QUELIX_BACKEND_BIN)};
    MainWindow* window_ = nullptr;
    DemoBackend* http_ = nullptr;
    DemoPerson me_, owner_, third_;
    TestSession* ownerIm_ = nullptr;
    TestSession* thirdIm_ = nullptr;
};

void TestTribeClient::initTestCase() {
    QVERIFY2(rig_.start(3), qPrintable(rig_.error()));
    http_ = &rig_.backend();
    me_ = rig_.person(0);
    owner_ = rig_.person(1);
    third_ = rig_.person(2);

    window_ = rig_.openClient();
    QVERIFY(window_);
    QVERIFY(rig_.signIn());

    ownerIm_ = rig_.addSession("owner", 1);
    thirdIm_ = rig_.addSession("third", 2);
    QVERIFY(rig_.sessionsSignedIn());
}

void TestTribeClient::cleanupTestCase() { rig_.stop(); }

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
    QVERIFY(waitUntil([&] { return ownerIm_->tribe(tribe)->IsInRoom(); }, 20000));
    QVERIFY(waitUntil([&] { return thirdIm_->tribe(tribe)->IsInRoom(); }, 20000));

    // A colleague's line reaches the tribe page, with its badge.
    messages.clear();
    ownerIm_->tribe(tribe)->SendText(fromQ(QStringLiteral("明天九点开会")),
                                     openim::ITribe::SendCallback());
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
            thirdIm_->tribe(tribe)->GetUnreadMessages(&unread);
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
    QVERIFY(waitUntil([&] { return thirdIm_->tribe(ownTribe)->IsInRoom(); }, 20000));
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
    QVERIFY(waitUntil([&] { return !thirdIm_->tribe(ownTribe)->IsMember(); }, 20000));
}

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    base::AtExitManager atExit;
    TestTribeClient test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_tribeclient.moc"
