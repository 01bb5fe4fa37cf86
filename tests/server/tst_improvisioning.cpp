// IM accounts provisioned for colleagues really sign in to a real Prosody (private config,
// data folder and port), and a wrong secret does not.
#include "commandprovisioner.h"
#include "prosodystoreprovisioner.h"

#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

namespace {

int freePort() {
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

QByteArray readUntil(QTcpSocket& socket, const QList<QByteArray>& ends, QByteArray sofar = {}) {
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 5000) {
        for (const QByteArray& e : ends) {
            if (sofar.contains(e)) return sofar;
        }
        if (!socket.waitForReadyRead(200) && socket.state() != QAbstractSocket::ConnectedState)
            break;
        sofar += socket.readAll();
    }
    return sofar;
}

// A bare client stream: SASL PLAIN without TLS, which the test server allows on loopback.
// Returns the connected, authenticated socket's answer; `socket` stays open for more.
bool authenticate(QTcpSocket& socket, int port, const QString& user, const QString& secret) {
    socket.connectToHost(QHostAddress::LocalHost, quint16(port));
    if (!socket.waitForConnected(2000)) return false;
    const QByteArray open =
        "<?xml version='1.0'?><stream:stream to='localhost' xmlns='jabber:client' "
        "xmlns:stream='http://etherx.jabber.org/streams' version='1.0'>";
    socket.write(open);
    const QByteArray features = readUntil(socket, {"</stream:features>"});
    if (!features.contains("PLAIN")) return false;
    const QByteArray auth = QByteArray('\0' + user.toUtf8() + '\0' + secret.toUtf8()).toBase64();
    socket.write("<auth xmlns='urn:ietf:params:xml:ns:xmpp-sasl' mechanism='PLAIN'>" + auth +
                 "</auth>");
    if (!readUntil(socket, {"<success", "<failure"}).contains("<success")) return false;
    socket.write(open);
    readUntil(socket, {"</stream:features>"});
    socket.write(
        "<iq type='set' id='bind1'><bind xmlns='urn:ietf:params:xml:ns:xmpp-bind'>"
        "<resource>test</resource></bind></iq>");
    return readUntil(socket, {"</iq>", "/>"}).contains("result");
}

bool signsIn(int port, const QString& user, const QString& secret) {
    QTcpSocket socket;
    return authenticate(socket, port, user, secret);
}

}  // namespace

class ImProvisioningTest : public QObject {
    Q_OBJECT

private slots:
    void accountsSignInToProsody();
};

void ImProvisioningTest::accountsSignInToProsody() {
    const QString prosody = QStandardPaths::findExecutable(QStringLiteral("prosody"));
    const QString prosodyctl = QStandardPaths::findExecutable(QStringLiteral("prosodyctl"));
    if (prosody.isEmpty() || prosodyctl.isEmpty()) QSKIP("prosody is not installed");

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const int port = freePort();
    const QString data = dir.filePath(QStringLiteral("data"));
    QVERIFY(QDir().mkpath(data));
    const QString config = dir.filePath(QStringLiteral("prosody.cfg.lua"));
    QFile cfg(config);
    QVERIFY(cfg.open(QIODevice::WriteOnly));
    // Root may run this test (as on CI): Prosody then needs to be told to stay root.
    cfg.write(
        QStringLiteral("run_as_root = true\nprosody_user = \"root\"\nprosody_group = \"root\"\n"
                       "daemonize = false\npidfile = \"%1/prosody.pid\"\ndata_path = \"%2\"\n"
                       "log = { warn = \"%1/prosody.log\" }\n"
                       "c2s_ports = { %3 }\ns2s_ports = { %4 }\ncomponent_ports = { }\n"
                       "http_ports = { }\nhttps_ports = { }\nc2s_direct_tls_ports = { }\n"
                       "c2s_require_encryption = false\nallow_unencrypted_plain_auth = true\n"
                       "authentication = \"internal_hashed\"\nstorage = \"internal\"\n"
                       "modules_enabled = { \"saslauth\"; \"disco\"; \"ping\" }\n"
                       "VirtualHost \"localhost\"\n")
            .arg(dir.path(), data)
            .arg(port)
            .arg(freePort())
            .toUtf8());
    cfg.close();

    // Most accounts through the data folder, one through Prosody's own tool.
    ProsodyStoreProvisioner store(data, QStringLiteral("localhost"));
    QString error;
    QVERIFY2(store.provision({{QStringLiteral("10001"), QStringLiteral("s3cret\"quote")},
                              {QStringLiteral("10002"), QStringLiteral("second-secret")}},
                             &error),
             qPrintable(error));
    CommandProvisioner tool(
        QStringLiteral("localhost"),
        {prosodyctl, QStringLiteral("--config"), config, QStringLiteral("register"),
         QStringLiteral("%u"), QStringLiteral("%d"), QStringLiteral("%p")});
    QVERIFY2(tool.provision({{QStringLiteral("10003"), QStringLiteral("third secret")}}, &error),
             qPrintable(error));
    CommandProvisioner broken(QStringLiteral("localhost"), {QStringLiteral("false")});
    QVERIFY(!broken.provision({{QStringLiteral("10004"), QStringLiteral("x")}}, &error));
    QVERIFY(!error.isEmpty());

    QProcess server;
    server.setProcessChannelMode(QProcess::MergedChannels);
    server.start(prosody, {QStringLiteral("-F"), QStringLiteral("--config"), config});
    QVERIFY(server.waitForStarted());
    bool up = false;
    for (int i = 0; i < 100 && !up; ++i) {
        QTcpSocket probe;
        probe.connectToHost(QHostAddress::LocalHost, quint16(port));
        up = probe.waitForConnected(100);
        if (!up) QTest::qWait(100);
    }
    QVERIFY2(up, server.readAll().constData());

    QVERIFY(signsIn(port, QStringLiteral("10001"), QStringLiteral("s3cret\"quote")));
    QVERIFY(signsIn(port, QStringLiteral("10002"), QStringLiteral("second-secret")));
    QVERIFY(signsIn(port, QStringLiteral("10003"), QStringLiteral("third secret")));
    QVERIFY(!signsIn(port, QStringLiteral("10001"), QStringLiteral("second-secret")));
    QVERIFY(!signsIn(port, QStringLiteral("10009"), QStringLiteral("s3cret\"quote")));

    server.terminate();
    if (!server.waitForFinished(5000)) {
        server.kill();
        server.waitForFinished();
    }
}

QTEST_GUILESS_MAIN(ImProvisioningTest)
#include "tst_improvisioning.moc"
