// Hostile callers against the back end over real HTTP: nobody signed in, a forged session,
// a colleague of another company on the same back end, a member acting as owner.
#include "backendrig.h"

#include <QtTest>

namespace {

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

const char kUpload[] = "/work/mobileTopic.htm?m=uploadFromPC";

}  // namespace

class BackendAuthzTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase() { rig_.stop(); }
    void nobodySignedInGetsNoData();
    void publicPagesStayOpen();
    void logInOnlyByPost();
    void anotherCompanySeesNothingAndChangesNothing();
    void uploadsAreTheCallersAndStayInItsCompany();
    void membersRemoveOnlyThemselves();
    void changesComeByPostFromOurOwnPages();

private:
    int get(const std::string& path, const httplib::Headers& headers = {}) const {
        return code(rig_.client().Get(path, headers));
    }
    bool isMember(qint64 project, qint64 user) const {
        return rig_.number(QStringLiteral("SELECT COUNT(*) FROM project_member WHERE"
                                          " project_id = %1 AND user_id = %2")
                               .arg(project)
                               .arg(user)) == 1;
    }
    // A colleague of the demo company who is not in `project`.
    qint64 outsiderOf(qint64 project) const {
        return qMax(
            0, rig_.number(QStringLiteral("SELECT id FROM users WHERE company_id = 1 AND id NOT IN"
                                          " (SELECT user_id FROM project_member WHERE project_id ="
                                          " %1) ORDER BY id LIMIT 1")
                               .arg(project)));
    }
    int projectCount() const { return rig_.number(QStringLiteral("SELECT COUNT(*) FROM project")); }
    std::string uploaded(const QString& session, const std::string& content) const {
        return results(rig_.client().Post(
                           kUpload, as(session),
                           httplib::MultipartFormDataItems{{"file", content, "a.txt", ""},
                                                           {"userId", "10002", "", ""}}))
            .value("id")
            .toString()
            .toStdString();
    }

    BackendRig rig_;
    QString owner_;   // 10001, owns 50003
    QString member_;  // 10002, member of every project
    QString rival_;   // the one colleague of a second company
};

void BackendAuthzTest::initTestCase() {
    QVERIFY2(rig_.seed(), qPrintable(rig_.error));
    QVERIFY(rig_.addRival());
    QVERIFY(rig_.serve());
    const QStringList accounts = rig_.accounts(2);
    owner_ = rig_.signIn(accounts.value(0));
    member_ = rig_.signIn(accounts.value(1));
    rival_ = rig_.signIn(QStringLiteral("rival"), QString::fromLatin1(kRivalPassword));
    QVERIFY(!owner_.isEmpty() && !member_.isEmpty() && !rival_.isEmpty());
}

void BackendAuthzTest::nobodySignedInGetsNoData() {
    const httplib::Headers forged = as(QStringLiteral("0123456789abcdef0123456789abcdef"));
    for (const char* address : kDataAddresses) {
        QVERIFY2(get(address) == 1003, address);
        QVERIFY2(get(address, forged) == 1003, address);
        QVERIFY2(code(rig_.client().Post(address, "", kForm)) == 1003, address);
        // The session is taken from the session itself, never from a user id.
        QVERIFY2(get(std::string(address) + (strchr(address, '?') ? "&" : "?") +
                     "sessionId=forged") == 1003,
                 address);
    }
    for (const char* download : {"/work/attachment/1", "/work/attachment?id=1"})
        QCOMPARE(get(download), 1003);
    QCOMPARE(code(rig_.client().Post(kUpload,
                                     httplib::MultipartFormDataItems{{"file", "x", "a.txt", ""},
                                                                     {"userId", "10002", "", ""}})),
             1003);
    // Nothing changed on the way.
    QVERIFY(isMember(50002, 10002));
    // The same addresses answer a signed-in colleague (the refusals above are about the
    // session, not the parameters); a parameter also carries the session.
    QCOMPARE(get("/work/gen.htm?m=user&projectId=50002&sessionId=" + member_.toStdString()), 0);
    QCOMPARE(get("/work/project.htm?m=myProjectList", as(member_)), 0);
}

void BackendAuthzTest::publicPagesStayOpen() {
    for (const char* page : {"/", "/work/checkIn.htm", "/work/UserSet.htm",
                             "/work/findPassword.htm", "/work/invite.htm"}) {
        const auto r = rig_.client().Get(page);
        QVERIFY2(r && r->status == 200 && r->body.find("<html") != std::string::npos, page);
    }
    for (const char* file : {"/update/QX_update.ini", "/avatar/10001.png"}) {
        const auto r = rig_.client().Get(file);
        QVERIFY2(r && r->status == 200, file);
    }
}

void BackendAuthzTest::logInOnlyByPost() {
    const QString user = rig_.accounts(1).value(0);
    const auto r = rig_.client().Get(std::string(kLogIn) + "&" +
                                     logInForm(user, QString::fromLatin1(DemoCompany::kPassword)));
    QCOMPARE(code(r), 1001);
    QVERIFY(r->get_header_value("Set-Cookie").empty());
    QVERIFY(!rig_.signIn(user).isEmpty());
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
        const int got = get(r.address, rival);
        QVERIFY2(got == r.code, qPrintable(QStringLiteral("%1: %2").arg(r.address).arg(got)));
    }
    // Lists leave the other company out, as if its ids did not exist.
    auto list = [&](const char* address) {
        const auto r = rig_.client().Get(address, rival);
        return code(r) == 0 ? envelope(r).value("results").toArray() : QJsonArray{QJsonValue()};
    };
    QCOMPARE(list("/work/mobileUserInfo.htm?m=findSomeOne&manyUserIds=10001,10002,90001").size(),
             1);
    QVERIFY(list("/work/notifies.htm?m=getTaskReadFlag&taskIds=70001,70002").isEmpty());
    // Its own organisation holds only itself.
    const auto org = rig_.client().Get(
        "/work/mobileUserInfo.htm?m=findAllUserAndDept&userId=90001&companyId=2", rival);
    QCOMPARE(code(org), 0);
    QCOMPARE(results(org).value("allUserList").toArray().size(), 1);
    // Nothing of the demo company changed, nothing was marked read by the outsider.
    QVERIFY(isMember(50002, 10002));
    QCOMPARE(rig_.number("SELECT COUNT(*) FROM task_read WHERE user_id = 90001"), 0);
    QCOMPARE(rig_.number("SELECT COUNT(*) FROM project WHERE company_id = 2"), 0);
}

void BackendAuthzTest::uploadsAreTheCallersAndStayInItsCompany() {
    // The outsider claims to be a demo colleague (userId 10002); the file is still its own.
    const std::string id = uploaded(rival_, "secret");
    QVERIFY(!id.empty());
    QCOMPARE(rig_.number(QStringLiteral("SELECT owner_id FROM attachment WHERE id = %1")
                             .arg(QString::fromStdString(id))),
             90001);
    QCOMPARE(rig_.client().Get("/work/attachment/" + id, as(rival_))->body, std::string("secret"));
    QCOMPARE(get("/work/attachment/" + id, as(member_)), 1006);
    QCOMPARE(get("/work/attachment?id=" + id, as(member_)), 1006);

    // A demo colleague's file is for its colleagues only.
    const std::string mine = uploaded(member_, "plan");
    QCOMPARE(rig_.client().Get("/work/attachment/" + mine, as(owner_))->body, std::string("plan"));
    QCOMPARE(get("/work/attachment/" + mine, as(rival_)), 1006);
}

void BackendAuthzTest::membersRemoveOnlyThemselves() {
    // 50003 is owned by 10001; 10002 is a member; find a third member.
    QString third;
    for (const QJsonValue& v :
         results(rig_.client().Get("/work/gen.htm?m=user&projectId=50003", as(member_)))
             .value("userList")
             .toArray()) {
        const QString id = v.toObject().value("id").toString();
        if (id != QLatin1String("10001") && id != QLatin1String("10002")) third = id;
    }
    QVERIFY(!third.isEmpty());
    const std::string exit = "/work/editProj.htm?&projectId=50003&m=exitPro&kickUserId=";
    const std::string kick = exit + third.toStdString();
    QCOMPARE(get(kick), 1003);
    QCOMPARE(get(kick, as(member_)), 1004);
    QVERIFY(isMember(50003, third.toLongLong()));
    // Dissolving needs the owner itself, not only its sign.
    const QString sign =
        results(rig_.client().Get("/rest/auth/client.htm", as(owner_))).value("md5Sign").toString();
    const std::string del = "/work/editProj.htm?&projectId=50003&m=delProj&sign=" + enc(sign);
    QCOMPARE(get(del), 1003);
    QCOMPARE(get(del, as(member_)), 1004);
    QVERIFY(isMember(50003, 10002));
    // The owner removes anyone but itself; a member removes itself.
    QCOMPARE(get(kick, as(owner_)), 0);
    QVERIFY(!isMember(50003, third.toLongLong()));
    QCOMPARE(get(exit + "10001", as(owner_)), 1004);
    QCOMPARE(get(exit + "10002", as(member_)), 0);
    QVERIFY(!isMember(50003, 10002));
}

void BackendAuthzTest::changesComeByPostFromOurOwnPages() {
    // The session cookie is kept from other sites' requests by the browser itself.
    const auto login = rig_.logIn(rig_.accounts(1).value(0));
    QVERIFY(login);
    const std::string cookie = login->get_header_value("Set-Cookie");
    QVERIFY2(cookie.find("HttpOnly") != std::string::npos &&
                 cookie.find("SameSite=Strict") != std::string::npos,
             cookie.c_str());

    // A link or an image cannot make a project or add someone to one.
    const qint64 outsider = outsiderOf(50003);
    QVERIFY(outsider != 0);
    const std::string add = "m=addMember&projectId=50003&userIds=" + std::to_string(outsider);
    const int projects = projectCount();
    QCOMPARE(get("/work/editProj.htm?m=createProj&title=t&memberIds=10002", as(owner_)), 1001);
    QCOMPARE(get("/work/editProj.htm?" + add, as(owner_)), 1001);
    QCOMPARE(projectCount(), projects);
    QVERIFY(!isMember(50003, outsider));

    // Another site's page may post, and may lead a sidebar to the GET the client uses to leave
    // a project: both are refused from what the browser says about the page.
    httplib::Headers foreign = as(owner_);
    foreign.emplace("Origin", "https://evil.example");
    auto r = rig_.client().Post("/work/editProj.htm", foreign, add, kForm);
    QVERIFY(r);
    QCOMPARE(r->status, 403);
    QCOMPARE(code(r), 1004);
    QVERIFY(!isMember(50003, outsider));
    httplib::Headers referred = as(member_);
    referred.emplace("Referer", "http://127.0.0.1:1/trap.html");
    r = rig_.client().Get("/work/editProj.htm?&kickUserId=10002&projectId=50002&m=exitPro",
                          referred);
    QVERIFY(r);
    QCOMPARE(r->status, 403);
    QVERIFY(isMember(50002, 10002));
    httplib::Headers opaque = as(owner_);
    opaque.emplace("Origin", "null");
    QCOMPARE(rig_.client().Post("/work/editProj.htm", opaque, add, kForm)->status, 403);
    QVERIFY(!isMember(50003, outsider));

    // Our own pages (same origin) and the desktop client (no origin) go on.
    httplib::Headers own = as(owner_);
    own.emplace("Origin", "http://127.0.0.1:" + std::to_string(rig_.server->port()));
    QCOMPARE(code(rig_.client().Post("/work/editProj.htm", own, add, kForm)), 0);
    QVERIFY(isMember(50003, outsider));
    QCOMPARE(
        get("/work/editProj.htm?&projectId=50003&m=exitPro&kickUserId=" + std::to_string(outsider),
            as(owner_)),
        0);
    QVERIFY(!isMember(50003, outsider));
}

QTEST_GUILESS_MAIN(BackendAuthzTest)
#include "tst_backendauthz.moc"
