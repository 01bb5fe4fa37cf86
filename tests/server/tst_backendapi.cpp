// The back end over real HTTP on loopback: a server on a port picked at run time, seeded
// with the demo company, and requests the way the client sends them.
#include "backendserver.h"
#include "database.h"
#include "democompany.h"

#include <httplib.h>

#include <QDir>
#include <QDirIterator>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

#include <atomic>
#include <thread>

namespace {

const char kForm[] = "application/x-www-form-urlencoded";
const char kLogin[] = "/work/checkIn.htm?m=MobileLogin";
const char kOrg[] = "/work/mobileUserInfo.htm?m=findAllUserAndDept";

QJsonObject envelope(const httplib::Result& r) {
    if (!r) return QJsonObject();
    return QJsonDocument::fromJson(QByteArray::fromStdString(r->body)).object();
}

int code(const httplib::Result& r) {
    return envelope(r).value(QStringLiteral("errorCode")).toInt(-1);
}

std::string enc(const QString& s) { return QUrl::toPercentEncoding(s).toStdString(); }

}  // namespace

class BackendApiTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void loginReadsTheFormInOrder();
    void loginFailures_data();
    void loginFailures();
    void repeatedWrongPasswordsAreSlowedDown();
    void tokenNeedsASession();
    void organisationMatchesTheDatabase();
    void organisationFailures();
    void colleaguesAndProjects();
    void deleteNeedsTheSignExitNeedsNone();
    void taskPagesAndReadFlags();
    void uploadAndDownload();
    void sqlMetacharactersInEveryField();
    void pagesAndUpdateDescription();
    void everyUrlTableAddressAnswers();
    void manyConcurrentConnections();

private:
    httplib::Client client() const {
        httplib::Client c("127.0.0.1", server_->port());
        c.set_read_timeout(30, 0);
        return c;
    }
    httplib::Result login(const QString& user, const QString& password,
                          const char* clientKind = "3") {
        const std::string body =
            "username=" + enc(user) + "&password=" + enc(password) + "&client=" + clientKind;
        return client().Post(kLogin, body, kForm);
    }
    QString sessionCookie(const httplib::Result& r) const {
        const QString set = QString::fromStdString(r->get_header_value("Set-Cookie"));
        return set.section(QLatin1Char(';'), 0, 0);
    }
    httplib::Headers cookie(const QString& c) const { return {{"Cookie", c.toStdString()}}; }
    // The second demo account's session: every data address needs one.
    httplib::Headers me() const { return cookie(memberSession_); }
    int userCount();

    QTemporaryDir dir_{QDir(qEnvironmentVariable("QUELIX_TEST_TMP", QDir::tempPath()))
                           .filePath(QStringLiteral("api-XXXXXX"))};
    std::unique_ptr<Database> db_;
    std::unique_ptr<BackendServer> server_;
    QString owner_;   // first demo account: owns the even projects
    QString member_;  // second demo account: member of every project
    QString memberSession_;
};

void BackendApiTest::initTestCase() {
    QVERIFY(dir_.isValid());
    db_ = std::make_unique<Database>(QStringLiteral("sqlite:%1/directory.db").arg(dir_.path()));
    QVERIFY(db_->createSchema());
    QString error;
    QVERIFY2(DemoCompany::seedDemo(db_.get(), 1000, &error), qPrintable(error));
    const QStringList accounts = DemoCompany::accounts(db_.get(), 2);
    QCOMPARE(accounts.size(), 2);
    owner_ = accounts[0];
    member_ = accounts[1];
    BackendServer::Options options;
    options.filesDir = dir_.filePath(QStringLiteral("attachments"));
    options.uploadLimit = 64 * 1024;
    options.firstLoginPauseMs = 400;
    options.threads = 16;
    server_ = std::make_unique<BackendServer>(db_.get(), options);
    QVERIFY(server_->start(QStringLiteral("127.0.0.1"), 0));
    memberSession_ = sessionCookie(login(member_, QString::fromLatin1(DemoCompany::kPassword)));
}

void BackendApiTest::cleanupTestCase() {
    server_.reset();
    db_.reset();
}

int BackendApiTest::userCount() {
    QSqlQuery q(db_->connection());
    return q.exec(QStringLiteral("SELECT COUNT(*) FROM users")) && q.next() ? q.value(0).toInt()
                                                                            : -1;
}

void BackendApiTest::loginReadsTheFormInOrder() {
    // Exactly the client's body: three fields in this order, client 3.
    const auto r = login(owner_, QString::fromLatin1(DemoCompany::kPassword));
    QVERIFY(r);
    QCOMPARE(r->status, 200);
    const QJsonObject env = envelope(r);
    for (const char* key :
         {"errorCode", "errorMsg", "results", "redirectUrl", "redirectToBeta", "client"}) {
        QVERIFY2(env.contains(QLatin1String(key)), key);
    }
    QCOMPARE(env[QStringLiteral("errorCode")].toInt(-1), 0);
    QCOMPARE(env[QStringLiteral("client")].toString(), QStringLiteral("3"));
    const QJsonObject user = env[QStringLiteral("results")].toObject();
    for (const char* key :
         {"id",         "nick",           "username",    "userIcon",  "workNick", "deptName",
          "loginType",  "companyId",      "companyName", "crmSys",    "email",    "openId",
          "iosVersion", "androidVersion", "md5Sign",     "imAccount", "imSecret", "imHost",
          "imPort",     "imDomain",       "imHosts"}) {
        QVERIFY2(user[QLatin1String(key)].isString(), key);
    }
    QCOMPARE(user[QStringLiteral("username")].toString(), owner_);
    QCOMPARE(user[QStringLiteral("id")].toString(), QStringLiteral("10001"));
    QCOMPARE(user[QStringLiteral("md5Sign")].toString().size(), 32);
    QCOMPARE(user[QStringLiteral("imHosts")].toString(),
             user[QStringLiteral("imHost")].toString() + ':' +
                 user[QStringLiteral("imPort")].toString());
    QVERIFY(!user[QStringLiteral("imSecret")].toString().isEmpty());
    QVERIFY(user[QStringLiteral("imSecret")].toString() != QLatin1String(DemoCompany::kPassword));
    QVERIFY(sessionCookie(r).startsWith(QLatin1String("QXSESSION=")));
    // The authorisation outlives the client's 30-minute renewal period.
    QVERIFY(user[QStringLiteral("authSeconds")].toString().toInt() >= 1800);

    // Signing in again renews the session and keeps the same token while it lives.
    const auto again = login(owner_, QString::fromLatin1(DemoCompany::kPassword));
    QCOMPARE(envelope(again)[QStringLiteral("results")].toObject()[QStringLiteral("md5Sign")],
             user[QStringLiteral("md5Sign")]);
}

void BackendApiTest::loginFailures_data() {
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("expected");
    const QByteArray pw = DemoCompany::kPassword;
    const QByteArray user = member_.toUtf8();
    QTest::newRow("no username") << "password=" + pw + "&client=3" << 1001;
    QTest::newRow("empty password") << "username=" + user + "&password=&client=3" << 1001;
    QTest::newRow("no client") << "username=" + user + "&password=" + pw << 1001;
    QTest::newRow("client not a number")
        << "username=" + user + "&password=" + pw + "&client=x" << 1001;
    QTest::newRow("garbage body") << QByteArray("%%%&&&==") << 1001;
    QTest::newRow("unknown user") << "username=nobody&password=" + pw + "&client=3" << 1002;
    QTest::newRow("injection as user")
        << QByteArray("username=%27%20OR%20%271%27%3D%271&password=x&client=3") << 1002;
    QTest::newRow("injection as password")
        << "username=" + user + "&password=%27%20OR%20%271%27%3D%271&client=3" << 1002;
    QTest::newRow("oversize form")
        << "username=" + QByteArray(20000, 'a') + "&password=x&client=3" << 1009;
}

void BackendApiTest::loginFailures() {
    QFETCH(QByteArray, body);
    QFETCH(int, expected);
    const auto r = client().Post(kLogin, body.toStdString(), kForm);
    QVERIFY(r);
    const QJsonObject env = envelope(r);
    QCOMPARE(env[QStringLiteral("errorCode")].toInt(-1), expected);
    QVERIFY(!env[QStringLiteral("errorMsg")].toString().isEmpty());
    QVERIFY(r->get_header_value("Set-Cookie").empty());
}

void BackendApiTest::repeatedWrongPasswordsAreSlowedDown() {
    // A colleague of its own, so other tests' log-ins are not held up.
    const QString victim = DemoCompany::accounts(db_.get(), 10).last();
    for (int i = 0; i < 5; ++i) QCOMPARE(code(login(victim, QStringLiteral("wrong"))), 1002);
    // Now even the right password waits out the pause.
    QCOMPARE(code(login(victim, QString::fromLatin1(DemoCompany::kPassword))), 1005);
    QCOMPARE(code(login(member_, QString::fromLatin1(DemoCompany::kPassword))), 0);
    QTest::qWait(500);
    QCOMPARE(code(login(victim, QString::fromLatin1(DemoCompany::kPassword))), 0);
}

void BackendApiTest::tokenNeedsASession() {
    QCOMPARE(code(client().Get("/rest/auth/client.htm")), 1003);
    QCOMPARE(
        code(client().Get("/rest/auth/client.htm", cookie(QStringLiteral("QXSESSION=forged")))),
        1003);
    const auto r = login(member_, QString::fromLatin1(DemoCompany::kPassword));
    const QString sign =
        envelope(r)[QStringLiteral("results")].toObject()[QStringLiteral("md5Sign")].toString();
    const auto t = client().Get("/rest/auth/client.htm", cookie(sessionCookie(r)));
    QCOMPARE(code(t), 0);
    QCOMPARE(
        envelope(t)[QStringLiteral("results")].toObject()[QStringLiteral("md5Sign")].toString(),
        sign);
}

void BackendApiTest::organisationMatchesTheDatabase() {
    const auto r = login(owner_, QString::fromLatin1(DemoCompany::kPassword));
    const QString sign =
        envelope(r)[QStringLiteral("results")].toObject()[QStringLiteral("md5Sign")].toString();
    const auto org =
        client().Get(std::string(kOrg) + "&userId=10001&companyId=1", cookie(sessionCookie(r)));
    QCOMPARE(code(org), 0);
    // The client library asks for gzip (as the client's network stack does); the reply
    // assembled from cached compressed pieces must equal the plain one.
    httplib::Headers plain = cookie(sessionCookie(r));
    plain.emplace("Accept-Encoding", "identity");
    const auto uncompressed = client().Get(std::string(kOrg) + "&userId=10001&companyId=1", plain);
    QVERIFY(uncompressed && uncompressed->get_header_value("Content-Encoding").empty());
    QCOMPARE(QByteArray::fromStdString(org->body), QByteArray::fromStdString(uncompressed->body));
    const QJsonObject results = envelope(org)[QStringLiteral("results")].toObject();
    const QJsonArray depts = results[QStringLiteral("allDeptList")].toArray();
    const QJsonArray users = results[QStringLiteral("allUserList")].toArray();

    QSqlQuery q(db_->connection());
    QVERIFY(q.exec(
        QStringLiteral("SELECT id, org_name, parent_id, full_pinyin, short_pinyin FROM dept")));
    QHash<QString, QStringList> dbDepts;
    while (q.next()) {
        dbDepts.insert(q.value(0).toString(), {q.value(1).toString(), q.value(2).toString(),
                                               q.value(3).toString(), q.value(4).toString()});
    }
    QCOMPARE(depts.size(), dbDepts.size());
    QVERIFY(depts.size() > 15);
    int deepest = 0;
    for (const QJsonValue& v : depts) {
        const QJsonObject d = v.toObject();
        QCOMPARE(d.size(), 5);
        const QStringList row = dbDepts.value(d[QStringLiteral("id")].toString());
        QCOMPARE((QStringList{d[QStringLiteral("orgName")].toString(),
                              d[QStringLiteral("parentId")].toString(),
                              d[QStringLiteral("fullNamePinyin")].toString(),
                              d[QStringLiteral("shortNamePinyin")].toString()}),
                 row);
        int depth = 0;
        for (QString p = row.value(1); dbDepts.contains(p); p = dbDepts.value(p).value(1)) ++depth;
        deepest = qMax(deepest, depth);
    }
    QVERIFY2(deepest >= 3, "the demo tree is several levels deep");

    QVERIFY(
        q.exec(QStringLiteral("SELECT u.id, u.user_name, u.real_name, u.work_nick, d.org_name,"
                              " u.dept_id, u.mobile, u.email, u.date_created, u.full_pinyin,"
                              " u.short_pinyin FROM users u JOIN dept d ON d.id = u.dept_id")));
    QHash<QString, QStringList> dbUsers;
    while (q.next()) {
        QStringList row;
        for (int i = 1; i < 11; ++i) row << q.value(i).toString();
        dbUsers.insert(q.value(0).toString(), row);
    }
    QCOMPARE(users.size(), dbUsers.size());
    QCOMPARE(users.size(), DemoCompany::kDemoColleagues);
    const char* const keys[] = {"userName",       "realName",       "workNick", "deptName",
                                "section",        "mobile",         "email",    "dateCreated",
                                "fullNamePinyin", "shortNamePinyin"};
    int signs = 0;
    for (const QJsonValue& v : users) {
        const QJsonObject u = v.toObject();
        const QString id = u[QStringLiteral("id")].toString();
        QStringList got;
        for (const char* k : keys) got << u[QLatin1String(k)].toString();
        QCOMPARE(got, dbUsers.value(id));
        QVERIFY(u[QStringLiteral("userIcon")].toString().endsWith(
            QStringLiteral("/avatar/%1.png").arg(id)));
        const QString s = u[QStringLiteral("md5Sign")].toString();
        if (!s.isEmpty()) {
            ++signs;
            QCOMPARE(id, QStringLiteral("10001"));
            QCOMPARE(s, sign);
        }
        // Full pinyin of a Chinese name is lower-case letters; the short one its initials.
        QVERIFY(u[QStringLiteral("shortNamePinyin")].toString().size() ==
                u[QStringLiteral("realName")].toString().size());
    }
    QCOMPARE(signs, 1);

    // Another colleague asking for the same organisation gets nobody's token.
    const auto other = client().Get(std::string(kOrg) + "&userId=10001&companyId=1", me());
    QCOMPARE(code(other), 0);
    QVERIFY(!other->body.empty() && other->body.find(sign.toStdString()) == std::string::npos);
}

void BackendApiTest::organisationFailures() {
    QCOMPARE(code(client().Get(std::string(kOrg) + "&userId=10001", me())), 1001);
    QCOMPARE(code(client().Get(std::string(kOrg) + "&userId=abc&companyId=1", me())), 1001);
    QCOMPARE(code(client().Get(std::string(kOrg) + "&userId=-1&companyId=1", me())), 1001);
    QCOMPARE(code(client().Get(std::string(kOrg) + "&userId=99999999&companyId=1", me())), 1006);
    QCOMPARE(code(client().Get(std::string(kOrg) + "&userId=10001&companyId=2", me())), 1004);
    QCOMPARE(code(client().Get("/work/mobileUserInfo.htm?m=nothing", me())), 1001);
    // An address longer than the server reads is refused with an envelope too.
    QCOMPARE(code(client().Get(
                 std::string(kOrg) + "&userId=" + std::string(10000, '1') + "&companyId=1", me())),
             1001);
    const auto unknown = client().Get("/work/nothing.htm", me());
    QCOMPARE(code(unknown), 1010);
}

void BackendApiTest::colleaguesAndProjects() {
    const auto some = client().Get(
        "/work/mobileUserInfo.htm?m=findSomeOne&manyUserIds=10002,10001,10002,999", me());
    QCOMPARE(code(some), 0);
    const QJsonArray found = envelope(some)[QStringLiteral("results")].toArray();
    QCOMPARE(found.size(), 2);
    QCOMPARE(found[0].toObject()[QStringLiteral("id")].toString(), QStringLiteral("10001"));
    QCOMPARE(code(client().Get("/work/mobileUserInfo.htm?m=findSomeOne&manyUserIds=", me())), 1001);
    QCOMPARE(code(client().Get("/work/mobileUserInfo.htm?m=findSomeOne&manyUserIds=1,x", me())),
             1001);

    const auto list = client().Get("/work/project.htm?m=myProjectList&userId=10002", me());
    QCOMPARE(code(list), 0);
    const QJsonArray projects = envelope(list)[QStringLiteral("results")]
                                    .toObject()[QStringLiteral("projectList")]
                                    .toArray();
    QCOMPARE(projects.size(), 12);
    const QJsonObject first = projects[0].toObject();
    // The project's tribe carries the project's id.
    QCOMPARE(first[QStringLiteral("openimId")], first[QStringLiteral("id")]);
    // Someone else's list is not handed out.
    QCOMPARE(code(client().Get("/work/project.htm?m=myProjectList&userId=99999999", me())), 1004);

    const auto byId =
        client().Get("/work/mobileProject.htm?m=queryProjectById&projectId=50002", me());
    const auto byTribe =
        client().Get("/work/mobileProject.htm?m=projectInfoByOpenimId&openimId=50002", me());
    QCOMPARE(code(byId), 0);
    QCOMPARE(envelope(byId)[QStringLiteral("results")],
             envelope(byTribe)[QStringLiteral("results")]);
    QCOMPARE(code(client().Get("/work/mobileProject.htm?m=queryProjectById&projectId=1", me())),
             1006);
    QCOMPARE(code(client().Get("/work/mobileProject.htm?m=projectInfoByOpenimId", me())), 1001);

    const auto members = client().Get("/work/gen.htm?m=user&projectId=50002", me());
    QCOMPARE(code(members), 0);
    const QJsonArray userList = envelope(members)[QStringLiteral("results")]
                                    .toObject()[QStringLiteral("userList")]
                                    .toArray();
    QCOMPARE(QString::number(userList.size()), envelope(byId)[QStringLiteral("results")]
                                                   .toObject()[QStringLiteral("memberCount")]
                                                   .toString());
    QCOMPARE(code(client().Get("/work/gen.htm?m=user&projectId=7", me())), 1006);
}

void BackendApiTest::deleteNeedsTheSignExitNeedsNone() {
    const auto r = login(owner_, QString::fromLatin1(DemoCompany::kPassword));
    const QString sign =
        envelope(r)[QStringLiteral("results")].toObject()[QStringLiteral("md5Sign")].toString();
    // The owner sees the sign in its project record.
    const auto owned = client().Get("/work/mobileProject.htm?m=queryProjectById&projectId=50003",
                                    cookie(sessionCookie(r)));
    QCOMPARE(
        envelope(owned)[QStringLiteral("results")].toObject()[QStringLiteral("sign")].toString(),
        sign);
    const auto other =
        client().Get("/work/mobileProject.htm?m=queryProjectById&projectId=50003", me());
    QCOMPARE(
        envelope(other)[QStringLiteral("results")].toObject()[QStringLiteral("sign")].toString(),
        QString());

    // The addresses exactly as the client builds them, odd "?&" included.
    const std::string del = "/work/editProj.htm?&projectId=50003&sign=";
    QCOMPARE(code(client().Get(del + "&m=delProj", me())), 1001);
    QCOMPARE(code(client().Get(del + "00000000000000000000000000000000&m=delProj", me())), 1004);
    // Another member's own token is not the owner's sign.
    const auto m = login(member_, QString::fromLatin1(DemoCompany::kPassword));
    const QString memberSign =
        envelope(m)[QStringLiteral("results")].toObject()[QStringLiteral("md5Sign")].toString();
    QCOMPARE(code(client().Get(del + memberSign.toStdString() + "&m=delProj", me())), 1004);
    QCOMPARE(code(client().Get("/work/mobileProject.htm?m=queryProjectById&projectId=50003", me())),
             0);
    // The owner's sign from another caller is not enough.
    QCOMPARE(code(client().Get(del + sign.toStdString() + "&m=delProj", me())), 1004);
    QCOMPARE(code(client().Get(del + sign.toStdString() + "&m=delProj", cookie(sessionCookie(r)))),
             0);
    QCOMPARE(code(client().Get("/work/mobileProject.htm?m=queryProjectById&projectId=50003", me())),
             1006);
    QCOMPARE(code(client().Get(del + sign.toStdString() + "&m=delProj", cookie(sessionCookie(r)))),
             1006);

    // Leaving needs no sign, but a session.
    const std::string exit = "/work/editProj.htm?&kickUserId=10002&projectId=50005&m=exitPro";
    QCOMPARE(code(client().Get(exit)), 1003);
    QCOMPARE(code(client().Get(exit, me())), 0);
    QCOMPARE(code(client().Get(exit, me())), 1006);  // no longer a member
    const auto members = client().Get("/work/gen.htm?m=user&projectId=50005", me());
    QVERIFY(members->body.find("\"10002\"") == std::string::npos);
    // The owner cannot leave its own project; it dissolves it instead.
    QCOMPARE(
        code(client().Get("/work/editProj.htm?&kickUserId=10001&projectId=50005&m=exitPro", me())),
        1004);
    // A signed-in member cannot remove someone else.
    const auto other2 = client().Get("/work/gen.htm?m=user&projectId=50007", me());
    const QJsonArray list = envelope(other2)[QStringLiteral("results")]
                                .toObject()[QStringLiteral("userList")]
                                .toArray();
    QString victim;
    for (const QJsonValue& v : list) {
        const QString id = v.toObject()[QStringLiteral("id")].toString();
        if (id != QLatin1String("10001") && id != QLatin1String("10002")) victim = id;
    }
    QVERIFY(!victim.isEmpty());
    const std::string kick =
        "/work/editProj.htm?&kickUserId=" + victim.toStdString() + "&projectId=50007&m=exitPro";
    QCOMPARE(code(client().Get(kick, cookie(sessionCookie(m)))), 1004);
    QCOMPARE(code(client().Get("/work/editProj.htm?&projectId=50007&m=other", me())), 1001);
}

void BackendApiTest::taskPagesAndReadFlags() {
    const std::string flags =
        "/work/notifies.htm?m=getTaskReadFlag&userId=10002&taskIds=70001,70002,99";
    auto r = client().Get(flags, me());
    QCOMPARE(code(r), 0);
    QJsonArray list = envelope(r)[QStringLiteral("results")].toArray();
    QCOMPARE(list.size(), 2);  // the unknown task is left out
    QCOMPARE(list[0].toObject()[QStringLiteral("readFlag")].toString(), QStringLiteral("0"));

    const auto page = client().Get("/work/task.htm?m=view&taskId=70001&userId=10002", me());
    QVERIFY(page && page->status == 200);
    QCOMPARE(QString::fromStdString(page->get_header_value("Content-Type")).section(';', 0, 0),
             QStringLiteral("text/html"));
    QVERIFY(QString::fromStdString(page->body).contains(QStringLiteral("执行人：")));
    r = client().Get(flags, me());
    list = envelope(r)[QStringLiteral("results")].toArray();
    QCOMPARE(list[0].toObject()[QStringLiteral("readFlag")].toString(), QStringLiteral("1"));
    QCOMPARE(list[1].toObject()[QStringLiteral("readFlag")].toString(), QStringLiteral("0"));

    // Marking read is a change: asked by GET it is refused and nothing changes.
    const std::string mark = "/work/notifies.htm?m=setTaskReadFlag&userId=10002&taskId=70002";
    QCOMPARE(code(client().Get(mark, me())), 1001);
    r = client().Get(flags, me());
    QCOMPARE(envelope(r)[QStringLiteral("results")]
                 .toArray()[1]
                 .toObject()[QStringLiteral("readFlag")]
                 .toString(),
             QStringLiteral("0"));
    QCOMPARE(code(client().Post(mark, me(), "", kForm)), 0);
    QCOMPARE(code(client().Get("/work/notifies.htm?m=setTaskReadFlag&userId=10002&taskId=5", me())),
             1006);
    QCOMPARE(code(client().Get("/work/notifies.htm?m=getTaskReadFlag&userId=10002", me())), 1001);
    QCOMPARE(code(client().Get("/work/task.htm?m=view&taskId=1", me())), 1006);
    QCOMPARE(code(client().Get("/work/task.htm?m=view", me())), 1001);
}

void BackendApiTest::uploadAndDownload() {
    const std::string path = "/work/mobileTopic.htm?m=uploadFromPC";
    const std::string content =
        std::string("PK\x03\x04 quarterly report\n", 22) + std::string(1000, 'x');
    httplib::MultipartFormDataItems items{
        {"file", content, "../../..\\escape/季度报告.zip", "application/zip"},
        {"userId", "10002", "", ""}};
    const auto r = client().Post(path, me(), items);
    QCOMPARE(code(r), 0);
    const QJsonObject result = envelope(r)[QStringLiteral("results")].toObject();
    QCOMPARE(result[QStringLiteral("fileName")].toString(), QStringLiteral("季度报告.zip"));
    QCOMPARE(result[QStringLiteral("fileSize")].toString(), QString::number(content.size()));
    const std::string id = result[QStringLiteral("id")].toString().toStdString();

    const auto d = client().Get("/work/attachment/" + id, me());
    QVERIFY(d && d->status == 200);
    QCOMPARE(d->body, content);
    const QString disposition = QString::fromStdString(d->get_header_value("Content-Disposition"));
    // The client library hands the header back already decoded.
    QVERIFY2(disposition.contains(QStringLiteral("UTF-8''季度报告.zip")), qPrintable(disposition));
    QCOMPARE(client().Get("/work/attachment?id=" + id, me())->body, content);

    // Nothing but the stored file was written, and only inside the attachments folder.
    QDirIterator it(dir_.path(), QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString f = it.next();
        QVERIFY2(
            f.contains(QLatin1String("/attachments/")) || f.contains(QLatin1String("directory.db")),
            qPrintable(f));
    }

    QCOMPARE(code(client().Post(path, me(),
                                httplib::MultipartFormDataItems{{"file", "x", "..", ""},
                                                                {"userId", "10002", "", ""}})),
             1008);
    QCOMPARE(
        code(client().Post(path, httplib::MultipartFormDataItems{{"file", "x", "a.txt", ""},
                                                                 {"userId", "10002", "", ""}})),
        1003);
    QCOMPARE(code(client().Post(path, me(),
                                httplib::MultipartFormDataItems{
                                    {"file", std::string(100 * 1024, 'a'), "big.bin", ""},
                                    {"userId", "10002", "", ""}})),
             1007);
    const auto huge = client().Post(
        path, me(),
        httplib::MultipartFormDataItems{{"file", std::string(300 * 1024, 'a'), "big.bin", ""},
                                        {"userId", "10002", "", ""}});
    // Past the cap on the whole body it is refused before it is read, as the file it is.
    QCOMPARE(code(huge), 1007);
    QCOMPARE(code(client().Post(path, "userId=10002", kForm)), 1001);

    for (const char* bad :
         {"/work/attachment/..%2F..%2Fdirectory.db", "/work/attachment/../directory.db",
          "/work/attachment?id=../../etc/passwd", "/work/attachment/1"}) {
        const auto b = client().Get(bad, me());
        QVERIFY2(b, bad);
        const int c = code(b);
        QVERIFY2(c == 1001 || c == 1006 || c == 1010, bad);
    }
}

void BackendApiTest::sqlMetacharactersInEveryField() {
    const int before = userCount();
    const QString evil = QStringLiteral("1'; DROP TABLE users; --");
    const std::string e = enc(evil);
    const char* const addresses[] = {
        "/work/mobileUserInfo.htm?m=findAllUserAndDept&userId=%1&companyId=%1",
        "/work/mobileUserInfo.htm?m=findSomeOne&manyUserIds=%1",
        "/work/project.htm?m=myProjectList&userId=%1",
        "/work/gen.htm?m=user&projectId=%1",
        "/work/mobileProject.htm?m=queryProjectById&projectId=%1",
        "/work/mobileProject.htm?m=projectInfoByOpenimId&openimId=%1",
        "/work/editProj.htm?&projectId=%1&sign=%1&m=delProj",
        "/work/editProj.htm?&kickUserId=%1&projectId=%1&m=exitPro",
        "/work/notifies.htm?m=getTaskReadFlag&userId=%1&taskIds=%1",
        "/work/task.htm?m=view&taskId=%1",
        "/work/attachment/%1",
        "/rest/auth/client.htm?sessionId=%1",
    };
    for (const char* a : addresses) {
        const std::string url = QString::fromLatin1(a).arg(QString::fromStdString(e)).toStdString();
        const auto r = client().Get(url, me());
        QVERIFY2(r, a);
        QVERIFY2(code(r) > 0, a);
        QVERIFY2(!envelope(r)[QStringLiteral("errorMsg")].toString().isEmpty(), a);
    }
    QCOMPARE(code(login(evil, evil)), 1002);
    QCOMPARE(code(login(evil, evil, "3%27")), 1001);
    QCOMPARE(userCount(), before);
}

void BackendApiTest::pagesAndUpdateDescription() {
    for (const char* page :
         {"/", "/work/checkIn.htm", "/work/UserSet.htm", "/work/findPassword.htm",
          "/work/invite.htm", "/work/project.htm?m=tasks&projectId=50001",
          "/work/goals.htm?projectId=50001", "/work/task.htm?m=create&projectId=50001"}) {
        const auto r = client().Get(page, me());
        QVERIFY2(r && r->status == 200, page);
        QVERIFY2(r->body.find("<html") != std::string::npos, page);
    }
    QVERIFY(QString::fromStdString(client().Get("/work/goals.htm?projectId=50001", me())->body)
                .contains(QStringLiteral("目标达成率：")));
    QCOMPARE(code(client().Get("/work/goals.htm?projectId=1", me())), 1006);

    const auto ini = client().Get("/update/QX_update.ini", me());
    QVERIFY(ini && ini->status == 200);
    QFile file(dir_.filePath(QStringLiteral("QX_update.ini")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(ini->body.data(), qint64(ini->body.size()));
    file.close();
    QSettings settings(file.fileName(), QSettings::IniFormat);
    QCOMPARE(settings.value(QStringLiteral("info/ExeVersion")).toString(),
             QStringLiteral("1.1.9.0"));
    QVERIFY(!settings.value(QStringLiteral("info/QtVersion")).toString().isEmpty());
    QVERIFY(
        settings.value(QStringLiteral("url_maximum")).toString().startsWith(QLatin1String("http")));
    QVERIFY(!settings.value(QStringLiteral("mac/url_minimum")).toString().isEmpty());

    const auto avatar =
        client().Get("/avatar/10001.png@1e_150w_150h_1c_0i_1o_80Q_1x_100-1ci.png", me());
    QVERIFY(avatar && avatar->status == 200);
    QImage image;
    QVERIFY(image.loadFromData(reinterpret_cast<const uchar*>(avatar->body.data()),
                               int(avatar->body.size()), "PNG"));
    QCOMPARE(image.size(), QSize(150, 150));
    QCOMPARE(client().Get("/avatar/5.png", me())->status, 404);
}

void BackendApiTest::everyUrlTableAddressAnswers() {
    const QJsonObject table =
        QJsonDocument::fromJson(BackendServer::urlTable(server_->publicUrl())).object();
    QCOMPARE(table.size(), 15);
    for (auto it = table.begin(); it != table.end(); ++it) {
        const QUrl url(it.value().toString());
        QVERIFY2(url.isValid() && url.port() == server_->port(), qPrintable(it.key()));
        // Bare, without the parameters each one wants: a page or an envelope, never a 404.
        QString path = url.toString(QUrl::RemoveScheme | QUrl::RemoveAuthority);
        if (path.isEmpty()) path = QStringLiteral("/");
        const auto r = client().Get(path.toStdString(), me());
        QVERIFY2(r && r->status == 200, qPrintable(it.key()));
        const bool page = r->body.find("<html") != std::string::npos;
        QVERIFY2(page || envelope(r).contains(QStringLiteral("errorCode")), qPrintable(it.key()));
    }
}

void BackendApiTest::manyConcurrentConnections() {
    constexpr int kConnections = 50;
    constexpr int kPerConnection = 200;
    const auto r = login(member_, QString::fromLatin1(DemoCompany::kPassword));
    const std::string session = sessionCookie(r).toStdString();
    std::atomic<int> failures{0};
    std::atomic<int> answered{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kConnections; ++t) {
        threads.emplace_back([&, t] {
            httplib::Client c("127.0.0.1", server_->port());
            c.set_keep_alive(true);
            c.set_read_timeout(60, 0);
            for (int i = 0; i < kPerConnection; ++i) {
                const httplib::Result res = [&] {
                    switch ((t + i) % 4) {
                        case 0:
                            return c.Get(
                                "/work/mobileUserInfo.htm?m=findSomeOne&manyUserIds=10001,10002",
                                {{"Cookie", session}});
                        case 1:
                            return c.Get("/rest/auth/client.htm", {{"Cookie", session}});
                        case 2:
                            return c.Get(
                                "/work/mobileProject.htm?m=queryProjectById&projectId=50002",
                                {{"Cookie", session}});
                        default:
                            return c.Get(
                                "/work/"
                                "mobileUserInfo.htm?m=findAllUserAndDept&userId=10002&companyId=1",
                                {{"Cookie", session}});
                    }
                }();
                if (!res || res->status != 200 ||
                    res->body.compare(0, 14, "{\"errorCode\":0") != 0) {
                    ++failures;
                } else {
                    ++answered;
                }
            }
        });
    }
    for (auto& t : threads) t.join();
    QCOMPARE(failures.load(), 0);
    QCOMPARE(answered.load(), kConnections * kPerConnection);
}

QTEST_GUILESS_MAIN(BackendApiTest)
#include "tst_backendapi.moc"
