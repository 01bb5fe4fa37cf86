// Hostile callers against the back end over real HTTP: nobody signed in, a forged session,
// a colleague of another company on the same back end, a member acting as owner.
#include "backendserver.h"
#include "database.h"
#include "democompany.h"
#include "passwordhasher.h"

#include <httplib.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const char kForm[] = "application/x-www-form-urlencoded";
const char kRivalPassword[] = "rival-pass";

QJsonObject envelope(const httplib::Result& r) {
    if (!r) return QJsonObject();
    return QJsonDocument::fromJson(QByteArray::fromStdString(r->body)).object();
}
int code(const httplib::Result& r) { return envelope(r).value("errorCode").toInt(-1); }

// Every address that hands out or changes company data, with parameters that would succeed
// for a signed-in colleague of the demo company.
const char* const kDataAddresses[] = {
    "/rest/auth/client.htm",
    "/work/mobileUserInfo.htm?m=findAllUserAndDept&userId=10001&companyId=1",
    "/work/mobileUserInfo.htm?m=findSomeOne&manyUserIds=10001,10002",
    "/work/project.htm?m=myProjectList&userId=10002",
    "/work/project.htm?m=tasks&projectId=50001",
    "/work/gen.htm?m=user&projectId=50002",
    "/work/mobileProject.htm?m=queryProjectById&projectId=50002",
    "/work/mobileProject.htm?m=projectInfoByOpenimId&openimId=50002",
    "/work/editProj.htm?&kickUserId=10002&projectId=50002&m=exitPro",
    "/work/editProj.htm?&projectId=50002&sign=x&m=delProj",
    "/work/editProj.htm?m=createProj&title=t",
    "/work/editProj.htm?m=addMember&projectId=50002&userIds=10003",
    "/work/editProj.htm?m=roomState&projectId=50002",
    "/work/notifies.htm?m=getTaskReadFlag&userId=10002&taskIds=70001",
    "/work/notifies.htm?m=setTaskReadFlag&userId=10002&taskId=70001",
    "/work/task.htm?m=view&taskId=70001&userId=10002",
    "/work/task.htm?m=create&projectId=50001",
    "/work/goals.htm?projectId=50001",
};

}  // namespace

class BackendAuthzTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void nobodySignedInGetsNoData();
    void publicPagesStayOpen();
    void logInOnlyByPost();
    void anotherCompanySeesNothingAndChangesNothing();
    void uploadsAreTheCallersAndStayInItsCompany();
    void membersRemoveOnlyThemselves();
    void changesComeByPostFromOurOwnPages();

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
    bool isMember(qint64 project, qint64 user) {
        QSqlQuery q(db_->connection());
        q.prepare(QStringLiteral(
            "SELECT COUNT(*) FROM project_member WHERE project_id = ? AND user_id = ?"));
        q.addBindValue(project);
        q.addBindValue(user);
        return q.exec() && q.next() && q.value(0).toInt() == 1;
    }

    // A colleague of the demo company who is not in `project`.
    qint64 outsiderOf(qint64 project) {
        QSqlQuery q(db_->connection());
        q.prepare(QStringLiteral(
            "SELECT id FROM users WHERE company_id = 1 AND id NOT IN"
            " (SELECT user_id FROM project_member WHERE project_id = ?) ORDER BY id LIMIT 1"));
        q.addBindValue(project);
        return q.exec() && q.next() ? q.value(0).toLongLong() : 0;
    }
    int projectCount() {
        QSqlQuery q(db_->connection());
        return q.exec(QStringLiteral("SELECT COUNT(*) FROM project")) && q.next()
                   ? q.value(0).toInt()
                   : -1;
    }

    QTemporaryDir dir_;
    std::unique_ptr<Database> db_;
    std::unique_ptr<BackendServer> server_;
    QString owner_;   // 10001, owns 50003
    QString member_;  // 10002, member of every project
    QString rival_;   // the one colleague of a second company
};

void BackendAuthzTest::initTestCase() {
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
    q.addBindValue(PasswordHasher(1000).hash(QString::fromLatin1(kRivalPassword)));
    QVERIFY(q.exec());
    BackendServer::Options options;
    options.filesDir = dir_.filePath(QStringLiteral("files"));
    server_ = std::make_unique<BackendServer>(db_.get(), options);
    QVERIFY(server_->start(QStringLiteral("127.0.0.1"), 0));
    const QString password = QString::fromLatin1(DemoCompany::kPassword);
    const QStringList accounts = DemoCompany::accounts(db_.get(), 2);
    owner_ = signIn(accounts.value(0), password);
    member_ = signIn(accounts.value(1), password);
    rival_ = signIn(QStringLiteral("rival"), QString::fromLatin1(kRivalPassword));
    QVERIFY(!owner_.isEmpty() && !member_.isEmpty() && !rival_.isEmpty());
}

void BackendAuthzTest::cleanupTestCase() {
    server_.reset();
    db_.reset();
}

void BackendAuthzTest::nobodySignedInGetsNoData() {
    const httplib::Headers forged = as(QStringLiteral("0123456789abcdef0123456789abcdef"));
    for (const char* address : kDataAddresses) {
        QVERIFY2(code(client().Get(address)) == 1003, address);
        QVERIFY2(code(client().Get(address, forged)) == 1003, address);
        QVERIFY2(code(client().Post(address, "", kForm)) == 1003, address);
        // The session is taken from the session itself, never from a user id.
        const std::string withParam =
            std::string(address) + (strchr(address, '?') ? "&" : "?") + "sessionId=forged";
        QVERIFY2(code(client().Get(withParam)) == 1003, address);
    }
    for (const char* download : {"/work/attachment/1", "/work/attachment?id=1"})
        QCOMPARE(code(client().Get(download)), 1003);
    QCOMPARE(code(client().Post("/work/mobileTopic.htm?m=uploadFromPC",
                                httplib::MultipartFormDataItems{{"file", "x", "a.txt", ""},
                                                                {"userId", "10002", "", ""}})),
             1003);
    // Nothing changed on the way.
    QVERIFY(isMember(50002, 10002));
    // The same addresses answer a signed-in colleague (the refusals above are about the
    // session, not the parameters); a parameter also carries the session.
    QCOMPARE(code(client().Get("/work/gen.htm?m=user&projectId=50002&sessionId=" +
                               member_.toStdString())),
             0);
    QCOMPARE(code(client().Get("/work/project.htm?m=myProjectList", as(member_))), 0);
}

void BackendAuthzTest::publicPagesStayOpen() {
    for (const char* page : {"/", "/work/checkIn.htm", "/work/UserSet.htm",
                             "/work/findPassword.htm", "/work/invite.htm"}) {
        const auto r = client().Get(page);
        QVERIFY2(r && r->status == 200 && r->body.find("<html") != std::string::npos, page);
    }
    const auto update = client().Get("/update/QX_update.ini");
    QVERIFY(update && update->status == 200);
    const auto avatar = client().Get("/avatar/10001.png");
    QVERIFY(avatar && avatar->status == 200);
}

void BackendAuthzTest::logInOnlyByPost() {
    const QStringList accounts = DemoCompany::accounts(db_.get(), 1);
    const std::string query =
        "/work/checkIn.htm?m=MobileLogin&username=" + accounts.value(0).toStdString() +
        "&password=" + DemoCompany::kPassword + "&client=3";
    const auto r = client().Get(query);
    QCOMPARE(code(r), 1001);
    QVERIFY(r->get_header_value("Set-Cookie").empty());
    QVERIFY(!signIn(accounts.value(0), QString::fromLatin1(DemoCompany::kPassword)).isEmpty());
}

void BackendAuthzTest::anotherCompanySeesNothingAndChangesNothing() {
    const httplib::Headers rival = as(rival_);
    struct Refusal {
        const char* address;
        int code;
    };
    const Refusal refusals[] = {
        {"/work/mobileUserInfo.htm?m=findAllUserAndDept&userId=10001&companyId=1", 1006},
        {"/work/mobileUserInfo.htm?m=findAllUserAndDept&userId=90001&companyId=1", 1004},
        {"/work/project.htm?m=myProjectList&userId=10002", 1004},
        {"/work/project.htm?m=tasks&projectId=50001", 1006},
        {"/work/gen.htm?m=user&projectId=50002", 1006},
        {"/work/mobileProject.htm?m=queryProjectById&projectId=50002", 1006},
        {"/work/mobileProject.htm?m=projectInfoByOpenimId&openimId=50002", 1006},
        {"/work/editProj.htm?&kickUserId=10002&projectId=50002&m=exitPro", 1006},
        {"/work/editProj.htm?&kickUserId=90001&projectId=50002&m=exitPro", 1006},
        {"/work/editProj.htm?&projectId=50002&sign=x&m=delProj", 1006},
        {"/work/editProj.htm?m=addMember&projectId=50002&userIds=90001", 1006},
        {"/work/editProj.htm?m=roomState&projectId=50002", 1006},
        {"/work/editProj.htm?m=createProj&title=t&memberIds=10001", 1006},
        {"/work/notifies.htm?m=getTaskReadFlag&userId=10002&taskIds=70001", 1004},
        {"/work/notifies.htm?m=setTaskReadFlag&userId=10002&taskId=70001", 1004},
        {"/work/notifies.htm?m=setTaskReadFlag&taskId=70001", 1006},
        {"/work/task.htm?m=view&taskId=70001", 1006},
        {"/work/task.htm?m=view&taskId=70001&userId=10002", 1006},
        {"/work/task.htm?m=create&projectId=50001", 1006},
        {"/work/goals.htm?projectId=50001", 1006},
    };
    for (const Refusal& r : refusals) {
        const auto reply = client().Get(r.address, rival);
        QVERIFY2(
            code(reply) == r.code,
            qPrintable(QStringLiteral("%1: %2").arg(QLatin1String(r.address)).arg(code(reply))));
    }
    // Lists leave the other company out, as if its ids did not exist.
    auto results = [&](const char* address) {
        const auto r = client().Get(address, rival);
        return code(r) == 0 ? envelope(r).value("results").toArray() : QJsonArray{QJsonValue()};
    };
    QCOMPARE(results("/work/mobileUserInfo.htm?m=findSomeOne&manyUserIds=10001,10002,90001").size(),
             1);
    QVERIFY(results("/work/notifies.htm?m=getTaskReadFlag&taskIds=70001,70002").isEmpty());
    // Its own organisation holds only itself.
    const auto org = client().Get(
        "/work/mobileUserInfo.htm?m=findAllUserAndDept&userId=90001&companyId=2", rival);
    QCOMPARE(code(org), 0);
    QCOMPARE(envelope(org).value("results").toObject().value("allUserList").toArray().size(), 1);
    // Nothing of the demo company changed, nothing was marked read by the outsider.
    QVERIFY(isMember(50002, 10002));
    QSqlQuery q(db_->connection());
    QVERIFY(q.exec("SELECT COUNT(*) FROM task_read WHERE user_id = 90001") && q.next());
    QCOMPARE(q.value(0).toInt(), 0);
    QVERIFY(q.exec("SELECT COUNT(*) FROM project WHERE company_id = 2") && q.next());
    QCOMPARE(q.value(0).toInt(), 0);
}

void BackendAuthzTest::uploadsAreTheCallersAndStayInItsCompany() {
    const std::string path = "/work/mobileTopic.htm?m=uploadFromPC";
    // The outsider claims to be a demo colleague; the file is still the outsider's.
    const auto up = client().Post(path, as(rival_),
                                  httplib::MultipartFormDataItems{{"file", "secret", "s.txt", ""},
                                                                  {"userId", "10002", "", ""}});
    QCOMPARE(code(up), 0);
    const std::string id =
        envelope(up).value("results").toObject().value("id").toString().toStdString();
    QSqlQuery q(db_->connection());
    QVERIFY(q.exec(QStringLiteral("SELECT owner_id FROM attachment WHERE id = %1")
                       .arg(QString::fromStdString(id))) &&
            q.next());
    QCOMPARE(q.value(0).toLongLong(), 90001);
    QCOMPARE(client().Get("/work/attachment/" + id, as(rival_))->body, std::string("secret"));
    QCOMPARE(code(client().Get("/work/attachment/" + id, as(member_))), 1006);
    QCOMPARE(code(client().Get("/work/attachment?id=" + id, as(member_))), 1006);

    // A demo colleague's file is for its colleagues only.
    const auto mine = client().Post(path, as(member_),
                                    httplib::MultipartFormDataItems{{"file", "plan", "p.txt", ""}});
    const std::string mineId =
        envelope(mine).value("results").toObject().value("id").toString().toStdString();
    QCOMPARE(client().Get("/work/attachment/" + mineId, as(owner_))->body, std::string("plan"));
    QCOMPARE(code(client().Get("/work/attachment/" + mineId, as(rival_))), 1006);
}

void BackendAuthzTest::membersRemoveOnlyThemselves() {
    // 50003 is owned by 10001; 10002 is a member; find a third member.
    const auto members = client().Get("/work/gen.htm?m=user&projectId=50003", as(member_));
    QString third;
    for (const QJsonValue& v :
         envelope(members).value("results").toObject().value("userList").toArray()) {
        const QString id = v.toObject().value("id").toString();
        if (id != QLatin1String("10001") && id != QLatin1String("10002")) third = id;
    }
    QVERIFY(!third.isEmpty());
    const std::string kick =
        "/work/editProj.htm?&projectId=50003&m=exitPro&kickUserId=" + third.toStdString();
    QCOMPARE(code(client().Get(kick)), 1003);
    QCOMPARE(code(client().Get(kick, as(member_))), 1004);
    QVERIFY(isMember(50003, third.toLongLong()));
    // Dissolving needs the owner itself, not only its sign.
    const QString sign = envelope(client().Get("/rest/auth/client.htm", as(owner_)))
                             .value("results")
                             .toObject()
                             .value("md5Sign")
                             .toString();
    const std::string del = "/work/editProj.htm?&projectId=50003&m=delProj&sign=" +
                            QUrl::toPercentEncoding(sign).toStdString();
    QCOMPARE(code(client().Get(del)), 1003);
    QCOMPARE(code(client().Get(del, as(member_))), 1004);
    QVERIFY(isMember(50003, 10002));
    // The owner removes anyone but itself; a member removes itself.
    QCOMPARE(code(client().Get(kick, as(owner_))), 0);
    QVERIFY(!isMember(50003, third.toLongLong()));
    QCOMPARE(code(client().Get("/work/editProj.htm?&projectId=50003&m=exitPro&kickUserId=10001",
                               as(owner_))),
             1004);
    QCOMPARE(code(client().Get("/work/editProj.htm?&projectId=50003&m=exitPro&kickUserId=10002",
                               as(member_))),
             0);
    QVERIFY(!isMember(50003, 10002));
}

void BackendAuthzTest::changesComeByPostFromOurOwnPages() {
    // The session cookie is kept from other sites' requests by the browser itself.
    const auto login =
        client().Post("/work/checkIn.htm?m=MobileLogin",
                      "username=" + DemoCompany::accounts(db_.get(), 1).value(0).toStdString() +
                          "&password=" + DemoCompany::kPassword + "&client=3",
                      kForm);
    QVERIFY(login);
    const std::string cookie = login->get_header_value("Set-Cookie");
    QVERIFY2(cookie.find("HttpOnly") != std::string::npos &&
                 cookie.find("SameSite=Strict") != std::string::npos,
             cookie.c_str());

    // A link or an image cannot make a project or add someone to one.
    const qint64 outsider = outsiderOf(50003);
    QVERIFY(outsider != 0);
    const std::string add =
        "m=addMember&projectId=50003&userIds=" + std::to_string(static_cast<long long>(outsider));
    const int projects = projectCount();
    QCOMPARE(
        code(client().Get("/work/editProj.htm?m=createProj&title=t&memberIds=10002", as(owner_))),
        1001);
    QCOMPARE(code(client().Get("/work/editProj.htm?" + add, as(owner_))), 1001);
    QCOMPARE(projectCount(), projects);
    QVERIFY(!isMember(50003, outsider));

    // Another site's page may post, and may lead a sidebar to the GET the client uses to leave
    // a project: both are refused from what the browser says about the page.
    httplib::Headers foreign = as(owner_);
    foreign.emplace("Origin", "https://evil.example");
    auto r = client().Post("/work/editProj.htm", foreign, add, kForm);
    QVERIFY(r);
    QCOMPARE(r->status, 403);
    QCOMPARE(code(r), 1004);
    QVERIFY(!isMember(50003, outsider));
    httplib::Headers referred = as(member_);
    referred.emplace("Referer", "http://127.0.0.1:1/trap.html");
    r = client().Get("/work/editProj.htm?&kickUserId=10002&projectId=50002&m=exitPro", referred);
    QVERIFY(r);
    QCOMPARE(r->status, 403);
    QVERIFY(isMember(50002, 10002));
    httplib::Headers opaque = as(owner_);
    opaque.emplace("Origin", "null");
    QCOMPARE(client().Post("/work/editProj.htm", opaque, add, kForm)->status, 403);
    QVERIFY(!isMember(50003, outsider));

    // Our own pages (same origin) and the desktop client (no origin) go on.
    httplib::Headers own = as(owner_);
    own.emplace("Origin", "http://127.0.0.1:" + std::to_string(server_->port()));
    QCOMPARE(code(client().Post("/work/editProj.htm", own, add, kForm)), 0);
    QVERIFY(isMember(50003, outsider));
    QCOMPARE(code(client().Get("/work/editProj.htm?&projectId=50003&m=exitPro&kickUserId=" +
                                   std::to_string(static_cast<long long>(outsider)),
                               as(owner_))),
             0);
    QVERIFY(!isMember(50003, outsider));
}

QTEST_GUILESS_MAIN(BackendAuthzTest)
#include "tst_backendauthz.moc"
