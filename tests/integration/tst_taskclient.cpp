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
#include <QRegularExpression>

#include "../support/clientsignin.h"
#include "../support/demobackend.h"
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
#include "openim/itribe_service.h"
#include "openim/service_guids.h"
#include "openimmanager.h"
#include "resources.h"
#include "sdk/wide_text.h"
#include "sidebarview.h"
#include "support/prosody_server.h"
#include "support/test_session.h"
#include "taskmsgitem.h"

using wide_text::toQ;

namespace {

// Posts a task form as the page would, with the token the page hands to `who`'s session;
// returns the task the back end sends the browser to, 0 on refusal.
qint64 postTaskForm(const DemoBackend& http, const DemoPerson& who, const QString& pagePath,
                    const QList<QPair<QString, QString>>& fields) {
    const QString page = QString::fromUtf8(http.send(pagePath, who.session).body);
    const QString token =
        QRegularExpression("name=\"formToken\" value=\"([0-9a-f]+)\"").match(page).captured(1);
    QByteArray form = "formToken=" + token.toUtf8();
    for (const auto& f : fields)
        form += '&' + QUrl::toPercentEncoding(f.first) + '=' + QUrl::toPercentEncoding(f.second);
    const DemoAnswer a = http.send("/work/task.htm", who.session, &form);
    return a.status == 303 ? a.location.section("taskId=", 1).toLongLong() : 0;
}

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

    ProsodyServer prosody_;
    QTemporaryDir data_;
    MainWindow* window_ = nullptr;
    std::unique_ptr<DemoBackend> http_;
    DemoPerson me_, owner_, third_;
    std::unique_ptr<TestSession> thirdIm_;
};

void TestTaskClient::initTestCase() {
    quelixInitResources();
    qunsetenv("DBUS_SESSION_BUS_ADDRESS");
    QVERIFY2(prosody_.start(), qPrintable(prosody_.lastError()));
    http_ = std::make_unique<DemoBackend>(QStringLiteral(QUELIX_BACKEND_BIN));
    QByteArray printed;
    QVERIFY2(http_->start(prosody_, data_.path(), &printed), printed.constData());
    const QStringList names = http_->userNames(3);
    QCOMPARE(names.size(), 3);
    me_ = http_->signIn(names[0]);
    owner_ = http_->signIn(names[1]);
    third_ = http_->signIn(names[2]);
    QVERIFY(!me_.id.isEmpty() && !owner_.session.isEmpty() && !third_.session.isEmpty());

    ConfigStore::instance().init();
    QVERIFY(OpenIMManager::instance()->init());
    window_ = startClient();
    QVERIFY(signInThroughLoginWindow(window_, me_.userName));

    thirdIm_ = std::make_unique<TestSession>("third");
    thirdIm_->login(prosody_, third_.id, third_.secret, prosody_.adminJid().section('@', 0, 0));
    QVERIFY(waitUntil([&] { return thirdIm_->probe().count("loginOk") == 1; }));
}

void TestTaskClient::cleanupTestCase() {
    for (QWidget* w : QApplication::topLevelWidgets())
        if (auto* sidebar = qobject_cast<SidebarView*>(w)) sidebar->hideSidebarView();
    MainViewDelegate::setInstance(nullptr);
    http_->stop();
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
    const QJsonObject made =
        http_->change("/work/editProj.htm?m=createProj&title=" + QUrl::toPercentEncoding("任务项目") +
                        "&memberIds=" + me_.id + "," + third_.id,
                    owner_.session);
    const QString project = made.value("results").toObject().value("id").toString();
    QVERIFY(!project.isEmpty());
    QTRY_VERIFY_WITH_TIMEOUT(DirectoryStore::instance().tribe(project) != nullptr, 20000);
    QVERIFY(
        waitUntil([&] { return tribeOf(*thirdIm_, project.toULongLong())->IsInRoom(); }, 20000));

    // The owner makes a task for the user from the project's creation page.
    const qint64 task = postTaskForm(*http_, owner_, "/work/task.htm?m=create&projectId=" + project,
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
            tribeOf(*thirdIm_, project.toULongLong())->GetUnreadMessages(&unread);
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
    QCOMPARE(
        postTaskForm(*http_, third_, "/work/task.htm?m=view&taskId=" + QString::number(task),
                     {{"m", "reply"}, {"taskId", QString::number(task)}, {"text", "样品明天到"}}),
        task);
    BaseMsg::MMessage replied;
    QVERIFY(waitForCard(messages, project, task, 2, &replied));
    QCOMPARE(cardOf(replied).value("userId").toString(), third_.id);
    QCOMPARE(cardOf(replied).value("reply").toString(), QStringLiteral("样品明天到"));
    QCOMPARE(postTaskForm(*http_, owner_, "/work/task.htm?m=view&taskId=" + QString::number(task),
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
