// The SDK's stream protection against real servers: a server with a certificate from the
// company's authority, the same server when that authority is not handed over, and a server
// that offers no encryption at all. Whatever fails, fails at once with a reason that says
// so, and never in clear.
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include "openim/result_code.h"
#include "sdk/stream_security.h"
#include "support/prosody_server.h"
#include "support/test_session.h"

class TlsTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void loopbackIsToldApartFromEverythingElse();
    void signsInOnlyOverAStreamItCanTrust();

private:
    ProsodyServer tls_;
    ProsodyServer other_;  // another company's server: its authority vouches for nothing here
    ProsodyServer plain_;
};

void TlsTest::initTestCase() {
    QVERIFY2(tls_.start(), qPrintable(tls_.lastError()));
    QVERIFY(!tls_.caFile().isEmpty());
    QVERIFY2(other_.start(), qPrintable(other_.lastError()));
    QVERIFY2(plain_.start(true), qPrintable(plain_.lastError()));
    QVERIFY(plain_.caFile().isEmpty());
    for (ProsodyServer* s : {&tls_, &plain_})
        QVERIFY(s->registerUser(QStringLiteral("alice"), QStringLiteral("pw-alice")));
}

void TlsTest::loopbackIsToldApartFromEverythingElse() {
    for (const char* host : {"127.0.0.1", "127.8.9.10", "::1", "[::1]", "localhost", "LocalHost"})
        QVERIFY2(StreamSecurity::isLoopback(QLatin1String(host)), host);
    for (const char* host : {"10.0.0.1", "192.168.1.20", "quelix.test", "localhost.example",
                             "127.0.0.1.example", "", "::ffff:8.8.8.8"})
        QVERIFY2(!StreamSecurity::isLoopback(QLatin1String(host)), host);
    // Files go over HTTPS anywhere, over plain HTTP only on this machine.
    for (const char* url : {"https://files.example/a.png", "http://127.0.0.1:5280/a.png",
                            "http://localhost/a", "HTTPS://x.example/"})
        QVERIFY2(StreamSecurity::mayTransfer(QUrl(QLatin1String(url))), url);
    for (const char* url : {"http://files.example/a.png", "http://10.1.2.3/a", "ftp://127.0.0.1/a",
                            "file:///etc/passwd", "", "http://127.0.0.1.example/a"})
        QVERIFY2(!StreamSecurity::mayTransfer(QUrl(QLatin1String(url))), url);
}

void TlsTest::signsInOnlyOverAStreamItCanTrust() {
    const QString insecure = QStringLiteral("loginFail:%1").arg(openim::ResultCode::kInsecure);

    // The company's authority handed over: signed in, although the server takes nothing
    // but encrypted sessions.
    {
        TestSession alice("trusted");
        alice.setRequireTls(true);
        QVERIFY(alice.signIn(tls_, "alice"));
    }

    // Another authority, a file that holds no certificate, or none at all: the server's
    // certificate is not trusted, and the sign-in ends at once (no retries).
    QTemporaryDir dir;
    QFile junk(dir.filePath(QStringLiteral("junk.pem")));
    QVERIFY(junk.open(QIODevice::WriteOnly));
    junk.write("not a certificate\n");
    junk.close();
    for (const QString& ca : {other_.caFile(), junk.fileName(), QString()}) {
        TestSession alice("untrusted");
        alice.setCaFile(ca.isNull() ? QStringLiteral("") : ca);
        QElapsedTimer clock;
        clock.start();
        alice.login(tls_, "alice", "pw-alice");
        QVERIFY2(waitUntil([&] { return alice.probe().count("loginFail") == 1; }), qPrintable(ca));
        QCOMPARE(alice.probe().count(insecure), 1);
        QCOMPARE(alice.probe().count("loginOk"), 0);
        QVERIFY2(clock.elapsed() < 5000, qPrintable(QString::number(clock.elapsed())));
    }

    // A server with no STARTTLS: refused where TLS is required; a developer's plain server
    // on this machine is still usable when nothing asks for more.
    {
        TestSession alice("required");
        alice.setRequireTls(true);
        alice.login(plain_, "alice", "pw-alice");
        QVERIFY(waitUntil([&] { return alice.probe().count("loginFail") == 1; }));
        QCOMPARE(alice.probe().count(insecure), 1);
    }
    TestSession alice("loopback");
    QVERIFY(alice.signIn(plain_, "alice"));
}

QTEST_GUILESS_MAIN(TlsTest)
#include "tst_imsdk_tls.moc"
