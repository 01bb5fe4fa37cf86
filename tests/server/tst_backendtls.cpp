// The back end speaking HTTPS itself: a certificate from an authority the client trusts,
// requests on kept-alive and pipelined connections, nothing in the clear, and a handshake
// that cannot hold the server.
#include "backendrig.h"

#include <QProcess>
#include <QSslConfiguration>
#include <QSslSocket>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

namespace {

// An authority and a certificate it signed for loopback, as a company's would be.
bool makeCertificates(const QString& dir, QString* error) {
    const QString script =
        QStringLiteral(
            "set -e; cd '%1';"
            "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2"
            " -subj '/CN=test CA' -keyout ca.key -out ca.crt"
            " -addext basicConstraints=critical,CA:TRUE -addext keyUsage=critical,keyCertSign;"
            "openssl req -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -subj "
            "/CN=localhost"
            " -keyout server.key -out server.csr;"
            "printf 'subjectAltName=DNS:localhost,IP:127.0.0.1\\nextendedKeyUsage=serverAuth\\n'"
            " > server.ext;"
            "openssl x509 -req -in server.csr -CA ca.crt -CAkey ca.key -CAcreateserial -days 2"
            " -extfile server.ext -out server.crt")
            .arg(dir);
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start(QStringLiteral("sh"), {QStringLiteral("-c"), script});
    if (!p.waitForFinished(30000) || p.exitCode() != 0) {
        *error = QString::fromLocal8Bit(p.readAll());
        return false;
    }
    return true;
}

}  // namespace

class BackendTlsTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase() { rig_.stop(); }
    void signsInOverVerifiedTls();
    void pipelinedRequestsAreAllAnswered();
    void nothingInTheClearAndNoHandshakeHoldsTheServer();
    void unusableCertificateIsRefusedAtStart();

private:
    std::unique_ptr<httplib::SSLClient> client() const {
        auto c = std::make_unique<httplib::SSLClient>("127.0.0.1", rig_.server->port());
        c->set_ca_cert_path(rig_.path("ca.crt").toStdString().c_str());
        c->enable_server_certificate_verification(true);
        c->set_read_timeout(30, 0);
        return c;
    }
    std::string logInForm() const {
        return ::logInForm(account_, QString::fromLatin1(DemoCompany::kPassword));
    }

    BackendRig rig_;
    QString account_;
};

void BackendTlsTest::initTestCase() {
    QVERIFY2(rig_.seed(), qPrintable(rig_.error));
    QString error;
    QVERIFY2(makeCertificates(rig_.dir.path(), &error), qPrintable(error));
    account_ = rig_.accounts(1).value(0);
    BackendServer::Options options;
    options.tlsCert = rig_.path("server.crt");
    options.tlsKey = rig_.path("server.key");
    options.threads = 2;
    options.requestHeadTimeoutMs = 500;
    QVERIFY(rig_.serve(options));
    QVERIFY2(rig_.server->publicUrl().startsWith(QLatin1String("https://")),
             qPrintable(rig_.server->publicUrl()));
}

void BackendTlsTest::signsInOverVerifiedTls() {
    // One kept-alive connection: the sign-in, then requests with its cookie.
    const auto c = client();
    c->set_keep_alive(true);
    const auto login = c->Post(kLogIn, logInForm(), kForm);
    QVERIFY2(login, httplib::to_string(login.error()).c_str());
    const QString session = results(login).value("sessionId").toString();
    QVERIFY(!session.isEmpty());
    // The cookie never travels in the clear.
    QVERIFY(login->get_header_value("Set-Cookie").find("; Secure") != std::string::npos);
    for (int i = 0; i < 3; ++i) QCOMPARE(code(c->Get("/rest/auth/client.htm", as(session))), 0);
    // A client that does not know the company's authority is not fooled into going on.
    httplib::SSLClient stranger("127.0.0.1", rig_.server->port());
    stranger.set_ca_cert_path("/nonexistent");
    stranger.enable_server_certificate_verification(true);
    QVERIFY(!stranger.Get("/rest/auth/client.htm"));
}

void BackendTlsTest::pipelinedRequestsAreAllAnswered() {
    // Requests sent in one write, the second right behind a body the worker streams: its
    // bytes share a TLS record with the body's end, so they wait inside TLS, where polling
    // the socket cannot see them, and must be answered all the same.
    const QByteArray session = results(client()->Post(kLogIn, logInForm(), kForm))
                                   .value("sessionId")
                                   .toString()
                                   .toLatin1();
    QVERIFY(!session.isEmpty());
    const QByteArray body =
        "--b\r\nContent-Disposition: form-data; name=\"file\"; "
        "filename=\"plan.txt\"\r\nContent-Type: text/plain\r\n\r\n" +
        QByteArray(200 * 1024, 'x') + "\r\n--b--\r\n";
    const QByteArray upload =
        "POST /work/mobileTopic.htm?m=uploadFromPC HTTP/1.1\r\nHost: localhost\r\n"
        "Cookie: QXSESSION=" +
        session +
        "\r\nContent-Type: multipart/form-data; boundary=b\r\n"
        "Content-Length: " +
        QByteArray::number(body.size()) + "\r\n\r\n" + body;
    const QByteArray request =
        "GET /rest/auth/client.htm HTTP/1.1\r\nHost: localhost\r\n"
        "Cookie: QXSESSION=" +
        session + "\r\n\r\n";
    QSslSocket socket;
    QSslConfiguration conf = socket.sslConfiguration();
    conf.setCaCertificates(QSslCertificate::fromPath(rig_.path("ca.crt")));
    socket.setSslConfiguration(conf);
    socket.connectToHostEncrypted(QStringLiteral("127.0.0.1"), quint16(rig_.server->port()),
                                  QStringLiteral("localhost"));
    QVERIFY2(socket.waitForEncrypted(10000), qPrintable(socket.errorString()));
    socket.write(request + request + upload + request);
    QByteArray answers;
    QElapsedTimer clock;
    clock.start();
    while (answers.count("\"client\":\"\"}") < 4 && clock.elapsed() < 10000) {
        socket.waitForReadyRead(200);
        answers += socket.readAll();
    }
    QVERIFY2(answers.count("HTTP/1.1 200") == 4, answers.left(3000).constData());
    QVERIFY2(answers.count("\"errorCode\":0") == 4, answers.constData());
}

void BackendTlsTest::nothingInTheClearAndNoHandshakeHoldsTheServer() {
    // Plain HTTP to the HTTPS port gets no answer a client could take for one.
    httplib::Client plain("127.0.0.1", rig_.server->port());
    plain.set_read_timeout(5, 0);
    const auto r = plain.Post(kLogIn, logInForm(), kForm);
    QVERIFY(!r || r->status != 200);

    // More silent connections than workers, and one that stops mid-handshake: none of them
    // holds a worker, and each is dropped once the head's time is up.
    std::vector<std::unique_ptr<QTcpSocket>> silent;
    for (int i = 0; i < 8; ++i) {
        silent.push_back(std::make_unique<QTcpSocket>());
        silent.back()->connectToHost(QStringLiteral("127.0.0.1"), quint16(rig_.server->port()));
        QVERIFY(silent.back()->waitForConnected(5000));
    }
    silent.front()->write(QByteArray("\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03", 11));
    silent.front()->flush();
    QElapsedTimer clock;
    clock.start();
    QCOMPARE(code(client()->Get("/rest/auth/client.htm")), 1003);
    QVERIFY2(clock.elapsed() < 2000, qPrintable(QString::number(clock.elapsed())));
    for (auto& s : silent) {
        if (s->state() == QAbstractSocket::ConnectedState) s->waitForDisconnected(5000);
        QCOMPARE(s->state(), QAbstractSocket::UnconnectedState);
    }
    QVERIFY2(clock.elapsed() < 5000, qPrintable(QString::number(clock.elapsed())));
}

void BackendTlsTest::unusableCertificateIsRefusedAtStart() {
    // A key of another certificate, or no file at all: the back end does not start, rather
    // than serve in the clear.
    QTemporaryDir other;
    QString error;
    QVERIFY2(makeCertificates(other.path(), &error), qPrintable(error));
    BackendServer::Options options;
    options.filesDir = rig_.path("files2");
    options.tlsCert = rig_.path("server.crt");
    for (const QString& key :
         {other.filePath(QStringLiteral("server.key")), rig_.path("missing.key")}) {
        options.tlsKey = key;
        QVERIFY2(!BackendServer(rig_.db.get(), options).start(QStringLiteral("127.0.0.1"), 0),
                 qPrintable(key));
    }
}

QTEST_GUILESS_MAIN(BackendTlsTest)
#include "tst_backendtls.moc"
