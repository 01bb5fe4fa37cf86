// A message nested 30,000 levels deep reaches an SDK session (a relay in front of the
// private Prosody nests it: Prosody itself drops such stanzas), followed by an ordinary
// one. Prints deep_stanza_survived=1 when the session lives on, keeps its connection and
// reports the next message within 2 s of the deep one reaching its socket.
#include <QCoreApplication>
#include <cstdio>

#include "benchxmpp.h"
#include "support/prosody_server.h"
#include "support/scratch_folder.h"
#include "support/stream_proxy.h"
#include "support/test_session.h"

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const ScratchFolder scratch;  // stores, server data, downloads: this run's only
    ProsodyServer server;
    // Plain: the relay rewrites the stream, so it must read it.
    if (!server.start(true)) {
        std::fprintf(stderr, "prosody: %s\n", qPrintable(server.lastError()));
        return 1;
    }
    for (const char* user : {"attacker", "target"})
        server.registerUser(QLatin1String(user), QStringLiteral("pw"));

    constexpr int kLevels = 30000;
    StreamProxy proxy(server.host(), server.port());
    if (!proxy.listen()) return 1;
    proxy.rewrite("DEEP-HERE</body>", "x</body>" + QByteArray("<a>").repeated(kLevels) +
                                          QByteArray("</a>").repeated(kLevels));
    TestSession target(QStringLiteral("bench-target"));
    target.loginVia(server, proxy.port(), QStringLiteral("target"), QStringLiteral("pw"));
    if (!waitUntil([&] { return target.probe().count("loginOk") == 1; })) return 1;

    QXmppClient attacker;
    attacker.connectToServer(bench::xmppConfig(server, QStringLiteral("attacker")));
    if (!waitUntil([&] { return attacker.isConnected(); })) return 1;
    const QString to = QStringLiteral("target@") + server.domain();
    QXmppMessage deep(QString(), to, QStringLiteral("DEEP-HERE"));
    deep.setType(QXmppMessage::Chat);
    QXmppMessage next(QString(), to, QStringLiteral("the next message"));
    next.setType(QXmppMessage::Chat);
    attacker.sendPacket(deep);
    if (!waitUntil([&] { return proxy.rewrites() == 1; }, 10000)) {
        std::fprintf(stderr, "the deep stanza never passed the relay\n");
        return 1;
    }
    attacker.sendPacket(next);
    const bool shown =
        waitUntil([&] { return target.probe().count("newMessage:attacker") == 1; }, 10000);
    const qint64 ms = proxy.msSinceRewrite();
    const auto unread = target.unread(QStringLiteral("attacker"));
    const bool survived =
        shown && ms <= 2000 && target.probe().count("disconnected") == 0 && unread.size() == 1;
    std::printf("deep stanza of %d levels: next message %s after %lld ms, %d unread\n", kLevels,
                shown ? "shown" : "not shown", ms, int(unread.size()));
    std::printf("deep_stanza_next_message_ms=%lld\n", shown ? ms : -1);
    std::printf("deep_stanza_survived=%d\n", survived ? 1 : 0);
    return 0;
}
