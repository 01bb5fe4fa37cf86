// The task side of the back end over real HTTP: the pages, the forms that change tasks and
// the cards they queue for the project's room; who may see and change what.
#include "backendserver.h"
#include "database.h"
#include "democompany.h"
#include "passwordhasher.h"
#include "roomkeeper.h"

#include <httplib.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const char kForm[] = "application/x-www-form-urlencoded";

QJsonObject envelope(const httplib::Result& r) {
    if (!r) return QJsonObject();
    return QJsonDocument::fromJson(QByteArray::fromStdString(r->body)).object();
}
int code(const httplib::Result& r) { return envelope(r).value("errorCode").toInt(-1); }

std::string form(const QList<QPair<QString, QString>>& fields) {
    QByteArray out;
    for (const auto& f : fields) {
        if (!out.isEmpty()) out += '&';
        out += QUrl::toPercentEncoding(f.first) + '=' + QUrl::toPercentEncoding(f.second);
    }
    return out.toStdString();
}

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
    httplib::Client client() const {
        httplib::Client c("127.0.0.1", server_->port());
        c.set_read_timeout(30, 0);
        return c;
    }
    QString signIn(const QString& user, const QString& password) {
        const auto r = client().Post(
            "/work/checkIn.htm?m=MobileLogin",
            "username=" + user.toStdString() + "&password=" + password.toStdString() + "&client=3",
            kForm);
        return envelope(r).value("results").toObject().value("sessionId").toString();
    }
    static httplib::Headers as(const QString& session) {
        return {{"Cookie", "QXSESSION=" + session.toStdString()}};
    }
    // The form token a page hands to `session`.
    QString tokenFrom(const std::string& page, const QString& session) {
        const auto r = client().Get(page, as(session));
        if (!r) return QString();
        const auto m =
            QRegularExpression(QStringLiteral("name=\"formToken\" value=\"([0-9a-f]+)\""))
                .match(QString::fromStdString(r->body));
        return m.captured(1);
    }
    // A valid token of `session`, from the creation page of a project of its own.
    QString ownToken(const QString& session) {
        const QString project =
            envelope(client().Post("/work/editProj.htm?m=createProj&title=own", as(session), "",
                                   "application/x-www-form-urlencoded"))
                .value("results")
                .toObject()
                .value("id")
                .toString();
        return tokenFrom("/work/task.htm?m=create&projectId=" + project.toStdString(), session);
    }
    httplib::Result post(const QString& session, const QList<QPair<QString, QString>>& fields) {
        return client().Post("/work/task.htm", as(session), form(fields), kForm);
    }
    // The task id a successful change leads to, 0 when it did not succeed.
    static qint64 seeOther(const httplib::Result& r) {
        if (!r || r->status != 303) return 0;
        const QString to = QString::fromStdString(r->get_header_value("Location"));
        return to.section(QStringLiteral("taskId="), 1).toLongLong();
    }
    QList<QJsonObject> cards() {
        QList<QJsonObject> out;
        QSqlQuery q(db_->connection());
        if (!q.exec("SELECT payload FROM task_card ORDER BY id")) return out;
        while (q.next()) out << QJsonDocument::fromJson(q.value(0).toString().toUtf8()).object();
        return out;
    }
    QString pageOf(qint64 taskId, const QString& session) {
        const auto r =
            client().Get("/work/task.htm?m=view&taskId=" + std::to_string(taskId), as(session));
        return r ? QString::fromStdString(r->body) : QString();
    }
    qint64 newTask(const QString& title) {
        const QString token = tokenFrom("/work/task.htm?m=create&projectId=50001", member_);
        const auto r = post(member_, {{"m", "create"},
                                      {"projectId", "50001"},
                                      {"title", title},
                                      {"executorId", "10002"},
                                      {"formToken", token}});
        if (!seeOther(r)) qWarning() << (r ? r->status : -1) << (r ? r->body.c_str() : "");
        return seeOther(r);
    }

    QTemporaryDir dir_;
    std::unique_ptr<Database> db_;
    // Never started: the cards stay queued, where the test reads them.
    std::unique_ptr<RoomKeeper> rooms_;
    std::unique_ptr<BackendServer> server_;
    QString member_;     // 10002, member of every project
    QString colleague_;  // same company, not in project 50001
    QString rival_;      // another company
};

void TaskPagesTest::initTestCase() {
    QVERIFY(dir_.isValid());
    db_ = std::make_unique<Database>(QStringLiteral("sqlite:%1/d.db").arg(dir_.path()));
    QVERIFY(db_->createSchema());
    QString error;
    QVERIFY2(DemoCompany::seedDemo(db_.get(), 1000, &error), qPrintable(error));
    QSqlQuery q(db_->connection());
    QVERIFY(q.exec("INSERT INTO company (id, name) VALUES (2, 'rival')"));
    q.prepare(
        "INSERT INTO users (id, company_id, dept_id, user_name, real_name, work_nick, mobile,"
        " email, date_created, full_pinyin, short_pinyin, password_hash, im_secret, open_id)"
        " VALUES (90001, 2, 1, 'rival', 'r', 'r', '', '', '', '', '', ?, 's', '')");
    q.addBindValue(PasswordHasher(1000).hash(QStringLiteral("rival-pass")));
    QVERIFY(q.exec());
    QVERIFY(q.exec("SELECT user_name FROM users WHERE company_id = 1 AND id NOT IN"
                   " (SELECT user_id FROM project_member WHERE project_id = 50001)"
                   " ORDER BY id LIMIT 1") &&
            q.next());
    const QString outsider = q.value(0).toString();

    RoomKeeper::Settings keeper;
    keeper.domain = QStringLiteral("localhost");
    rooms_ = std::make_unique<RoomKeeper>(db_.get(), keeper);
    BackendServer::Options options;
    options.filesDir = dir_.filePath(QStringLiteral("files"));
    server_ = std::make_unique<BackendServer>(db_.get(), options);
    server_->setRoomKeeper(rooms_.get());
    QVERIFY(server_->start(QStringLiteral("127.0.0.1"), 0));
    const QString password = QString::fromLatin1(DemoCompany::kPassword);
    member_ = signIn(DemoCompany::accounts(db_.get(), 2).value(1), password);
    colleague_ = signIn(outsider, password);
    rival_ = signIn(QStringLiteral("rival"), QStringLiteral("rival-pass"));
    QVERIFY(!member_.isEmpty() && !colleague_.isEmpty() && !rival_.isEmpty());
}

void TaskPagesTest::cleanupTestCase() {
    server_.reset();
    rooms_.reset();
    db_.reset();
}

void TaskPagesTest::aTaskLivesThroughItsFormsAndEachEventQueuesACard() {
    const int before = cards().size();
    const QString token = tokenFrom("/work/task.htm?m=create&projectId=50001", member_);
    QVERIFY(!token.isEmpty());
    // A title that would be markup is shown as text.
    const qint64 id = seeOther(post(member_, {{"m", "create"},
                                              {"projectId", "50001"},
                                              {"title", "<b>发布会</b> & 物料"},
                                              {"description", "第一行\n第二行"},
                                              {"deadline", "2026-12-01"},
                                              {"executorId", "10001"},
                                              {"formToken", token}}));
    QVERIFY(id > 0);
    QString page = pageOf(id, member_);
    QVERIFY(page.contains("<title>&lt;b&gt;发布会&lt;/b&gt; &amp; 物料</title>"));
    QVERIFY(page.contains("2026-12-01"));
    QVERIFY(page.contains("<span class=\"state\" id=\"state\">待处理</span>"));

    const QString t = QString::number(id);
    QCOMPARE(seeOther(post(
                 member_,
                 {{"m", "reply"}, {"taskId", t}, {"text", "物料已下单"}, {"formToken", token}})),
             id);
    QCOMPARE(seeOther(post(
                 member_,
                 {{"m", "assign"}, {"taskId", t}, {"executorId", "10002"}, {"formToken", token}})),
             id);
    for (const char* state : {"1", "2", "3"})
        QCOMPARE(
            seeOther(post(
                member_, {{"m", "state"}, {"taskId", t}, {"status", state}, {"formToken", token}})),
            id);
    // The state it already has: nothing to tell anyone.
    QCOMPARE(seeOther(post(member_,
                           {{"m", "state"}, {"taskId", t}, {"status", "3"}, {"formToken", token}})),
             id);
    page = pageOf(id, member_);
    QVERIFY(page.contains("物料已下单"));
    QVERIFY(page.contains("<span class=\"state\" id=\"state\">已完成</span>"));

    QCOMPARE(seeOther(post(member_, {{"m", "cancel"}, {"taskId", t}, {"formToken", token}})), id);
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
        QList<QPair<QString, QString>> fields{{"m", "state"}, {"taskId", t}, {"status", "3"}};
        if (!token.isEmpty()) fields.append({"formToken", token});
        QCOMPARE(code(post(member_, fields)), 1004);
    }
    QCOMPARE(code(client().Get("/work/task.htm?m=cancel&taskId=" + t.toStdString(), as(member_))),
             1001);
    QVERIFY(pageOf(id, member_).contains("<span class=\"state\" id=\"state\">待处理</span>"));
    QCOMPARE(cards().size(), before);
}

void TaskPagesTest::outsidersAndNonMembersCannotChangeTasks() {
    const qint64 id = newTask(QStringLiteral("成员"));
    const QString t = QString::number(id);
    // A colleague outside the project sees the task but gets no forms, and its posts fail.
    const QString page = pageOf(id, colleague_);
    QVERIFY(page.contains("<title>成员</title>"));
    QVERIFY(!page.contains("formToken"));
    const QString token = ownToken(colleague_);
    QVERIFY(!token.isEmpty());
    QCOMPARE(code(post(colleague_,
                       {{"m", "reply"}, {"taskId", t}, {"text", "我来"}, {"formToken", token}})),
             1004);
    QCOMPARE(
        code(post(colleague_,
                  {{"m", "create"}, {"projectId", "50001"}, {"title", "x"}, {"formToken", token}})),
        1004);
    // Another company sees nothing at all, even with a valid token of its own session.
    const QString rivalToken = ownToken(rival_);
    QVERIFY(!rivalToken.isEmpty());
    QCOMPARE(code(client().Get("/work/task.htm?m=view&taskId=" + t.toStdString(), as(rival_))),
             1006);
    QCOMPARE(
        code(post(rival_,
                  {{"m", "state"}, {"taskId", t}, {"status", "1"}, {"formToken", rivalToken}})),
        1006);
    QCOMPARE(
        code(post(
            rival_,
            {{"m", "create"}, {"projectId", "50001"}, {"title", "x"}, {"formToken", rivalToken}})),
        1006);
}

void TaskPagesTest::badInputIsRefusedWithItsReason() {
    const qint64 id = newTask(QStringLiteral("输入"));
    const QString t = QString::number(id);
    const QString token = tokenFrom("/work/task.htm?m=create&projectId=50001", member_);
    const QList<QList<QPair<QString, QString>>> bad{
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
        return envelope(client().Get(flags, as(session)))
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
    const QString token = tokenFrom("/work/task.htm?m=create&projectId=50001", member_);
    pageOf(id, member_);
    QCOMPARE(flagOf(member_), QStringLiteral("1"));
    QVERIFY(seeOther(post(member_, {{"m", "assign"},
                                    {"taskId", QString::number(id)},
                                    {"executorId", "10001"},
                                    {"formToken", token}})) > 0);
    QVERIFY(seeOther(post(member_, {{"m", "assign"},
                                    {"taskId", QString::number(id)},
                                    {"executorId", "10002"},
                                    {"formToken", token}})) > 0);
    QCOMPARE(flagOf(member_), QStringLiteral("0"));
}

void TaskPagesTest::theHomePageListsTheCallersWorkOnly() {
    QVERIFY(newTask(QStringLiteral("首页<待办>")) > 0);  // the member's own task
    auto home = [&](const httplib::Headers& who) {
        const auto r = client().Get("/", who);
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
