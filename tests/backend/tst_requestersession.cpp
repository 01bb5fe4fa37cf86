// The requester against the real back end on loopback: every request carries the session,
// and a back end that forgot it (restarted) is signed in to again without the caller noticing.
#include <QtTest>

#include <QJsonArray>
#include <QNetworkAccessManager>
#include <QNetworkCookieJar>
#include <QTemporaryDir>

#include "backendserver.h"
#include "database.h"
#include "democompany.h"
#include "envelope.h"
#include "requester.h"

class TestRequesterSession : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void everyRequestCarriesTheSession();
    void aForgottenSessionIsRenewedOnce();
    void wrongCredentialsHandTheRefusalOn();

private:
    // A fresh back end on the same port and database: it knows no sessions.
    void restartBackEnd();
    QString url(const char* path) const {
        return QStringLiteral("http://127.0.0.1:%1%2").arg(port_).arg(QLatin1String(path));
    }
    // Signs in the requester as the client does, keeping credentials and session.
    void signIn(Requester& r, const QString& password);
    Envelope get(Requester& r, const QString& address);

    QTemporaryDir dir_;
    std::unique_ptr<Database> db_;
    std::unique_ptr<BackendServer> server_;
    int port_ = 0;
    QString account_;
};

void TestRequesterSession::initTestCase() {
    QVERIFY(dir_.isValid());
    db_ = std::make_unique<Database>(QStringLiteral("sqlite:%1/d.db").arg(dir_.path()));
    QVERIFY(db_->createSchema());
    QString error;
    QVERIFY2(DemoCompany::seedDemo(db_.get(), 1000, &error), qPrintable(error));
    account_ = DemoCompany::accounts(db_.get(), 1).value(0);
    restartBackEnd();
}

void TestRequesterSession::cleanupTestCase() {
    server_.reset();
    db_.reset();
}

void TestRequesterSession::restartBackEnd() {
    server_.reset();
    BackendServer::Options options;
    options.filesDir = dir_.filePath(QStringLiteral("files"));
    server_ = std::make_unique<BackendServer>(db_.get(), options);
    QVERIFY(server_->start(QStringLiteral("127.0.0.1"), port_));
    port_ = server_->port();
}

void TestRequesterSession::signIn(Requester& r, const QString& password) {
    r.setLoginUrl(url("/work/checkIn.htm?m=MobileLogin"));
    bool done = false;
    r.post(url("/work/checkIn.htm?m=MobileLogin"), Requester::loginForm(account_, password),
           [&](const QByteArray& body) {
               const Envelope e = Envelope::parse(body);
               r.setCredentials(account_, QString::fromLatin1(DemoCompany::kPassword));
               r.setSession(e.member(QStringLiteral("sessionId")).toString());
               done = true;
           });
    QTRY_VERIFY(done);
}

Envelope TestRequesterSession::get(Requester& r, const QString& address) {
    QByteArray reply;
    bool done = false;
    r.get(address, [&](const QByteArray& body) {
        reply = body;
        done = true;
    });
    // No answer in time is an error code no back end sends.
    if (!QTest::qWaitFor([&] { return done; }, 10000)) return Envelope::parse("{\"errorCode\":-1}");
    return Envelope::parse(reply);
}

void TestRequesterSession::everyRequestCarriesTheSession() {
    // No cookie jar: the session reaches the back end only because the requester sends it.
    QNetworkAccessManager network;
    Requester r(&network);
    signIn(r, QString::fromLatin1(DemoCompany::kPassword));
    QVERIFY(!r.session().isEmpty());
    network.setCookieJar(new QNetworkCookieJar);  // forget what the log-in set
    const Envelope e = get(r, url("/rest/auth/client.htm"));
    QCOMPARE(e.errorCode(), 0);
    const Envelope list = get(r, url("/work/project.htm?m=myProjectList"));
    QCOMPARE(list.errorCode(), 0);
    QVERIFY(!list.member(QStringLiteral("projectList")).toArray().isEmpty());
}

void TestRequesterSession::aForgottenSessionIsRenewedOnce() {
    Requester r;
    signIn(r, QString::fromLatin1(DemoCompany::kPassword));
    const QString before = r.session();
    QSignalSpy renewed(&r, &Requester::authorised);
    restartBackEnd();
    // The caller sees the answer as if nothing had happened.
    const Envelope e = get(r, url("/work/mobileProject.htm?m=queryProjectById&projectId=50002"));
    QCOMPARE(e.errorCode(), 0);
    QCOMPARE(e.member(QStringLiteral("id")).toString(), QStringLiteral("50002"));
    QCOMPARE(renewed.count(), 1);
    QVERIFY(!r.session().isEmpty() && r.session() != before);
    // The renewed session is used from then on: no further sign-in.
    QCOMPARE(get(r, url("/rest/auth/client.htm")).errorCode(), 0);
    QCOMPARE(renewed.count(), 1);
}

void TestRequesterSession::wrongCredentialsHandTheRefusalOn() {
    Requester r;
    signIn(r, QString::fromLatin1(DemoCompany::kPassword));
    r.setCredentials(account_, QStringLiteral("changed meanwhile"));
    QSignalSpy renewed(&r, &Requester::authorised);
    restartBackEnd();
    // Signing in again fails: the original "not signed in" reaches the handler, once.
    int answers = 0;
    int code = -1;
    r.get(url("/rest/auth/client.htm"), [&](const QByteArray& body) {
        ++answers;
        code = Envelope::parse(body).errorCode();
    });
    QTRY_COMPARE_WITH_TIMEOUT(answers, 1, 10000);
    QCOMPARE(code, 1003);
    QTest::qWait(100);
    QCOMPARE(answers, 1);
    QCOMPARE(renewed.count(), 0);
}

QTEST_GUILESS_MAIN(TestRequesterSession)
#include "tst_requestersession.moc"
