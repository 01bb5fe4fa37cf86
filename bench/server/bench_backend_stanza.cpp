// A message nested 30,000 levels deep, sent by a colleague straight to the back end's own
// XMPP session (the one that keeps the rooms). Prints backend_deep_stanza_survived=1 when
// the back end is still running afterwards and answers a log-in within 1 s.
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <cstdio>

#include "support/demobackend.h"
#include "support/prosody_server.h"
#include "support/scratch_folder.h"

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const ScratchFolder scratch;  // stores, server data, downloads: this run's only
    ProsodyServer prosody;
    if (!prosody.start()) {
        std::fprintf(stderr, "prosody: %s\n", qPrintable(prosody.lastError()));
        return 1;
    }
    DemoBackend backend(QStringLiteral(QUELIX_BACKEND_BIN), true);
    QByteArray printed;
    if (!backend.start(prosody, scratch.path(), &printed)) {
        std::fprintf(stderr, "the back end did not start:\n%s\n", printed.constData());
        return 1;
    }
    const QStringList names = backend.userNames(2);
    if (names.size() < 2) return 1;
    const DemoPerson mallory = backend.signIn(names[1]);

    constexpr int kLevels = 30000;
    QFile raw(scratch.filePath(QStringLiteral("deep.txt")));
    if (!raw.open(QIODevice::WriteOnly)) return 1;
    raw.write("<message to='" + prosody.adminJid().toUtf8() +
              "/rooms' type='headline'><body>deep</body><x xmlns='urn:t'>" +
              QByteArray("<a>").repeated(kLevels) + QByteArray("</a>").repeated(kLevels) +
              "</x></message>\n");
    raw.close();
    QProcess attacker;
    attacker.start(QStringLiteral("/usr/bin/python3"),
                   {QStringLiteral(QUELIX_PLAIN_CLIENT), mallory.id + "@" + prosody.domain(),
                    mallory.secret, prosody.host(), QString::number(prosody.port()),
                    prosody.adminJid(), QStringLiteral("--raw-file"), raw.fileName()});
    if (!attacker.waitForFinished(40000) || attacker.exitCode() != 0) {
        std::fprintf(stderr, "the attacking client failed\n");
        return 1;
    }
    QElapsedTimer clock;
    clock.start();
    while (!backend.log().contains("refused a <message>") && clock.elapsed() < 10000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    const bool refused = backend.log().contains("refused a <message>");

    clock.restart();
    const DemoPerson owner = backend.signIn(names[0]);
    const qint64 signInMs = clock.elapsed();
    const bool survived =
        backend.running() && refused && !owner.session.isEmpty() && signInMs <= 1000;
    std::printf(
        "deep stanza of %d levels to the back end's session: %s, log-in after it in "
        "%lld ms\n",
        kLevels, refused ? "refused" : "not seen", signInMs);
    std::printf("backend_deep_stanza_signin_ms=%lld\n", signInMs);
    std::printf("backend_deep_stanza_survived=%d\n", survived ? 1 : 0);
    return 0;
}
