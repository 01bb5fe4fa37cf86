// IM accounts provisioned for colleagues really sign in to a real Prosody (private config,
// data folder and port) and a real ejabberd (the dev stack's), and a wrong secret does not.
#include "commandprovisioner.h"
#include "ejabberdapiprovisioner.h"
#include "prosodystoreprovisioner.h"
#include "support/claimedport.h"

#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

namespace {

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
bool authenticate(QTcpSocket& socket, int port, const QString& user, const QString& secret,
                  const QString& domain = QStringLiteral("localhost")) {
    socket.connectToHost(QHostAddress::LocalHost, quint16(port));
    if (!socket.waitForConnected(2000)) return false;
    const QByteArray open = "<?xml version='1.0'?><stream:stream to='" + domain.toUtf8() +
                            "' xmlns='jabber:client' "
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

bool signsIn(int port, const QString& user, const QString& secret,
             const QString& domain = QStringLiteral("localhost")) {
    QTcpSocket socket;
    return authenticate(socket, port, user, secret, domain);
}

// The roster `user` is given: the JIDs in it.
QByteArray rosterOf(int port, const QString& user, const QString& secret, const QString& domain) {
    QTcpSocket socket;
    if (!authenticate(socket, port, user, secret, domain)) return "(no session)";
    socket.write("<iq type='get' id='roster1'><query xmlns='jabber:iq:roster'/></iq>");
    return readUntil(socket, {"</iq>", "<query xmlns='jabber:iq:roster'/>"});
}

// The dev stack's ejabberd, without TLS (the bare stream above), in a folder of its own.
class EjabberdDev {
public:
    ~EjabberdDev() {
        if (started_) run({QStringLiteral("stop")});
    }
    // One node, or a cluster of `nodes`.
    bool start(int nodes = 1) {
        QString out;
        const QStringList command =
            nodes == 1 ? QStringList{QStringLiteral("start")}
                       : QStringList{QStringLiteral("cluster"), QString::number(nodes)};
        if (!run(command + QStringList{QStringLiteral("--plain")}, &out)) return false;
        started_ = true;
        for (const QString& line : out.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
            env_.insert(line.section(QLatin1Char('='), 0, 0), line.section(QLatin1Char('='), 1));
        return true;
    }
    QString value(const char* key) const { return env_.value(QLatin1String(key)); }
    QString error;

private:
    bool run(const QStringList& args, QString* out = nullptr) {
        QProcess p;
        p.start(
            QStringLiteral(QUELIX_DEVSTACK_DIR "/ejabberd-dev"),
            QStringList{QStringLiteral("-d"), dir_.filePath(QStringLiteral("instance"))} + args);
        const bool ok = p.waitForFinished(120000) && p.exitCode() == 0;
        error = QString::fromLocal8Bit(p.readAllStandardError());
        if (out) *out = QString::fromLocal8Bit(p.readAllStandardOutput());
        return ok;
    }
    QTemporaryDir dir_;
    QMap<QString, QString> env_;
    bool started_ = false;
};

}  // namespace

class ImProvisioningTest : public QObject {
    Q_OBJECT

private slots:
    void accountsSignInToProsody();
    void accountsSignInToEjabberdAndShareTheirPresence();
    void accountsMadeOnOneNodeSignInOnEveryNodeOfACluster();
};

void ImProvisioningTest::accountsSignInToProsody() {
    const QString prosody = QStandardPaths::findExecutable(QStringLiteral("prosody"));
    const QString prosodyctl = QStandardPaths::findExecutable(QStringLiteral("prosodyctl"));
    if (prosody.isEmpty() || prosodyctl.isEmpty()) QSKIP("prosody is not installed");

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const int port = claimedPort();
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
            .arg(claimedPort())
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

void ImProvisioningTest::accountsSignInToEjabberdAndShareTheirPresence() {
    if (QStandardPaths::findExecutable(QStringLiteral("erl")).isEmpty() ||
        !QFile::exists(QStringLiteral("/usr/sbin/ejabberdctl")))
        QSKIP("ejabberd is not installed");
    EjabberdDev server;
    QVERIFY2(server.start(), qPrintable(server.error));
    const QString domain = server.value("XMPP_DOMAIN");
    const int port = server.value("XMPP_PORT").toInt();
    EjabberdApiProvisioner::Settings settings;
    settings.api = QUrl(server.value("XMPP_API_URL"));
    settings.domain = domain;
    settings.adminJid = server.value("XMPP_ADMIN_JID");
    settings.adminSecret = server.value("XMPP_ADMIN_SECRET");
    settings.rosterGroup = QStringLiteral("staff");  // one the server does not have yet
    settings.parallel = 3;

    QString error;
    QVector<ImProvisioner::Account> accounts;
    for (int i = 0; i < 12; ++i)
        accounts.append({QString::number(10001 + i), QStringLiteral("secret-%1").arg(i)});
    accounts[0].secret = QStringLiteral("s3cret\"quote \\ 你好");
    QVERIFY2(EjabberdApiProvisioner(settings).provision(accounts, &error), qPrintable(error));
    // Again on the same server, as after a restart on kept data: secrets are reset.
    accounts[1].secret = QStringLiteral("changed");
    QVERIFY2(EjabberdApiProvisioner(settings).provision(accounts, &error), qPrintable(error));

    QVERIFY(signsIn(port, QStringLiteral("10001"), accounts[0].secret, domain));
    QVERIFY(signsIn(port, QStringLiteral("10002"), QStringLiteral("changed"), domain));
    QVERIFY(!signsIn(port, QStringLiteral("10002"), QStringLiteral("secret-1"), domain));
    QVERIFY(signsIn(port, QStringLiteral("10012"), QStringLiteral("secret-11"), domain));
    QVERIFY(!signsIn(port, QStringLiteral("10013"), QStringLiteral("secret-12"), domain));

    // Colleagues are in each other's rosters; the administrator is in nobody's, and has none.
    const QByteArray roster = rosterOf(port, QStringLiteral("10001"), accounts[0].secret, domain);
    QVERIFY2(roster.contains("10002@" + domain.toUtf8()), roster.constData());
    QVERIFY2(roster.contains("10012@" + domain.toUtf8()), roster.constData());
    QVERIFY2(!roster.contains("jid='10001@"), roster.constData());
    QVERIFY2(!roster.contains("jid='" + settings.adminJid.toUtf8()), roster.constData());
    const QByteArray adminRoster = rosterOf(port, settings.adminJid.section(QLatin1Char('@'), 0, 0),
                                            settings.adminSecret, domain);
    QVERIFY2(adminRoster.contains("type='result'") && !adminRoster.contains("jid='10001@"),
             adminRoster.constData());

    // Only the administrator may provision, and a failure says why.
    EjabberdApiProvisioner::Settings intruder = settings;
    intruder.adminJid = QStringLiteral("10001@") + domain;
    intruder.adminSecret = accounts[0].secret;
    QVERIFY(!EjabberdApiProvisioner(intruder).provision(accounts, &error));
    QVERIFY2(error.contains(QLatin1String("403")), qPrintable(error));
    intruder.adminJid = settings.adminJid;
    intruder.adminSecret = QStringLiteral("wrong");
    QVERIFY(!EjabberdApiProvisioner(intruder).provision(accounts, &error));
    QVERIFY2(error.contains(QLatin1String("401")), qPrintable(error));
    QVERIFY(
        !EjabberdApiProvisioner(settings).provision({{QStringLiteral("bad name"), "x"}}, &error));
    QVERIFY2(error.contains(QLatin1String("bad name")), qPrintable(error));
}

void ImProvisioningTest::accountsMadeOnOneNodeSignInOnEveryNodeOfACluster() {
    if (QStandardPaths::findExecutable(QStringLiteral("erl")).isEmpty() ||
        !QFile::exists(QStringLiteral("/usr/sbin/ejabberdctl")))
        QSKIP("ejabberd is not installed");
    EjabberdDev cluster;
    QVERIFY2(cluster.start(2), qPrintable(cluster.error));
    QCOMPARE(cluster.value("XMPP_NODES"), QStringLiteral("2"));
    const QString domain = cluster.value("XMPP_DOMAIN");
    const QStringList ports = cluster.value("XMPP_PORTS").split(QLatin1Char(','));
    const QStringList apis = cluster.value("XMPP_API_URLS").split(QLatin1Char(','));
    QCOMPARE(ports.size(), 2);
    QCOMPARE(apis.size(), 2);
    QVERIFY(ports[0] != ports[1] && apis[0] != apis[1]);

    // Through the second node's API; the accounts and the group are the cluster's.
    EjabberdApiProvisioner::Settings settings;
    settings.api = QUrl(apis[1]);
    settings.domain = domain;
    settings.adminJid = cluster.value("XMPP_ADMIN_JID");
    settings.adminSecret = cluster.value("XMPP_ADMIN_SECRET");
    settings.rosterGroup = cluster.value("XMPP_ROSTER_GROUP");
    QString error;
    const QVector<ImProvisioner::Account> accounts{
        {QStringLiteral("10001"), QStringLiteral("one")},
        {QStringLiteral("10002"), QStringLiteral("two")}};
    QVERIFY2(EjabberdApiProvisioner(settings).provision(accounts, &error), qPrintable(error));
    for (const QString& port : ports) {
        QVERIFY(signsIn(port.toInt(), QStringLiteral("10001"), QStringLiteral("one"), domain));
        const QByteArray roster =
            rosterOf(port.toInt(), QStringLiteral("10002"), QStringLiteral("two"), domain);
        QVERIFY2(roster.contains("jid='10001@" + domain.toUtf8()), roster.constData());
    }
}

QTEST_GUILESS_MAIN(ImProvisioningTest)
#include "tst_improvisioning.moc"
