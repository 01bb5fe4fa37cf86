// The back end when its database fails under it: every failure answers 1500, never an empty
// success, "wrong password" or "not found"; a failed write is reported; a failed upload
// leaves no file; once the database is back, so is the service.
#include "backendrig.h"

#include <QtTest>

class BackendFailuresTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase() { rig_.stop(); }
    void readsFailHonestly();
    void logInFailsHonestlyAndFeedsNoLockOut();
    void failedWritesAreReported();

private:
    httplib::Result logIn(const char* password) const {
        return rig_.logIn(account_, QString::fromLatin1(password));
    }
    httplib::Result get(const std::string& path) const {
        return rig_.client().Get(path, as(session_));
    }
    int post(const std::string& path) const {
        return code(rig_.client().Post(path, as(session_), "", kForm));
    }
    int upload() const {
        return code(
            rig_.client().Post("/work/mobileTopic.htm?m=uploadFromPC", as(session_),
                               httplib::MultipartFormDataItems{{"file", "abc", "a.txt", ""}}));
    }
    // Takes a table away (as a broken or locked database would) and puts it back.
    void hide(const char* table) {
        sql(QStringLiteral("ALTER TABLE %1 RENAME TO hidden_%1"), table);
    }
    void restore(const char* table) {
        sql(QStringLiteral("ALTER TABLE hidden_%1 RENAME TO %1"), table);
    }
    void sql(const QString& pattern, const char* table) {
        QSqlQuery q(rig_.db->connection());
        QVERIFY2(q.exec(pattern.arg(QLatin1String(table))), qPrintable(pattern));
    }

    BackendRig rig_;
    QString account_;
    QString session_;
};

void BackendFailuresTest::initTestCase() {
    QVERIFY2(rig_.seed(1), qPrintable(rig_.error));
    BackendServer::Options options;
    options.threads = 4;
    QVERIFY(rig_.serve(options));
    account_ = rig_.accounts(1).value(0);
    session_ = rig_.signIn(account_);
    QVERIFY(!session_.isEmpty());
}

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
    QVERIFY(!results(r).value("projectList").toArray().isEmpty());
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
    QCOMPARE(post("/work/notifies.htm?m=setTaskReadFlag&taskId=70003"), 1500);
    restore("task_read");
    QCOMPARE(post("/work/notifies.htm?m=setTaskReadFlag&taskId=70003"), 0);

    // An upload whose record cannot be written keeps no file.
    const QDir files(rig_.path("files"));
    hide("attachment");
    QCOMPARE(upload(), 1500);
    QCOMPARE(files.entryList(QDir::Files | QDir::Hidden), QStringList());
    restore("attachment");
    QCOMPARE(upload(), 0);
    QCOMPARE(files.entryList(QDir::Files | QDir::Hidden).size(), 1);

    // A project change that cannot be written is not reported as made.
    hide("project_member");
    QCOMPARE(post("/work/editProj.htm?m=createProj&title=t"), 1500);
    restore("project_member");
}

QTEST_GUILESS_MAIN(BackendFailuresTest)
#include "tst_backendfailures.moc"
