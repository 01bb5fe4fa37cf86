// Task cards in a conversation: whose alert settings silence which events, the viewer's
// read flags fetched in batches and shown on the cards, and a click that opens the task.
#include <QtTest>

#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QPushButton>

#include "configstore.h"
#include "directorystore.h"
#include "listwidget.h"
#include "manager.h"
#include "resources.h"
#include "taskalertpolicy.h"
#include "taskmsgitem.h"
#include "taskreadflags.h"
#include "userconfig_t.h"
#include "view.h"

using qx_output::TaskReadFlags;

namespace {

QJsonObject card(int event, const QString& actor = "102", const QString& executor = "103") {
    return QJsonObject{{"msgType", 1},      {"taskId", "7"},          {"event", event},
                       {"userId", actor},   {"executorId", executor}, {"title", "物料"},
                       {"userName", "李娜"}};
}

BaseMsg::MMessage cardMessage(quint64 id, const QJsonObject& content, bool history = false) {
    BaseMsg::MMessage m;
    m.msgId = id;
    m.time = 1700000000 + qint64(id);
    m.kind = BaseMsg::Custom;
    m.summary = QStringLiteral("[任务]");
    m.senderId = QStringLiteral("quelix-backend");
    m.isHistory = history;
    m.contentJson = QString::fromUtf8(QJsonDocument(content).toJson(QJsonDocument::Compact));
    return m;
}

}  // namespace

class TestTaskCards : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void settingsChooseWhichEventsAlert();
    void readFlagsAreAskedInBatchesAndKeptPerTask();
    void aCardShowsTheViewersFlagAndOpensItsTask();
};

void TestTaskCards::initTestCase() {
    quelixInitResources();
    ConfigStore::instance().init();
    ConfigStore::instance().setUrl(UrlTable::UrlHome, QStringLiteral("http://work.example"));
    ConfigStore::instance().setUser(101, 7);
    QVERIFY(DirectoryStore::instance().load(
        "{\"errorCode\":0,\"results\":{\"allDeptList\":[{\"id\":\"1\"}],\"allUserList\":["
        "{\"id\":\"101\",\"section\":\"1\",\"realName\":\"王伟\"},"
        "{\"id\":\"102\",\"section\":\"1\",\"realName\":\"李娜\"}]}}"));
    DirectoryStore::instance().setSelfId("101");
}

void TestTaskCards::settingsChooseWhichEventsAlert() {
    quelix::userconfig_t s;  // defaults: all but "Dispose"
    const QString me = QStringLiteral("101");
    // event -> alerted under the defaults
    const QList<QPair<int, bool>> defaults{{0, true},  {1, false}, {2, true}, {3, true},
                                           {4, false}, {5, false}, {6, true}, {7, true}};
    for (const auto& d : defaults)
        QVERIFY2(TaskAlertPolicy::alerts(card(d.first), s, me) == d.second,
                 qPrintable(QString::number(d.first)));
    // Each setting silences its own events and no others.
    s.reply = false;
    QVERIFY(!TaskAlertPolicy::alerts(card(2), s, me));
    QVERIFY(TaskAlertPolicy::alerts(card(7), s, me));
    s.suspend = false;
    s.complete = false;
    s.createAndDelete = false;
    for (int e : {0, 3, 6, 7}) QVERIFY(!TaskAlertPolicy::alerts(card(e), s, me));
    s.dispose = true;
    for (int e : {1, 4, 5}) QVERIFY(TaskAlertPolicy::alerts(card(e), s, me));
    // A task handed to the user always alerts through the card that comes directly, its
    // copy in the tribe does not ring again; what the user did never alerts the user.
    s.dispose = false;
    QVERIFY(TaskAlertPolicy::alerts(card(1, "102", me), s, me, true));
    QVERIFY(!TaskAlertPolicy::alerts(card(1, "102", me), s, me, false));
    QVERIFY(!TaskAlertPolicy::alerts(card(1, "102", "103"), s, me, true));
    s = quelix::userconfig_t();
    QVERIFY(!TaskAlertPolicy::alerts(card(2, me), s, me));
    // A card this client cannot place is alerted like any message.
    QVERIFY(TaskAlertPolicy::alerts(QJsonObject{{"msgType", 1}, {"event", "whatever"}}, s, me));
    QVERIFY(TaskAlertPolicy::alerts(card(42), s, me));
}

void TestTaskCards::readFlagsAreAskedInBatchesAndKeptPerTask() {
    TaskReadFlags flags;
    QList<QStringList> asked;
    flags.setFetcher([&](const QStringList& ids) { asked << ids; });
    QSignalSpy changed(&flags, &TaskReadFlags::changed);
    for (int i = 1; i <= TaskReadFlags::kBatch + 5; ++i)
        QCOMPARE(flags.flag(QString::number(i)), -1);
    QCOMPARE(flags.flag("1"), -1);  // asked once only
    QTRY_COMPARE(asked.size(), 2);
    QCOMPARE(asked[0].size(), TaskReadFlags::kBatch);
    QCOMPARE(asked[1].size(), 5);

    flags.setFlags(
        TaskReadFlags::parse(QJsonDocument::fromJson(
                                 R"([{"taskId":"1","readFlag":"1"},{"taskId":2,"readFlag":"0"},
                                                {"taskId":"3","readFlag":"yes"},{"readFlag":"1"}])")
                                 .array()));
    QCOMPARE(flags.flag("1"), 1);
    QCOMPARE(flags.flag("2"), 0);
    QCOMPARE(flags.flag("3"), -1);  // a garbled flag is not taken, nor asked again
    QCOMPARE(changed.size(), 2);
    flags.markRead("2");
    QCOMPARE(flags.flag("2"), 1);
    QCOMPARE(changed.last().at(1).toBool(), true);
    // An answer asked for before the user opened the task does not undo the opening.
    QCOMPARE(flags.flag("9"), -1);
    flags.markRead("9");
    flags.setFlags({{"9", false}});
    QCOMPARE(flags.flag("9"), 1);
    // After a new event on the task its flag is asked for again.
    asked.clear();
    flags.forget("2");
    QCOMPARE(flags.flag("2"), -1);
    QTRY_COMPARE(asked, QList<QStringList>{QStringList{"2"}});
}

void TestTaskCards::aCardShowsTheViewersFlagAndOpensItsTask() {
    TaskReadFlags* flags = qx_output::Manager::instance()->readFlags();
    QStringList asked;
    flags->setFetcher([&](const QStringList& ids) { asked << ids; });
    qx_output::View v(QStringLiteral("50001"), true);
    v.resize(600, 500);
    v.show();
    QJsonObject content = card(2);
    content.insert("reply", "物料已下单，明天到");
    content.insert("isRead", true);  // what the sender saw; the viewer's own flag decides
    v.addMessage(cardMessage(1, content));
    QTRY_VERIFY(v.findChild<qx_output::TaskMsgItem*>());
    auto* item = v.findChild<qx_output::TaskMsgItem*>();
    QTRY_COMPARE(asked, QStringList{"7"});
    flags->setFlags({{"7", false}});
    // The row is the acting colleague's, not the back end account's that posted it.
    const qx_output::EntryItem* row = v.listWidget()->entryAt(v.listWidget()->count() - 1);
    QCOMPARE(row->entry.msg.senderId, QStringLiteral("102"));
    QCOMPARE(row->entry.msg.senderName, QStringLiteral("李娜"));
    QVERIFY(!row->entry.msg.isSelf);
    auto* state = item->findChild<QLabel*>("taskReadState");
    QCOMPARE(state->text(), QStringLiteral("未读"));
    // Who acted comes from the card, not from the back end's account that posted it.
    bool named = false;
    for (QLabel* l : item->findChildren<QLabel*>())
        named = named || l->text().startsWith(QStringLiteral("李娜 回复了任务：物料"));
    QVERIFY(named);

    QSignalSpy opened(qx_output::Manager::instance(), &qx_output::Manager::openTaskSignal);
    QPushButton* open = nullptr;
    for (QPushButton* b : item->findChildren<QPushButton*>())
        if (b->text() == QStringLiteral("任务说明")) open = b;
    QVERIFY(open);
    open->click();
    QCOMPARE(opened.size(), 1);
    QCOMPARE(opened.first().first().toString(),
             QStringLiteral("http://work.example/work/task.htm?taskId=7"));
    QCOMPARE(state->text(), QStringLiteral("已读"));

    // An assignment says to whom the task went.
    QJsonObject assigned = card(1);
    assigned.insert("executor", "张敏");
    v.addMessage(cardMessage(2, assigned));
    QTRY_COMPARE(v.findChildren<qx_output::TaskMsgItem*>().size(), 2);
    named = false;
    for (auto* i : v.findChildren<qx_output::TaskMsgItem*>())
        for (QLabel* l : i->findChildren<QLabel*>())
            named = named || l->text() == QStringLiteral("李娜 指派给了 张敏");
    QVERIFY(named);

    // The task assistant's own conversation: its cards are its rows (its name and avatar),
    // while the text still says who acted.
    qx_output::View assistant(QStringLiteral("104"), false);
    BaseMsg::MMessage direct = cardMessage(3, card(1));
    direct.senderId = QStringLiteral("104");
    direct.senderName = QStringLiteral("任务助手");
    assistant.addMessage(direct);
    const qx_output::EntryItem* own =
        assistant.listWidget()->entryAt(assistant.listWidget()->count() - 1);
    QCOMPARE(own->entry.kind, qx_output::MessageEntry::Task);
    QCOMPARE(own->entry.msg.senderId, QStringLiteral("104"));
    QCOMPARE(own->entry.msg.senderName, QStringLiteral("任务助手"));
}

QTEST_MAIN(TestTaskCards)
#include "tst_taskcards.moc"
