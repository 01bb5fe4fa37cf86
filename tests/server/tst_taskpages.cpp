// The task side of the back end over real HTTP: the pages, the forms that change tasks and
// the cards they queue for the project's room; who may see and change what.
#include "backendrig.h"
#include "roomkeeper.h"

#include <QRegularExpression>
#include <QtTest>

namespace {

using Fields = QList<QPair<QString, QString>>;

std::string form(const Fields& fields) {
    QByteArray out;
    for (const auto& f : fields) {
        if (!out.isEmpty()) out += '&';
        out += QUrl::toPercentEncoding(f.first) + '=' + QUrl::toPercentEncoding(f.second);
    }
    return out.toStdString();
}

// The task id a successful change leads to, 0 when it did not succeed.
qint64 seeOther(const httplib::Result& r) {
    if (!r || r->status != 303) return 0;
    return QString::fromStdString(r->get_header_value("Location"))
        .section(QStringLiteral("taskId="), 1)
        .toLongLong();
}

const char kCreatePage[] = "/work/task.htm?m=create&projectId=50001";

}  // namespace

class TaskPagesTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void aTaskLivesThroughItsFormsAndEachEventQueuesACard();
    void formsWithoutTheSessionsTokenAreRefused();
    void outsidersAndNonMembersCannotChangeTasks();
    void badInputIsRefusedWithItsReason();
    void openingATaskMarksItReadForTheViewerOnly();
    void theHomePageListsTheCallersWorkOnly();

private:
    // The form token a page hands to `session`.
    QString tokenFrom(const std::string& page, const QString& session) const {
        const auto r = rig_.client().Get(page, as(session));
        return QRegularExpression(QStringLiteral("name=\"formToken\" value=\"([0-9a-f]+)\""))
            .match(r ? QString::fromStdString(r->body) : QString())
            .captured(1);
    }
    // A valid token of `session`, from the creation page of a project of its own.
    QString ownToken(const QString& session) const {
        const QString project =
            results(rig_.client().Post("/work/editProj.htm?m=createProj&title=own", as(session), "",
                                       kForm))
                .value("id")
                .toString();
        return tokenFrom("/work/task.htm?m=create&projectId=" + project.toStdString(), session);
    }
    httplib::Result post(const QString& session, const Fields& fields) const {
        return rig_.client().Post("/work/task.htm", as(session), form(fields), kForm);
    }
    // `fields` with `token`, as the member posts them.
    qint64 act(const QString& token, Fields fields) const {
        fields.append({"formToken", token});
        return seeOther(post(member_, fields));
    }
    QList<QJsonObject> cards() const {
        QList<QJsonObject> out;
        QSqlQuery q(rig_.db->connection());
        if (!q.exec("SELECT payload FROM task_card ORDER BY id")) return out;
        while (q.next()) out << QJsonDocument::fromJson(q.value(0).toString().toUtf8()).object();
        return out;
    }
    QString pageOf(qint64 taskId, const QString& session) const {
        const auto r = rig_.client().Get("/work/task.htm?m=view&taskId=" + std::to_string(taskId),
                                         as(session));
        return r ? QString::fromStdString(r->body) : QString();
    }
    qint64 newTask(const QString& title) const {
        return act(
            tokenFrom(kCreatePage, member_),
            {{"m", "create"}, {"projectId", "50001"}, {"title", title}, {"executorId", "10002"}});
    }

    BackendRig rig_;
    // Never started: the cards stay queued, where the test reads them.
    std::unique_ptr<RoomKeeper> rooms_;
    QString member_;     // 10002, member of every project
    QString colleague_;  // same company, not in project 50001
    QString rival_;      // another company
};

void TaskPagesTest::initTestCase() {
    QVERIFY2(rig_.seed(), qPrintable(rig_.error));
    QVERIFY(rig_.addRival());
    QSqlQuery q(rig_.db->connection());
    QVERIFY(q.exec("SELECT user_name FROM users WHERE company_id = 1 AND id NOT IN"
                   " (SELECT user_id FROM project_member WHERE project_id = 50001)"
                   " ORDER BY id LIMIT 1") &&
            q.next());
    const QString outsider = q.value(0).toString();
    RoomKeeper::Settings keeper;
    keeper.domain = QStringLiteral("localhost");
    rooms_ = std::make_unique<RoomKeeper>(rig_.db.get(), keeper);
    QVERIFY(rig_.serve({}, [this](BackendServer& s) { s.setRoomKeeper(rooms_.get()); }));
    member_ = rig_.signIn(rig_.accounts(2).value(1));
    colleague_ = rig_.signIn(outsider);
    rival_ = rig_.signIn(QStringLiteral("rival"), QString::fromLatin1(kRivalPassword));
    QVERIFY(!member_.isEmpty() && !colleague_.isEmpty() && !rival_.isEmpty());
}

void TaskPagesTest::cleanupTestCase() {
    rig_.server.reset();
    rooms_.reset();
    rig_.stop();
}

void TaskPagesTest::aTaskLivesThroughItsFormsAndEachEventQueuesACard() {
    const int before = cards().size();
    const QString token = tokenFrom(kCreatePage, member_);
    QVERIFY(!token.isEmpty());
    // A title that would be markup is shown as text.
    const qint64 id = act(token, {{"m", "create"},
                                  {"projectId", "50001"},
                                  {"title", "<b>发布会</b> & 物料"},
                                  {"description", "第一行\n第二行"},
                                  {"deadline", "2026-12-01"},
                                  {"executorId", "10001"}});
    QVERIFY(id > 0);
    QString page = pageOf(id, member_);
    QVERIFY(page.contains("<title>&lt;b&gt;发布会&lt;/b&gt; &amp; 物料</title>"));
    QVERIFY(page.contains("2026-12-01"));
    QVERIFY(page.contains("<span class=\"state\" id=\"state\">待处理</span>"));

    const QString t = QString::number(id);
    QCOMPARE(act(token, {{"m", "reply"}, {"taskId", t}, {"text", "物料已下单"}}), id);
    QCOMPARE(act(token, {{"m", "assign"}, {"taskId", t}, {"executorId", "10002"}}), id);
    // The last one is the state it already has: nothing to tell anyone.
    for (const char* state : {"1", "2", "3", "3"})
        QCOMPARE(act(token, {{"m", "state"}, {"taskId", t}, {"status", state}}), id);
    page = pageOf(id, member_);
    QVERIFY(page.contains("物料已下单"));
    QVERIFY(page.contains("<span class=\"state\" id=\"state\">已完成</span>"));

    QCOMPARE(act(token, {{"m", "cancel"}, {"taskId", t}}), id);
    page = pageOf(id, member_);
    QVERIFY(page.contains("已取消"));
    QVERIFY(!page.contains("replyForm"));  // a cancelled task takes no more changes
    QCOMPARE(
        code(post(member_, {{"m", "reply"}, {"taskId", t}, {"text", "x"}, {"formToken", token}})),
        1004);

    // One card per event, in order, each naming the task, its project and who acted.
    const QList<QJsonObject> queued = cards().mid(before);
    QCOMPARE(queued.size(), 7);
    const int events[] = {0, 2, 1, 5, 6, 7, 3};
    for (int i = 0; i < 7; ++i) {
        const QJsonObject& c = queued[i];
        QCOMPARE(c.value("event").toInt(-1), events[i]);
        QCOMPARE(c.value("msgType").toInt(), 1);
        QCOMPARE(c.value("summary").toString(), QStringLiteral("[任务]"));
        QCOMPARE(c.value("taskId").toString(), t);
        QCOMPARE(c.value("projectId").toString(), QStringLiteral("50001"));
        QCOMPARE(c.value("userId").toString(), QStringLiteral("10002"));
        QVERIFY(!c.value("userName").toString().isEmpty());
    }
    QCOMPARE(queued[0].value("endTime").toString(), QStringLiteral("2026-12-01"));
    QCOMPARE(queued[1].value("reply").toString(), QStringLiteral("物料已下单"));
    QCOMPARE(queued[2].value("executorId").toString(), QStringLiteral("10002"));
}

void TaskPagesTest::formsWithoutTheSessionsTokenAreRefused() {
    const qint64 id = newTask(QStringLiteral("令牌"));
    QVERIFY(id > 0);
    const QString t = QString::number(id);
    const int before = cards().size();
    // Another session's token (a page of another colleague, or a forged one), none at all,
    // or a change asked for by a link: refused, and nothing changes.
    const QString otherToken = ownToken(colleague_);
    QVERIFY(!otherToken.isEmpty());
    for (const QString& token : {otherToken, QString(), QStringLiteral("0000")}) {
        Fields fields{{"m", "state"}, {"taskId", t}, {"status", "3"}};
        if (!token.isEmpty()) fields.append({"formToken", token});
        QCOMPARE(code(post(member_, fields)), 1004);
    }
    QCOMPARE(
        code(rig_.client().Get("/work/task.htm?m=cancel&taskId=" + t.toStdString(), as(member_))),
        1001);
    QVERIFY(pageOf(id, member_).contains("<span class=\"state\" id=\"state\">待处理</span>"));
    QCOMPARE(cards().size(), before);
}

void TaskPagesTest::outsidersAndNonMembersCannotChangeTasks() {
    const QString t = QString::number(newTask(QStringLiteral("成员")));
    // A colleague outside the project sees the task but gets no forms, and its posts fail.
    const QString page = pageOf(t.toLongLong(), colleague_);
    QVERIFY(page.contains("<title>成员</title>"));
    QVERIFY(!page.contains("formToken"));
    // Another company sees nothing at all; both post with a valid token of their own.
    QCOMPARE(code(rig_.client().Get("/work/task.htm?m=view&taskId=" + t.toStdString(), as(rival_))),
             1006);
    for (const auto& [session, refused] : {qMakePair(colleague_, 1004), qMakePair(rival_, 1006)}) {
        const QString token = ownToken(session);
        QVERIFY(!token.isEmpty());
        for (const Fields& fields :
             {Fields{{"m", "reply"}, {"taskId", t}, {"text", "我来"}},
              Fields{{"m", "state"}, {"taskId", t}, {"status", "1"}},
              Fields{{"m", "create"}, {"projectId", "50001"}, {"title", "x"}}}) {
            QVERIFY2(code(post(session, fields + Fields{{"formToken", token}})) == refused,
                     form(fields).c_str());
        }
    }
}

void TaskPagesTest::badInputIsRefusedWithItsReason() {
    const QString t = QString::number(newTask(QStringLiteral("输入")));
    const QString token = tokenFrom(kCreatePage, member_);
    const QList<Fields> bad{
        {{"m", "create"}, {"projectId", "50001"}, {"title", ""}},
        {{"m", "create"}, {"projectId", "50001"}, {"title", QString(101, QChar('x'))}},
        {{"m", "create"}, {"projectId", "50001"}, {"title", "a\x01"}},
        {{"m", "create"}, {"projectId", "50001"}, {"title", "t"}, {"deadline", "明天"}},
        // Only members of the project may do it.
        {{"m", "create"}, {"projectId", "50001"}, {"title", "t"}, {"executorId", "90001"}},
        {{"m", "assign"}, {"taskId", t}, {"executorId", "90001"}},
        {{"m", "reply"}, {"taskId", t}, {"text", "  "}},
        {{"m", "reply"}, {"taskId", t}, {"text", QString(2001, QChar('x'))}},
        {{"m", "state"}, {"taskId", t}, {"status", "4"}},
        {{"m", "state"}, {"taskId", t}, {"status", "x"}},
        {{"m", "state"}, {"taskId", "abc"}, {"status", "1"}},
        {{"m", "delete"}, {"taskId", t}},
    };
    for (auto fields : bad) {
        fields.append({"formToken", token});
        const auto r = post(member_, fields);
        QVERIFY2(code(r) == 1001, form(fields).c_str());
        QVERIFY(!envelope(r).value("errorMsg").toString().isEmpty());
    }
    QCOMPARE(
        code(post(member_,
                  {{"m", "state"}, {"taskId", "99999999"}, {"status", "1"}, {"formToken", token}})),
        1006);
}

void TaskPagesTest::openingATaskMarksItReadForTheViewerOnly() {
    const qint64 id = newTask(QStringLiteral("已读"));
    const std::string flags = "/work/notifies.htm?m=getTaskReadFlag&taskIds=" + std::to_string(id);
    auto flagOf = [&](const QString& session) {
        return envelope(rig_.client().Get(flags, as(session)))
            .value("results")
            .toArray()
            .first()
            .toObject()
            .value("readFlag")
            .toString();
    };
    QCOMPARE(flagOf(member_), QStringLiteral("0"));
    QCOMPARE(flagOf(colleague_), QStringLiteral("0"));
    QVERIFY(pageOf(id, colleague_).contains("已读"));
    QCOMPARE(flagOf(colleague_), QStringLiteral("1"));
    QCOMPARE(flagOf(member_), QStringLiteral("0"));
    // A task assigned anew is unread for its new executor.
    const QString token = tokenFrom(kCreatePage, member_);
    pageOf(id, member_);
    QCOMPARE(flagOf(member_), QStringLiteral("1"));
    for (const char* executor : {"10001", "10002"}) {
        QVERIFY(act(token,
                    {{"m", "assign"}, {"taskId", QString::number(id)}, {"executorId", executor}}) >
                0);
    }
    QCOMPARE(flagOf(member_), QStringLiteral("0"));
}

void TaskPagesTest::theHomePageListsTheCallersWorkOnly() {
    QVERIFY(newTask(QStringLiteral("首页<待办>")) > 0);  // the member's own task
    auto home = [&](const httplib::Headers& who) {
        const auto r = rig_.client().Get("/", who);
        return r ? QString::fromStdString(r->body) : QString();
    };
    const QString mine = home(as(member_));
    QVERIFY(mine.contains("首页&lt;待办&gt;"));
    QVERIFY(mine.contains("work/project.htm?m=tasks&amp;projectId=50001"));
    // Someone else's home does not list it, and nobody signed in sees no work at all.
    QVERIFY(!home(as(colleague_)).contains("首页&lt;待办&gt;"));
    QVERIFY(!home(as(colleague_)).contains("projectId=50001\""));
    QVERIFY(!home({}).contains("我的任务"));
}

QTEST_GUILESS_MAIN(TaskPagesTest)
#include "tst_taskpages.moc"
