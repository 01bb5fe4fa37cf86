// The back end's own XMPP session against a hostile colleague: stanzas nested far too deep or
// carrying thousands of attributes, sent straight to the session the back end keeps rooms
// with. The back end logs what it refused and goes on serving log-ins and keeping rooms.
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include "support/demobackend.h"
#include "support/prosody_server.h"

class BackendStanzasTest : public QObject {
    Q_OBJECT
private slots:
    void hostileStanzasToTheAdminSessionAreRefusedAndServiceGoesOn();
};

namespace {

QByteArray nested(const QByteArray& open, const QByteArray& close, int levels) {
    return open + QByteArray("<a>").repeated(levels) + QByteArray("</a>").repeated(levels) + close;
}

}  // namespace

void BackendStanzasTest::hostileStanzasToTheAdminSessionAreRefusedAndServiceGoesOn() {
    ProsodyServer prosody;
    QVERIFY2(prosody.start(), qPrintable(prosody.lastError()));
    QTemporaryDir data;
    DemoBackend backend(QStringLiteral(QUELIX_BACKEND_BIN), true);
    QByteArray printed;
    QVERIFY2(backend.start(prosody, data.path(), &printed), printed.constData());

    const QStringList names = backend.userNames(3);
    QCOMPARE(names.size(), 3);
    const DemoPerson mallory = backend.signIn(names[1]);
    QVERIFY(!mallory.secret.isEmpty());

    // Straight to the session that keeps the rooms, as messages and as answers it might be
    // waiting for.
    const QByteArray admin = prosody.adminJid().toUtf8() + "/rooms";
    QByteArray attributes;
    for (int i = 0; i < 3000; ++i) attributes += " a" + QByteArray::number(i) + "='x'";
    const QList<QByteArray> stanzas = {
        // A headline: the server hands it on without keeping a copy (its archive cannot store
        // a tree this deep).
        nested("<message to='" + admin + "' type='headline'><body>deep</body><x xmlns='urn:t'>",
               "</x></message>", 30000),
        nested("<iq to='" + admin + "' type='result' id='guess'>", "</iq>", 30000),
        nested("<iq to='" + admin + "' type='set' id='deep-set'>", "</iq>", 8000),
        // The attributes on a child: a server keeps those as they are (ejabberd rebuilds a
        // stanza's own element from the attributes it knows).
        "<message to='" + admin + "' type='chat'><body>wide</body><x xmlns='urn:t'" + attributes +
            "/></message>",
    };
    QFile raw(data.path() + QStringLiteral("/raw.txt"));
    QVERIFY(raw.open(QIODevice::WriteOnly));
    for (const QByteArray& s : stanzas) raw.write(s + "\n");
    raw.close();

    QProcess attacker;
    attacker.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    attacker.start(QStringLiteral("/usr/bin/python3"),
                   {QStringLiteral(QUELIX_PLAIN_CLIENT), mallory.id + "@" + prosody.domain(),
                    mallory.secret, prosody.host(), QString::number(prosody.port()),
                    prosody.adminJid(), QStringLiteral("--raw-file"), raw.fileName()});
    QVERIFY(attacker.waitForFinished(40000));
    QCOMPARE(attacker.exitCode(), 0);

    // Every stanza reached the session and was refused there, one line each.
    QElapsedTimer clock;
    clock.start();
    while (backend.log().count("refused a <") < 4 && clock.elapsed() < 10000) QTest::qWait(50);
    const QByteArray log = backend.log();
    QVERIFY2(backend.running(), log.right(2000).constData());
    QCOMPARE(log.count("rooms: XMPP session: refused a <message> from the server: nested deeper"),
             1);
    QCOMPARE(log.count("rooms: XMPP session: refused a <iq> from the server: nested deeper"), 2);
    QCOMPARE(log.count("more than 64 attributes on one element"), 1);

    // Log-ins are answered at once, and rooms are still kept: a new project's room gets ready.
    clock.restart();
    const DemoPerson owner = backend.signIn(names[0]);
    QVERIFY(!owner.session.isEmpty());
    QVERIFY2(clock.elapsed() < 1000, qPrintable(QString::number(clock.elapsed())));
    const QString project =
        backend.startProject(owner, QStringLiteral("After the attack"), {owner.id, mallory.id});
    QVERIFY(!project.isEmpty());
    QVERIFY(backend.running());
}

QTEST_GUILESS_MAIN(BackendStanzasTest)
#include "tst_backendstanzas.moc"
