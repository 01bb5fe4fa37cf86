// The same back end on PostgreSQL: a private server in a temporary folder, the demo company
// seeded into it, and the main conversations over HTTP.
#include "backendrig.h"
#include "support/claimedport.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <atomic>
#include <thread>
#include <vector>

#include <unistd.h>

namespace {

QJsonArray projectList(const httplib::Result& r) {
    return results(r).value("projectList").toArray();
}

}  // namespace

class BackendPostgresTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void demoCompanyOverHttp();
    void survivesTheDatabaseRestarting();

private:
    bool run(const QStringList& command, QString* output = nullptr);

    QTemporaryDir dir_{QDir::tempPath() + QStringLiteral("/quelix-pg-XXXXXX")};
    QString bin_;
    bool pgCtl(const QString& verb, const QString& extra = QString());
    bool started_ = false;
    int port_ = 0;
};

bool BackendPostgresTest::run(const QStringList& command, QString* output) {
    // PostgreSQL refuses to run as root; on CI the tests are root, so it runs as "postgres".
    QStringList full = command;
    if (::geteuid() == 0)
        full = QStringList{QStringLiteral("runuser"), QStringLiteral("-u"),
                           QStringLiteral("postgres"), QStringLiteral("--")} +
               command;
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start(full.first(), full.mid(1));
    const bool ok =
        p.waitForFinished(60000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
    if (output) *output = QString::fromLocal8Bit(p.readAll());
    return ok;
}

void BackendPostgresTest::initTestCase() {
    const QStringList versions = QDir(QStringLiteral("/usr/lib/postgresql"))
                                     .entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    if (versions.isEmpty()) QSKIP("PostgreSQL is not installed");
    bin_ = QStringLiteral("/usr/lib/postgresql/%1/bin/").arg(versions.last());
    if (!QSqlDatabase::isDriverAvailable(QStringLiteral("QPSQL")))
        QSKIP("Qt's PostgreSQL driver is missing");
    QVERIFY(dir_.isValid());
    if (::geteuid() == 0)
        QVERIFY(QProcess::execute(QStringLiteral("chown"),
                                  {QStringLiteral("postgres"), dir_.path()}) == 0);
    port_ = claimedPort();
    QVERIFY2(port_ > 0, "no free port for PostgreSQL");
    QString out;
    const QString data = dir_.filePath(QStringLiteral("data"));
    QVERIFY2(run({bin_ + QStringLiteral("initdb"), QStringLiteral("-D"), data, QStringLiteral("-A"),
                  QStringLiteral("trust"), QStringLiteral("-U"), QStringLiteral("quelix"),
                  QStringLiteral("-E"), QStringLiteral("UTF8"), QStringLiteral("--no-sync")},
                 &out),
             qPrintable(out));
    QVERIFY2(pgCtl(QStringLiteral("start")), "PostgreSQL did not start");
    started_ = true;
}

bool BackendPostgresTest::pgCtl(const QString& verb, const QString& extra) {
    QString out;
    const bool ok = run({bin_ + QStringLiteral("pg_ctl"), QStringLiteral("-D"),
                         dir_.filePath(QStringLiteral("data")), QStringLiteral("-w"),
                         QStringLiteral("-m"), QStringLiteral("fast"), QStringLiteral("-l"),
                         dir_.filePath(QStringLiteral("server.log")), QStringLiteral("-o"),
                         QStringLiteral("-p %1 -k %2 -c listen_addresses=127.0.0.1 -c fsync=off %3")
                             .arg(port_)
                             .arg(dir_.path(), extra),
                         verb},
                        &out);
    if (!ok) qWarning("%s", qPrintable(out));
    return ok;
}

void BackendPostgresTest::cleanupTestCase() {
    if (started_) {
        run({bin_ + QStringLiteral("pg_ctl"), QStringLiteral("-D"),
             dir_.filePath(QStringLiteral("data")), QStringLiteral("-m"),
             QStringLiteral("immediate"), QStringLiteral("stop")});
    }
}

void BackendPostgresTest::demoCompanyOverHttp() {
    Database db(QStringLiteral("postgresql://quelix@127.0.0.1:%1/postgres").arg(port_));
    QVERIFY(db.isValid() && !db.isSqlite());
    QVERIFY2(db.createSchema(), qPrintable(db.lastError()));
    QVERIFY2(db.createSchema(), "creating the tables twice is harmless");
    QString error;
    QVERIFY2(DemoCompany::seedDemo(&db, 1, &error), qPrintable(error));

    QTemporaryDir files;
    BackendServer::Options options;
    options.filesDir = files.path();
    options.threads = 8;
    BackendServer server(&db, options);
    QVERIFY(server.start(QStringLiteral("127.0.0.1"), 0));
    httplib::Client c("127.0.0.1", server.port());

    const QString password = QString::fromLatin1(DemoCompany::kPassword);
    const QStringList accounts = DemoCompany::accounts(&db, 2);
    auto r = c.Post(kLogIn, logInForm(accounts.value(0), password), kForm);
    QCOMPARE(code(r), 0);
    const QJsonObject user = results(r);
    QCOMPARE(user[QStringLiteral("companyName")].toString(), QStringLiteral("青禾科技有限公司"));
    const std::string sign = user[QStringLiteral("md5Sign")].toString().toStdString();
    QCOMPARE(code(c.Post(kLogIn, logInForm(accounts.value(0), QStringLiteral("'--")), kForm)),
             1002);

    // Every later call is made as the signed-in owner.
    c.set_default_headers(as(user[QStringLiteral("sessionId")].toString()));
    const QJsonObject org =
        results(c.Get("/work/mobileUserInfo.htm?m=findAllUserAndDept&userId=10001&companyId=1"));
    const QJsonArray users = org[QStringLiteral("allUserList")].toArray();
    QCOMPARE(users.size(), DemoCompany::kDemoColleagues);
    QVERIFY(org[QStringLiteral("allDeptList")].toArray().size() > 15);
    QCOMPARE(users[0].toObject()[QStringLiteral("realName")].toString(),
             user[QStringLiteral("nick")].toString());

    // The second account's own list, flags and leaving, in its own session.
    const httplib::Headers asMember =
        as(results(c.Post(kLogIn, logInForm(accounts.value(1), password), kForm))
               .value("sessionId")
               .toString());
    QCOMPARE(projectList(c.Get("/work/project.htm?m=myProjectList&userId=10002", asMember)).size(),
             12);
    QCOMPARE(code(c.Get("/work/editProj.htm?&projectId=50001&sign=bad&m=delProj")), 1004);
    QCOMPARE(code(c.Get("/work/editProj.htm?&projectId=50001&sign=" + sign + "&m=delProj")), 0);
    QCOMPARE(
        code(c.Get("/work/editProj.htm?&kickUserId=10002&projectId=50003&m=exitPro", asMember)), 0);
    QCOMPARE(code(c.Post("/work/notifies.htm?m=setTaskReadFlag&userId=10002&taskId=70010", asMember,
                         "", kForm)),
             0);
    const QString id = results(c.Post("/work/mobileTopic.htm?m=uploadFromPC",
                                      httplib::MultipartFormDataItems{{"file", "abc", "a.txt", ""},
                                                                      {"userId", "10002", "", ""}}))
                           .value("id")
                           .toString();
    QVERIFY(!id.isEmpty());
    QCOMPARE(c.Get("/work/attachment/" + id.toStdString())->body, std::string("abc"));
    server.stop();
}

void BackendPostgresTest::survivesTheDatabaseRestarting() {
    Database db(QStringLiteral("postgresql://quelix@127.0.0.1:%1/postgres").arg(port_));
    QVERIFY(db.createSchema());
    QTemporaryDir files;
    BackendServer::Options options;
    options.filesDir = files.path();
    options.threads = 8;
    BackendServer server(&db, options);
    QVERIFY(server.start(QStringLiteral("127.0.0.1"), 0));
    const std::string form = logInForm(DemoCompany::accounts(&db, 1).value(0),
                                       QString::fromLatin1(DemoCompany::kPassword));
    const auto client = [&] {
        httplib::Client c("127.0.0.1", server.port());
        c.set_read_timeout(30, 0);
        return c;
    };
    const auto logIn = [&] { return client().Post(kLogIn, form, kForm); };
    const QString session = results(logIn()).value("sessionId").toString();
    QVERIFY(!session.isEmpty());
    // A project list that answers success has projects in it: the owner has some.
    const auto projects = [&] {
        return client().Get("/work/project.htm?m=myProjectList", as(session));
    };
    QVERIFY(!projectList(projects()).isEmpty());

    // Restarted, and with fewer connections than the back end has workers.
    QVERIFY(pgCtl(QStringLiteral("restart"),
                  QStringLiteral("-c max_connections=5 -c superuser_reserved_connections=0")));
    std::atomic<int> successes{0};
    std::atomic<int> dishonest{0};
    std::vector<std::thread> callers;
    for (int t = 0; t < 8; ++t) {
        callers.emplace_back([&] {
            for (int i = 0; i < 6; ++i) {
                const int login = code(logIn());
                const auto list = projects();
                const int listed = code(list);
                const bool empty = projectList(list).isEmpty();
                if ((login != 0 && login != 1500) || (listed != 0 && listed != 1500) ||
                    (listed == 0 && empty)) {
                    ++dishonest;
                }
                successes += int(login == 0) + int(listed == 0);
            }
        });
    }
    for (std::thread& t : callers) t.join();
    QCOMPARE(dishonest.load(), 0);
    QVERIFY(successes.load() > 0);
    // And with its connections back, the right password is never taken for a wrong one.
    QVERIFY(pgCtl(QStringLiteral("restart")));
    int failures = 0;
    for (int i = 0; i < 20; ++i) {
        const int login = code(logIn());
        QVERIFY2(login == 0 || login == 1500, qPrintable(QString::number(login)));
        failures += int(login != 0);
    }
    // At most one failed request per worker: each finds its lost connection once.
    QVERIFY2(failures <= options.threads, qPrintable(QString::number(failures)));
    QCOMPARE(code(logIn()), 0);
    server.stop();
}

QTEST_GUILESS_MAIN(BackendPostgresTest)
#include "tst_backendpostgres.moc"
