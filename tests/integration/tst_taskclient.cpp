// Tasks end to end: a private Prosody, the reference back end keeping the project rooms and
// posting task cards, the client's own windows (offscreen) for one colleague and an SDK
// session for another. A task made on the back end reaches the tribe as a card, the card
// opens the task's page in the sidebar with the user's session, and later events follow.
#include <QtTest>

#include <QComboBox>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QPushButton>

#include "../support/clientrig.h"
#include "../support/privatedisplay.h"
#include "base/at_exit.h"
#include "clientsession.h"
#include "configstore.h"
#include "conversationview.h"
#include "directorystore.h"
#include "loginview.h"
#include "mainwindow.h"
#include "manager.h"
#include "openim/itribe.h"
#include "openimmanager.h"
#include "sdk/wide_text.h"
#include "sidebarview.h"
#include "taskmsgitem.h"

using wide_text::toQ;

namespace {

QJsonObject cardOf(const BaseMsg::MMessage& m) {
    return QJsonDocument::fromJson(m.contentJson.toUtf8()).object();
}

}  // namespace

class TestTaskClient : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void aTaskCardArrivesOpensInTheSidebarAndLaterEventsFollow();

private:
    // The next task card of `project` for `taskId` with `event` that reached the client.
    bool waitForCard(QSignalSpy& messages, const QString& project, qint64 taskId, int event,
                     BaseMsg::MMessage* found);

    ClientRig rig_{QStringLiteral(QUELIX_BACKEND_BIN)};
    MainWindow* window_ = nullptr;
    DemoBackend* http_ = nullptr;
    DemoPerson me_, owner_, third_;
    TestSession* thirdIm_ = nullptr;
};

void TestTaskClient::initTestCase() {
    QVERIFY2(rig_.start(3), qPrintable(rig_.error()));
    http_ = &rig_.backend();
    me_ = rig_.person(0);
    owner_ = rig_.person(1);
    third_ = rig_.person(2);

    window_ = rig_.openClient();
    QVERIFY(window_);
    QVERIFY(rig_.signIn());

    thirdIm_ = rig_.addSession("third", 2);
    QVERIFY(rig_.sessionsSignedIn());
}

void TestTaskClient::cleanupTestCase() {
    for (QWidget* w : QApplication::topLevelWidgets())
        if (auto* sidebar = qobject_cast<SidebarView*>(w)) sidebar->hideSidebarView();
    rig_.stop();
}

bool TestTaskClient::waitForCard(QSignalSpy& messages, const QString& project, qint64 taskId,
                                 int event, BaseMsg::MMessage* found) {
    return waitUntil(
        [&] {
            for (const QList<QVariant>& args : qAsConst(messages)) {
                const BaseMsg::MMessage m = args.first().value<BaseMsg::MMessage>();
                const QJsonObject c = cardOf(m);
                if (m.conversationId == project && c.value("msgType").toInt() == 1 &&
                    c.value("taskId").toString().toLongLong() == taskId &&
                    c.value("event").toInt(-1) == event) {
                    *found = m;
                    return true;
                }
            }
            return false;
        },
        20000);
}

void TestTaskClient::aTaskCardArrivesOpensInTheSidebarAndLaterEventsFollow() {
    QSignalSpy messages(OpenIMManager::instance(), &OpenIMManager::chatMessage);
    const QJsonObject made = http_->change(
        "/work/editProj.htm?m=createProj&title=" + QUrl::toPercentEncoding("任务项目") +
            "&memberIds=" + me_.id + "," + third_.id,
        owner_.session);
    const QString project = made.value("results").toObject().value("id").toString();
    QVERIFY(!project.isEmpty());
    QTRY_VERIFY_WITH_TIMEOUT(DirectoryStore::instance().tribe(project) != nullptr, 20000);
    QVERIFY(waitUntil([&] { return thirdIm_->tribe(project.toULongLong())->IsInRoom(); }, 20000));

    // The owner makes a task for the user from the project's creation page.
    const qint64 task = http_->postTaskForm(owner_, "/work/task.htm?m=create&projectId=" + project,
                                            {{"m", "create"},
                                             {"projectId", project},
                                             {"title", "准备发布会物料"},
                                             {"executorId", me_.id}});
    QVERIFY(task > 0);
    BaseMsg::MMessage created;
    QVERIFY(waitForCard(messages, project, task, 0, &created));
    QCOMPARE(created.summary, QStringLiteral("[任务]"));
    QCOMPARE(cardOf(created).value("userId").toString(), owner_.id);
    // The other member's SDK has it too.
    QVERIFY(waitUntil(
        [&] {
            std::vector<openim::IMTribeMessage> unread;
            thirdIm_->tribe(project.toULongLong())->GetUnreadMessages(&unread);
            for (const auto& u : unread)
                if (toQ(u.content.content).contains(QString::number(task))) return true;
            return false;
        },
        20000));

    // Made for the user, it also reaches the user directly, in a conversation of its own
    // with the company's task assistant, whom the client looks up like any colleague.
    BaseMsg::MMessage direct;
    QVERIFY(waitUntil(
        [&] {
            for (const QList<QVariant>& args : qAsConst(messages)) {
                const BaseMsg::MMessage m = args.first().value<BaseMsg::MMessage>();
                if (!m.isTribe && cardOf(m).value("taskId").toString().toLongLong() == task) {
                    direct = m;
                    return true;
                }
            }
            return false;
        },
        20000));
    QCOMPARE(cardOf(direct).value("event").toInt(-1), 1);
    QCOMPARE(cardOf(direct).value("executorId").toString(), me_.id);
    QVERIFY(direct.conversationId != project && direct.conversationId != owner_.id);
    QCOMPARE(direct.senderName, QStringLiteral("任务助手"));
    QVERIFY(DirectoryStore::instance().isUser(direct.conversationId));

    // The card, in the tribe's page, opens the task in the sidebar, signed in as the user.
    window_->conversationView()->showConversation(project, 0);
    qx_output::TaskMsgItem* item = nullptr;
    QTRY_VERIFY_WITH_TIMEOUT((item = window_->findChild<qx_output::TaskMsgItem*>()), 10000);
    SidebarView* sidebar = nullptr;
    for (QWidget* w : QApplication::topLevelWidgets())
        if (auto* s = qobject_cast<SidebarView*>(w)) sidebar = s;
    QVERIFY(sidebar);
    QSignalSpy loaded(sidebar, &SidebarView::pageLoaded);
    QPushButton* open = nullptr;
    for (QPushButton* b : item->findChildren<QPushButton*>())
        if (b->text() == QStringLiteral("任务说明")) open = b;
    QVERIFY(open);
    open->click();
    QVERIFY(loaded.wait(60000));
    QVERIFY(sidebar->isVisible());
    QTRY_COMPARE(sidebar->webView()->property("title").toString(),
                 QStringLiteral("准备发布会物料"));
    // Read for the user, and for nobody else.
    const QString flags = "/work/notifies.htm?m=getTaskReadFlag&taskIds=" + QString::number(task);
    auto flagOf = [&](const DemoPerson& p) {
        return http_->call(flags, p.session)
            .value("results")
            .toArray()
            .first()
            .toObject()
            .value("readFlag")
            .toString();
    };
    QCOMPARE(flagOf(me_), QStringLiteral("1"));
    QTRY_COMPARE(item->findChild<QLabel*>("taskReadState")->text(), QStringLiteral("已读"));
    QCOMPARE(flagOf(third_), QStringLiteral("0"));

    // A reply by another member and the owner finishing the task reach the user as cards.
    QCOMPARE(http_->postTaskForm(
                 third_, "/work/task.htm?m=view&taskId=" + QString::number(task),
                 {{"m", "reply"}, {"taskId", QString::number(task)}, {"text", "样品明天到"}}),
             task);
    BaseMsg::MMessage replied;
    QVERIFY(waitForCard(messages, project, task, 2, &replied));
    QCOMPARE(cardOf(replied).value("userId").toString(), third_.id);
    QCOMPARE(cardOf(replied).value("reply").toString(), QStringLiteral("样品明天到"));
    QCOMPARE(
        http_->postTaskForm(owner_, "/work/task.htm?m=view&taskId=" + QString::number(task),
                            {{"m", "state"}, {"taskId", QString::number(task)}, {"status", "3"}}),
        task);
    BaseMsg::MMessage done;
    QVERIFY(waitForCard(messages, project, task, 7, &done));

    // Activating the main window puts the sidebar away.
    emit qx_output::Manager::instance()->mainWinActiveSignal();
    QVERIFY(!sidebar->isVisible());
    QVERIFY(!sidebar->webView());
}

int main(int argc, char** argv) {
    PrivateDisplay display;
    if (!display.start()) return 1;
    int rc = 0;
    {
        QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
        QApplication app(argc, argv);
        base::AtExitManager atExit;
        TestTaskClient test;
        rc = QTest::qExec(&test, argc, argv);
    }
    return rc;
}

#include "tst_taskclient.moc"
