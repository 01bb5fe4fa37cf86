// The back end over real HTTP on loopback: a server on a port picked at run time, seeded
// with the demo company, and requests the way the client sends them.
#include "backendrig.h"

#include <QDirIterator>
#include <QImage>
#include <QSettings>
#include <QtTest>

#include <atomic>
#include <thread>

namespace {

const char kOrg[] = "/work/mobileUserInfo.htm?m=findAllUserAndDept";

QString signOf(const httplib::Result& r) { return results(r).value("md5Sign").toString(); }

}  // namespace

class BackendApiTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase() { rig_.stop(); }
    void loginReadsTheFormInOrder();
    void loginFailures_data();
    void loginFailures();
    void repeatedWrongPasswordsAreSlowedDown();
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
    httplib::Result login(const QString& user) const { return rig_.logIn(user); }
    static QString sessionCookie(const httplib::Result& r) {
        return QString::fromStdString(r->get_header_value("Set-Cookie")).section(';', 0, 0);
    }
    static httplib::Headers cookie(const QString& c) { return {{"Cookie", c.toStdString()}}; }
    // As the second demo account, whose session every data address needs.
    httplib::Result get(const std::string& path) const {
        return rig_.client().Get(path, cookie(memberSession_));
    }
    int codeOf(const std::string& path) const { return code(get(path)); }
    httplib::Result upload(const httplib::MultipartFormDataItems& items) const {
        return rig_.client().Post("/work/mobileTopic.htm?m=uploadFromPC", cookie(memberSession_),
                                  items);
    }

    BackendRig rig_;
    QString owner_;   // first demo account: owns the even projects
    QString member_;  // second demo account: member of every project
    QString memberSession_;
};

void BackendApiTest::initTestCase() {
    QVERIFY2(rig_.seed(), qPrintable(rig_.error));
    const QStringList accounts = rig_.accounts(2);
    QCOMPARE(accounts.size(), 2);
    owner_ = accounts[0];
    member_ = accounts[1];
    BackendServer::Options options;
    options.filesDir = rig_.path("attachments");
    options.uploadLimit = 64 * 1024;
    options.firstLoginPauseMs = 400;
    QVERIFY(rig_.serve(options));
    memberSession_ = sessionCookie(login(member_));
}

void BackendApiTest::loginReadsTheFormInOrder() {
    const auto r = login(owner_);
    QVERIFY(r);
    QCOMPARE(r->status, 200);
    const QJsonObject env = envelope(r);
    for (const char* key :
         {"errorCode", "errorMsg", "results", "redirectUrl", "redirectToBeta", "client"}) {
        QVERIFY2(env.contains(QLatin1String(key)), key);
    }
    QCOMPARE(env.value("errorCode").toInt(-1), 0);
    QCOMPARE(env.value("client").toString(), QStringLiteral("3"));
    const QJsonObject user = env.value("results").toObject();
    for (const char* key :
         {"id",         "nick",           "username",    "userIcon",  "workNick", "deptName",
          "loginType",  "companyId",      "companyName", "crmSys",    "email",    "openId",
          "iosVersion", "androidVersion", "md5Sign",     "imAccount", "imSecret", "imHost",
          "imPort",     "imDomain",       "imHosts"}) {
        QVERIFY2(user[QLatin1String(key)].isString(), key);
    }
    QCOMPARE(user.value("username").toString(), owner_);
    QCOMPARE(user.value("id").toString(), QStringLiteral("10001"));
    QCOMPARE(signOf(r).size(), 32);
    QCOMPARE(user.value("imHosts").toString(),
             user.value("imHost").toString() + ':' + user.value("imPort").toString());
    QVERIFY(!user.value("imSecret").toString().isEmpty());
    QVERIFY(user.value("imSecret").toString() != QLatin1String(DemoCompany::kPassword));
    QVERIFY(sessionCookie(r).startsWith(QLatin1String("QXSESSION=")));
    // The authorisation outlives the client's 30-minute renewal period.
    QVERIFY(user.value("authSeconds").toString().toInt() >= 1800);

    // Signing in again renews the session and keeps the same token while it lives; the
    // session hands the token out again.
    QCOMPARE(signOf(login(owner_)), signOf(r));
    const auto token = rig_.client().Get("/rest/auth/client.htm", cookie(sessionCookie(r)));
    QCOMPARE(code(token), 0);
    QCOMPARE(signOf(token), signOf(r));
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
    const auto r = rig_.client().Post(kLogIn, body.toStdString(), kForm);
    QVERIFY(r);
    QCOMPARE(code(r), expected);
    QVERIFY(!envelope(r).value("errorMsg").toString().isEmpty());
    QVERIFY(r->get_header_value("Set-Cookie").empty());
}

void BackendApiTest::repeatedWrongPasswordsAreSlowedDown() {
    // A colleague of its own, so other tests' log-ins are not held up.
    const QString victim = rig_.accounts(10).last();
    for (int i = 0; i < 5; ++i) QCOMPARE(code(rig_.logIn(victim, QStringLiteral("wrong"))), 1002);
    // Now even the right password waits out the pause.
    QCOMPARE(code(login(victim)), 1005);
    QCOMPARE(code(login(member_)), 0);
    QTest::qWait(500);
    QCOMPARE(code(login(victim)), 0);
}

void BackendApiTest::organisationMatchesTheDatabase() {
    const auto r = login(owner_);
    const std::string address = std::string(kOrg) + "&userId=10001&companyId=1";
    const auto org = rig_.client().Get(address, cookie(sessionCookie(r)));
    QCOMPARE(code(org), 0);
    // The client library asks for gzip (as the client's network stack does); the reply
    // assembled from cached compressed pieces must equal the plain one.
    httplib::Headers plain = cookie(sessionCookie(r));
    plain.emplace("Accept-Encoding", "identity");
    const auto uncompressed = rig_.client().Get(address, plain);
    QVERIFY(uncompressed && uncompressed->get_header_value("Content-Encoding").empty());
    QCOMPARE(QByteArray::fromStdString(org->body), QByteArray::fromStdString(uncompressed->body));
    const QJsonArray depts = results(org).value("allDeptList").toArray();
    const QJsonArray users = results(org).value("allUserList").toArray();

    QSqlQuery q(rig_.db->connection());
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
        const QStringList row = dbDepts.value(d.value("id").toString());
        QCOMPARE((QStringList{d.value("orgName").toString(), d.value("parentId").toString(),
                              d.value("fullNamePinyin").toString(),
                              d.value("shortNamePinyin").toString()}),
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
        const QString id = u.value("id").toString();
        QStringList got;
        for (const char* k : keys) got << u[QLatin1String(k)].toString();
        QCOMPARE(got, dbUsers.value(id));
        QVERIFY(u.value("userIcon").toString().endsWith(QStringLiteral("/avatar/%1.png").arg(id)));
        const QString s = u.value("md5Sign").toString();
        if (!s.isEmpty()) {
            ++signs;
            QCOMPARE(id, QStringLiteral("10001"));
            QCOMPARE(s, signOf(r));
        }
        // The short pinyin of a Chinese name is its initials: one letter a character.
        QCOMPARE(u.value("shortNamePinyin").toString().size(),
                 u.value("realName").toString().size());
    }
    QCOMPARE(signs, 1);

    // Another colleague asking for the same organisation gets nobody's token.
    const auto other = get(address);
    QCOMPARE(code(other), 0);
    QVERIFY(!other->body.empty() && other->body.find(signOf(r).toStdString()) == std::string::npos);
}

void BackendApiTest::organisationFailures() {
    const std::string org = kOrg;
    QCOMPARE(codeOf(org + "&userId=10001"), 1001);
    QCOMPARE(codeOf(org + "&userId=abc&companyId=1"), 1001);
    QCOMPARE(codeOf(org + "&userId=-1&companyId=1"), 1001);
    QCOMPARE(codeOf(org + "&userId=99999999&companyId=1"), 1006);
    QCOMPARE(codeOf(org + "&userId=10001&companyId=2"), 1004);
    QCOMPARE(codeOf("/work/mobileUserInfo.htm?m=nothing"), 1001);
    // An address longer than the server reads is refused with an envelope too.
    QCOMPARE(codeOf(org + "&userId=" + std::string(10000, '1') + "&companyId=1"), 1001);
    QCOMPARE(codeOf("/work/nothing.htm"), 1010);
}

void BackendApiTest::colleaguesAndProjects() {
    const auto some =
        get("/work/mobileUserInfo.htm?m=findSomeOne&manyUserIds=10002,10001,10002,999");
    QCOMPARE(code(some), 0);
    const QJsonArray found = envelope(some).value("results").toArray();
    QCOMPARE(found.size(), 2);
    QCOMPARE(found[0].toObject().value("id").toString(), QStringLiteral("10001"));
    QCOMPARE(codeOf("/work/mobileUserInfo.htm?m=findSomeOne&manyUserIds="), 1001);
    QCOMPARE(codeOf("/work/mobileUserInfo.htm?m=findSomeOne&manyUserIds=1,x"), 1001);

    const auto list = get("/work/project.htm?m=myProjectList&userId=10002");
    QCOMPARE(code(list), 0);
    const QJsonArray projects = results(list).value("projectList").toArray();
    QCOMPARE(projects.size(), 12);
    // The project's tribe carries the project's id.
    QCOMPARE(projects[0].toObject().value("openimId"), projects[0].toObject().value("id"));
    // Someone else's list is not handed out.
    QCOMPARE(codeOf("/work/project.htm?m=myProjectList&userId=99999999"), 1004);

    const auto byId = get("/work/mobileProject.htm?m=queryProjectById&projectId=50002");
    QCOMPARE(code(byId), 0);
    QCOMPARE(results(byId),
             results(get("/work/mobileProject.htm?m=projectInfoByOpenimId&openimId=50002")));
    QCOMPARE(codeOf("/work/mobileProject.htm?m=queryProjectById&projectId=1"), 1006);
    QCOMPARE(codeOf("/work/mobileProject.htm?m=projectInfoByOpenimId"), 1001);

    const auto members = get("/work/gen.htm?m=user&projectId=50002");
    QCOMPARE(code(members), 0);
    QCOMPARE(QString::number(results(members).value("userList").toArray().size()),
             results(byId).value("memberCount").toString());
    QCOMPARE(codeOf("/work/gen.htm?m=user&projectId=7"), 1006);
}

// Refusals of a member removing someone else, of the owner's sign from another caller and of
// callers without a session are tst_backendauthz's.
void BackendApiTest::deleteNeedsTheSignExitNeedsNone() {
    const auto r = login(owner_);
    const QString sign = signOf(r);
    const httplib::Headers owner = cookie(sessionCookie(r));
    const std::string project = "/work/mobileProject.htm?m=queryProjectById&projectId=50003";
    // The owner sees the sign in its project record, a member does not.
    QCOMPARE(results(rig_.client().Get(project, owner)).value("sign").toString(), sign);
    QCOMPARE(results(get(project)).value("sign").toString(), QString());

    // The addresses exactly as the client builds them, odd "?&" included.
    const std::string del = "/work/editProj.htm?&projectId=50003&sign=";
    QCOMPARE(codeOf(del + "&m=delProj"), 1001);
    QCOMPARE(codeOf(del + "00000000000000000000000000000000&m=delProj"), 1004);
    // Another member's own token is not the owner's sign.
    QCOMPARE(codeOf(del + signOf(login(member_)).toStdString() + "&m=delProj"), 1004);
    QCOMPARE(codeOf(project), 0);
    QCOMPARE(code(rig_.client().Get(del + sign.toStdString() + "&m=delProj", owner)), 0);
    QCOMPARE(codeOf(project), 1006);
    QCOMPARE(code(rig_.client().Get(del + sign.toStdString() + "&m=delProj", owner)), 1006);

    // Leaving needs no sign.
    const std::string exit = "/work/editProj.htm?&kickUserId=10002&projectId=50005&m=exitPro";
    QCOMPARE(codeOf(exit), 0);
    QCOMPARE(codeOf(exit), 1006);  // no longer a member
    QVERIFY(get("/work/gen.htm?m=user&projectId=50005")->body.find("\"10002\"") ==
            std::string::npos);
    // The owner cannot be removed from its own project; it dissolves it instead.
    QCOMPARE(codeOf("/work/editProj.htm?&kickUserId=10001&projectId=50005&m=exitPro"), 1004);
    QCOMPARE(codeOf("/work/editProj.htm?&projectId=50007&m=other"), 1001);
}

void BackendApiTest::taskPagesAndReadFlags() {
    const std::string flags =
        "/work/notifies.htm?m=getTaskReadFlag&userId=10002&taskIds=70001,70002,99";
    const auto flag = [&](int i) {
        return envelope(get(flags))
            .value("results")
            .toArray()[i]
            .toObject()
            .value("readFlag")
            .toString();
    };
    const auto first = get(flags);
    QCOMPARE(code(first), 0);
    QCOMPARE(envelope(first).value("results").toArray().size(), 2);  // 99 is left out
    QCOMPARE(flag(0), QStringLiteral("0"));

    const auto page = get("/work/task.htm?m=view&taskId=70001&userId=10002");
    QVERIFY(page && page->status == 200);
    QCOMPARE(QString::fromStdString(page->get_header_value("Content-Type")).section(';', 0, 0),
             QStringLiteral("text/html"));
    QVERIFY(QString::fromStdString(page->body).contains(QStringLiteral("执行人：")));
    QCOMPARE(flag(0), QStringLiteral("1"));
    QCOMPARE(flag(1), QStringLiteral("0"));

    // Marking read is a change: asked by GET it is refused and nothing changes.
    const std::string mark = "/work/notifies.htm?m=setTaskReadFlag&userId=10002&taskId=70002";
    QCOMPARE(codeOf(mark), 1001);
    QCOMPARE(flag(1), QStringLiteral("0"));
    QCOMPARE(code(rig_.client().Post(mark, cookie(memberSession_), "", kForm)), 0);
    QCOMPARE(codeOf("/work/notifies.htm?m=setTaskReadFlag&userId=10002&taskId=5"), 1006);
    QCOMPARE(codeOf("/work/notifies.htm?m=getTaskReadFlag&userId=10002"), 1001);
    QCOMPARE(codeOf("/work/task.htm?m=view&taskId=1"), 1006);
    QCOMPARE(codeOf("/work/task.htm?m=view"), 1001);
}

// Uploads without a session are tst_backendauthz's; bodies past the cap on the whole upload,
// refused before they are read, tst_backendbounds'.
void BackendApiTest::uploadAndDownload() {
    const std::string content =
        std::string("PK\x03\x04 quarterly report\n", 22) + std::string(1000, 'x');
    const auto r = upload({{"file", content, "../../..\\escape/季度报告.zip", "application/zip"},
                           {"userId", "10002", "", ""}});
    QCOMPARE(code(r), 0);
    QCOMPARE(results(r).value("fileName").toString(), QStringLiteral("季度报告.zip"));
    QCOMPARE(results(r).value("fileSize").toString(), QString::number(content.size()));
    const std::string id = results(r).value("id").toString().toStdString();

    const auto d = get("/work/attachment/" + id);
    QVERIFY(d && d->status == 200);
    QCOMPARE(d->body, content);
    const QString disposition = QString::fromStdString(d->get_header_value("Content-Disposition"));
    // The client library hands the header back already decoded.
    QVERIFY2(disposition.contains(QStringLiteral("UTF-8''季度报告.zip")), qPrintable(disposition));
    QCOMPARE(get("/work/attachment?id=" + id)->body, content);

    // Nothing but the stored file was written, and only inside the attachments folder.
    QDirIterator it(rig_.dir.path(), QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString f = it.next();
        QVERIFY2(
            f.contains(QLatin1String("/attachments/")) || f.contains(QLatin1String("directory.db")),
            qPrintable(f));
    }

    QCOMPARE(code(upload({{"file", "x", "..", ""}, {"userId", "10002", "", ""}})), 1008);
    QCOMPARE(code(upload({{"file", std::string(100 * 1024, 'a'), "big.bin", ""},
                          {"userId", "10002", "", ""}})),
             1007);
    QCOMPARE(code(rig_.client().Post("/work/mobileTopic.htm?m=uploadFromPC", cookie(memberSession_),
                                     "userId=10002", kForm)),
             1001);

    for (const char* bad :
         {"/work/attachment/..%2F..%2Fdirectory.db", "/work/attachment/../directory.db",
          "/work/attachment?id=../../etc/passwd", "/work/attachment/1"}) {
        const auto b = get(bad);
        QVERIFY2(b, bad);
        QVERIFY2(code(b) == 1001 || code(b) == 1006 || code(b) == 1010, bad);
    }
}

void BackendApiTest::sqlMetacharactersInEveryField() {
    const auto userCount = [&] {
        return rig_.number(QStringLiteral("SELECT COUNT(*) FROM users"));
    };
    const int before = userCount();
    const QString evil = QStringLiteral("1'; DROP TABLE users; --");
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
        const auto r =
            get(QString::fromLatin1(a).arg(QString::fromStdString(enc(evil))).toStdString());
        QVERIFY2(r, a);
        QVERIFY2(code(r) > 0, a);
        QVERIFY2(!envelope(r).value("errorMsg").toString().isEmpty(), a);
    }
    QCOMPARE(code(rig_.logIn(evil, evil)), 1002);
    QCOMPARE(code(rig_.logIn(evil, evil, "3%27")), 1001);
    QCOMPARE(userCount(), before);
}

void BackendApiTest::pagesAndUpdateDescription() {
    for (const char* page :
         {"/", "/work/checkIn.htm", "/work/UserSet.htm", "/work/findPassword.htm",
          "/work/invite.htm", "/work/project.htm?m=tasks&projectId=50001",
          "/work/goals.htm?projectId=50001", "/work/task.htm?m=create&projectId=50001"}) {
        const auto r = get(page);
        QVERIFY2(r && r->status == 200, page);
        QVERIFY2(r->body.find("<html") != std::string::npos, page);
    }
    QVERIFY(QString::fromStdString(get("/work/goals.htm?projectId=50001")->body)
                .contains(QStringLiteral("目标达成率：")));
    QCOMPARE(codeOf("/work/goals.htm?projectId=1"), 1006);

    const auto ini = get("/update/QX_update.ini");
    QVERIFY(ini && ini->status == 200);
    QFile file(rig_.path("QX_update.ini"));
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

    const auto avatar = get("/avatar/10001.png@1e_150w_150h_1c_0i_1o_80Q_1x_100-1ci.png");
    QVERIFY(avatar && avatar->status == 200);
    QImage image;
    QVERIFY(image.loadFromData(reinterpret_cast<const uchar*>(avatar->body.data()),
                               int(avatar->body.size()), "PNG"));
    QCOMPARE(image.size(), QSize(150, 150));
    QCOMPARE(get("/avatar/5.png")->status, 404);
}

void BackendApiTest::everyUrlTableAddressAnswers() {
    const QJsonObject table =
        QJsonDocument::fromJson(BackendServer::urlTable(rig_.server->publicUrl())).object();
    QCOMPARE(table.size(), 15);
    for (auto it = table.begin(); it != table.end(); ++it) {
        const QUrl url(it.value().toString());
        QVERIFY2(url.isValid() && url.port() == rig_.server->port(), qPrintable(it.key()));
        // Bare, without the parameters each one wants: a page or an envelope, never a 404.
        QString path = url.toString(QUrl::RemoveScheme | QUrl::RemoveAuthority);
        if (path.isEmpty()) path = QStringLiteral("/");
        const auto r = get(path.toStdString());
        QVERIFY2(r && r->status == 200, qPrintable(it.key()));
        const bool page = r->body.find("<html") != std::string::npos;
        QVERIFY2(page || envelope(r).contains(QStringLiteral("errorCode")), qPrintable(it.key()));
    }
}

void BackendApiTest::manyConcurrentConnections() {
    constexpr int kConnections = 50;
    constexpr int kPerConnection = 200;
    const char* const addresses[] = {
        "/work/mobileUserInfo.htm?m=findSomeOne&manyUserIds=10001,10002",
        "/rest/auth/client.htm",
        "/work/mobileProject.htm?m=queryProjectById&projectId=50002",
        "/work/mobileUserInfo.htm?m=findAllUserAndDept&userId=10002&companyId=1",
    };
    const httplib::Headers session = cookie(sessionCookie(login(member_)));
    std::atomic<int> failures{0};
    std::atomic<int> answered{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kConnections; ++t) {
        threads.emplace_back([&, t] {
            httplib::Client c("127.0.0.1", rig_.server->port());
            c.set_keep_alive(true);
            c.set_read_timeout(60, 0);
            for (int i = 0; i < kPerConnection; ++i) {
                const auto res = c.Get(addresses[(t + i) % 4], session);
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
