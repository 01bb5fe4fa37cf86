#include <QtTest>

#include <QNetworkAccessManager>
#include <QNetworkReply>

#include "backendurls.h"
#include "envelope.h"
#include "httpfixture.h"
#include "requester.h"

namespace {
QByteArray ok(const QByteArray& results = "{}") {
    return "{\"errorCode\":0,\"errorMsg\":\"\",\"results\":" + results + "}";
}
}  // namespace

class TestRequester : public QObject {
    Q_OBJECT
private slots:
    void formsAndHeaders();
    void authorisationAgeDecidesTheLoginPost_data();
    void authorisationAgeDecidesTheLoginPost();
    void refusedAuthorisationDropsTheRequest();
    void networkErrorsNeverReachTheHandler();
    void envelopes_data();
    void envelopes();
    void addresses();
};

void TestRequester::formsAndHeaders() {
    HttpFixture server([](const HttpFixture::Request&) {
        return HttpFixture::Response{200, ok(), "application/json", false, 0};
    });
    Requester r;
    QByteArray got;
    QVERIFY(r.post(server.url("/login"), Requester::loginForm("wang wei", "p+ss%41&=中"),
                   [&](const QByteArray& body) { got = body; }));
    QTRY_VERIFY(!got.isEmpty());
    const HttpFixture::Request& post = server.requests().first();
    QCOMPARE(post.method, QByteArray("POST"));
    // Order as given, every value escaped so the back end reads back what was typed.
    QCOMPARE(post.body,
             QByteArray("username=wang%20wei&password=p%2Bss%2541%26%3D%E4%B8%AD&client=3"));
    QCOMPARE(post.headers.value("content-type"), QByteArray("application/x-www-form-urlencoded"));
    QCOMPARE(post.headers.value("content-length").toInt(), post.body.size());

    QString a, b;
    QVERIFY(r.get(
        server.url("/x?m=1"),
        [&](const QByteArray&, const QString& ta, const QString& tb) {
            a = ta;
            b = tb;
        },
        "tribe", "42"));
    QTRY_COMPARE(a, QStringLiteral("tribe"));
    QCOMPARE(b, QStringLiteral("42"));
    // GETs carry the form content type as well.
    QCOMPARE(server.requests().last().headers.value("content-type"),
             QByteArray("application/x-www-form-urlencoded"));
    QCOMPARE(server.requests().last().target, QByteArray("/x?m=1"));
}

void TestRequester::authorisationAgeDecidesTheLoginPost_data() {
    QTest::addColumn<int>("ageSeconds");  // -1: never authorised
    QTest::addColumn<bool>("renews");
    QTest::newRow("1800 s") << 1800 << false;
    QTest::newRow("1801 s") << 1801 << true;
    QTest::newRow("fresh") << 0 << false;
    QTest::newRow("never") << -1 << true;
}

void TestRequester::authorisationAgeDecidesTheLoginPost() {
    QFETCH(int, ageSeconds);
    QFETCH(bool, renews);
    HttpFixture server([](const HttpFixture::Request& req) {
        HttpFixture::Response resp;
        resp.body = req.target.startsWith("/login") ? ok("{\"md5Sign\":\"tok-2\"}") : ok();
        return resp;
    });
    const QDateTime now(QDate(2026, 11, 22), QTime(10, 0));
    Requester r;
    r.setClock([&] { return now; });
    r.setLoginUrl(server.url("/login"));
    r.setCredentials("wang", "secret");
    if (ageSeconds >= 0) r.setAuthorised(now.addSecs(-ageSeconds), "tok-1");

    bool done = false;
    r.postSigned(server.url("/editProj.htm"), {{"projectId", "7"}},
                 [&](const QByteArray&) { done = true; });
    QTRY_VERIFY(done);
    const QList<HttpFixture::Request>& seen = server.requests();
    QCOMPARE(seen.size(), renews ? 2 : 1);
    QCOMPARE(seen.last().target, QByteArray("/editProj.htm"));
    if (renews) {
        QCOMPARE(seen.first().target, QByteArray("/login"));
        QCOMPARE(seen.first().body, QByteArray("username=wang&password=secret&client=3"));
        QCOMPARE(r.md5Sign(), QStringLiteral("tok-2"));
        QCOMPARE(r.lastAuthorised(), now);
    } else {
        QCOMPARE(r.md5Sign(), QStringLiteral("tok-1"));
    }
}

void TestRequester::refusedAuthorisationDropsTheRequest() {
    HttpFixture server([](const HttpFixture::Request&) {
        HttpFixture::Response resp;
        resp.body = "{\"errorCode\":1001,\"errorMsg\":\"密码错误\"}";
        return resp;
    });
    Requester r;
    r.setLoginUrl(server.url("/login"));
    QString error;
    bool sent = false;
    r.postSigned(
        server.url("/editProj.htm"), {}, [&](const QByteArray&) { sent = true; },
        [&](const QString& e) { error = e; });
    QTRY_COMPARE(error, QStringLiteral("密码错误"));
    QTest::qWait(50);
    QVERIFY(!sent);
    QCOMPARE(server.requests().size(), 1);
    QVERIFY(!r.lastAuthorised().isValid());
}

void TestRequester::networkErrorsNeverReachTheHandler() {
    HttpFixture server([](const HttpFixture::Request& req) {
        HttpFixture::Response resp;
        resp.dropConnection = req.target == "/drop";
        resp.status = req.target == "/missing" ? 404 : 200;
        resp.body = "not json";
        return resp;
    });
    QNetworkAccessManager network;
    Requester r(&network);
    int bodies = 0;
    QStringList errors;
    for (const char* path : {"/drop", "/missing"})
        QVERIFY(r.get(
            server.url(path), [&](const QByteArray&) { ++bodies; },
            [&](const QString& e) { errors << e; }));
    // Nothing listens on port 1.
    QVERIFY(r.get(
        QStringLiteral("http://127.0.0.1:1/"), [&](const QByteArray&) { ++bodies; },
        [&](const QString& e) { errors << e; }));
    QTRY_COMPARE(errors.size(), 3);
    QCOMPARE(bodies, 0);
    // Every reply was released, by deferred deletion.
    QTRY_COMPARE(network.findChildren<QNetworkReply*>().size(), 0);

    // A body that is not JSON reaches the handler, and the envelope says it failed.
    QByteArray garbage;
    r.get(server.url("/garbage"), [&](const QByteArray& body) { garbage = body; });
    QTRY_COMPARE(garbage, QByteArray("not json"));
    QVERIFY(!Envelope::parse(garbage).isValid());
    QVERIFY(!Envelope::parse(garbage).isSuccess());
}

void TestRequester::envelopes_data() {
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("success");
    QTest::addColumn<int>("code");
    QTest::newRow("number") << QByteArray(ok("[1]")) << true << 0;
    QTest::newRow("text code") << QByteArray("{\"errorCode\":\"0\",\"results\":[]}") << true << 0;
    QTest::newRow("failure") << QByteArray("{\"errorCode\":404,\"errorMsg\":\"用户不存在\"}")
                             << false << 404;
    QTest::newRow("no code") << QByteArray("{\"results\":[]}") << false << -1;
    QTest::newRow("code not a number") << QByteArray("{\"errorCode\":\"ok\"}") << false << -1;
    QTest::newRow("fraction") << QByteArray("{\"errorCode\":0.5}") << false << -1;
    QTest::newRow("array") << QByteArray("[0]") << false << -1;
    QTest::newRow("empty") << QByteArray() << false << -1;
}

void TestRequester::envelopes() {
    QFETCH(QByteArray, body);
    QFETCH(bool, success);
    QFETCH(int, code);
    const Envelope e = Envelope::parse(body);
    QCOMPARE(e.isSuccess(), success);
    QCOMPARE(e.errorCode(), code);
    if (!success) QVERIFY(e.results().isUndefined() || e.results().isNull());
}

void TestRequester::addresses() {
    QCOMPARE(
        BackendUrls::organisation("http://h/work/mobileUserInfo.htm?m=findAllUserAndDept", 12, 3),
        QStringLiteral(
            "http://h/work/mobileUserInfo.htm?m=findAllUserAndDept&userId=12&companyId=3"));
    QCOMPARE(BackendUrls::organisation("/org", 18446744073709551615ULL, 0),
             QStringLiteral("/org?userId=18446744073709551615&companyId=0"));
    QCOMPARE(BackendUrls::deleteProject("http://h/work/editProj.htm", 88, "ab12"),
             QStringLiteral("http://h/work/editProj.htm?&projectId=88&sign=ab12&m=delProj"));
    const QString remove = BackendUrls::removeMember("http://h/work/editProj.htm", "1001", 88);
    QCOMPARE(remove,
             QStringLiteral("http://h/work/editProj.htm?&kickUserId=1001&projectId=88&m=exitPro"));
    QVERIFY(!remove.contains("sign"));
    QCOMPARE(BackendUrls::colleagues("http://h/u?m=findSomeOne", {"1", "2"}),
             QStringLiteral("http://h/u?m=findSomeOne&manyUserIds=1%2C2"));
}

QTEST_GUILESS_MAIN(TestRequester)
#include "tst_requester.moc"
