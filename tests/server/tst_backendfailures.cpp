// The back end when its database fails under it: every failure answers 1500, never an empty
// success, "wrong password" or "not found"; a failed write is reported; a failed upload
// leaves no file; once the database is back, so is the service.
#include "backendserver.h"
#include "database.h"
#include "democompany.h"

#include <httplib.h>

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const char kForm[] = "application/x-www-form-urlencoded";

int code(const httplib::Result& r) {
    if (!r) return -1;
    return QJsonDocument::fromJson(QByteArray::fromStdString(r->body))
        .object()
        .value("errorCode")
        .toInt(-1);
}

}  // namespace

class BackendFailuresTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void readsFailHonestly();
    void logInFailsHonestlyAndFeedsNoLockOut();
    void failedWritesAreReported();

private:
    httplib::Client client() const {
        httplib::Client c("127.0.0.1", server_->port());
        c.set_read_timeout(30, 0);
        return c;
    }
    httplib::Result logIn(const std::string& password) {
        return client().Post("/work/checkIn.htm?m=MobileLogin",
                             "username=" + account_ + "&password=" + password + "&client=3", kForm);
    }
    httplib::Result get(const std::string& path) {
        return client().Get(path, {{"Cookie", "QXSESSION=" + session_}});
    }
    httplib::Result post(const std::string& path) {
        return client().Post(path, {{"Cookie", "QXSESSION=" + session_}}, "", kForm);
    }
    // Takes a table away (as a broken or locked database would) and puts it back.
    void hide(const char* table) {
        sql(QStringLiteral("ALTER TABLE %1 RENAME TO hidden_%1"), table);
    }
    void restore(const char* table) {
        sql(QStringLiteral("ALTER TABLE hidden_%1 RENAME TO %1"), table);
    }
    void sql(const QString& pattern, const char* table) {
        QSqlQuery q(db_->connection());
        QVERIFY2(q.exec(pattern.arg(QLatin1String(table))), qPrintable(pattern));
    }

    QTemporaryDir dir_;
    std::unique_ptr<Database> db_;
    std::unique_ptr<BackendServer> server_;
    std::string account_;
    std::string session_;
};

void BackendFailuresTest::initTestCase() {
    QVERIFY(dir_.isValid());
    db_ = std::make_unique<Database>(QStringLiteral("sqlite:%1/d.db").arg(dir_.path()));
    QVERIFY(db_->createSchema());
    QString error;
    QVERIFY2(DemoCompany::seedDemo(db_.get(), 1, &error), qPrintable(error));
    BackendServer::Options options;
    options.filesDir = dir_.filePath(QStringLiteral("files"));
    options.threads = 4;
    server_ = std::make_unique<BackendServer>(db_.get(), options);
    QVERIFY(server_->start(QStringLiteral("127.0.0.1"), 0));
    account_ = DemoCompany::accounts(db_.get(), 1).value(0).toStdString();
    const auto r = logIn(DemoCompany::kPassword);
    QCOMPARE(code(r), 0);
    session_ = QJsonDocument::fromJson(QByteArray::fromStdString(r->body))
                   .object()["results"]
                   .toObject()["sessionId"]
                   .toString()
                   .toStdString();
}

void BackendFailuresTest::cleanupTestCase() { server_.reset(); }

void BackendFailuresTest::readsFailHonestly() {
    const std::string lists[] = {
        "/work/mobileUserInfo.htm?m=findSomeOne&manyUserIds=10001,10002",
        "/work/project.htm?m=myProjectList",
        "/work/gen.htm?m=user&projectId=50002",
        "/work/notifies.htm?m=getTaskReadFlag&taskIds=70001",
        "/work/mobileUserInfo.htm?m=findAllUserAndDept&userId=10001&companyId=1",
    };
    // While a table is gone, each address answers exactly what it answered before (it did
    // not need that table) or fails honestly; never a shorter or empty success.
    std::vector<std::string> before;
    for (const std::string& path : lists) {
        const auto r = get(path);
        QCOMPARE(code(r), 0);
        before.push_back(r->body);
    }
    for (const char* table : {"users", "project_member", "task", "project"}) {
        hide(table);
        int failed = 0;
        for (size_t i = 0; i < std::size(lists); ++i) {
            const auto r = get(lists[i]);
            if (code(r) == 1500) {
                QCOMPARE(r->status, 500);
                ++failed;
            } else {
                QVERIFY2(r->body == before[i], (std::string(table) + " " + lists[i]).c_str());
            }
        }
        restore(table);
        QVERIFY2(failed > 0, table);
    }
    // Back to normal at once.
    const auto r = get(lists[1]);
    QCOMPARE(code(r), 0);
    QVERIFY(!QJsonDocument::fromJson(QByteArray::fromStdString(r->body))
                 .object()["results"]
                 .toObject()["projectList"]
                 .toArray()
                 .isEmpty());
    QCOMPARE(code(get(lists[4])), 0);
}

void BackendFailuresTest::logInFailsHonestlyAndFeedsNoLockOut() {
    hide("users");
    // Many more than the free attempts: none of them may count as a wrong password.
    for (int i = 0; i < 8; ++i) {
        QCOMPARE(code(logIn(DemoCompany::kPassword)), 1500);
        QCOMPARE(code(logIn("wrong")), 1500);
    }
    restore("users");
    QCOMPARE(code(logIn(DemoCompany::kPassword)), 0);
}

void BackendFailuresTest::failedWritesAreReported() {
    hide("task_read");
    QCOMPARE(code(post("/work/notifies.htm?m=setTaskReadFlag&taskId=70003")), 1500);
    restore("task_read");
    QCOMPARE(code(post("/work/notifies.htm?m=setTaskReadFlag&taskId=70003")), 0);

    // An upload whose record cannot be written keeps no file.
    const QDir files(dir_.filePath(QStringLiteral("files")));
    hide("attachment");
    httplib::Client c = client();
    c.set_default_headers({{"Cookie", "QXSESSION=" + session_}});
    const auto r = c.Post("/work/mobileTopic.htm?m=uploadFromPC",
                          httplib::MultipartFormDataItems{{"file", "abc", "a.txt", ""}});
    QCOMPARE(code(r), 1500);
    QCOMPARE(files.entryList(QDir::Files | QDir::Hidden), QStringList());
    restore("attachment");
    QCOMPARE(code(c.Post("/work/mobileTopic.htm?m=uploadFromPC",
                         httplib::MultipartFormDataItems{{"file", "abc", "a.txt", ""}})),
             0);
    QCOMPARE(files.entryList(QDir::Files | QDir::Hidden).size(), 1);

    // A project change that cannot be written is not reported as made.
    hide("project_member");
    QCOMPARE(code(post("/work/editProj.htm?m=createProj&title=t")), 1500);
    restore("project_member");
}

QTEST_GUILESS_MAIN(BackendFailuresTest)
#include "tst_backendfailures.moc"
