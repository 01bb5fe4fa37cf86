// Tribe traffic through a private Prosody (or ejabberd, QUELIX_XMPP_SERVER). One sender puts 10,000
// messages into a project room with 20 members online (19 bare QXmpp sessions on a thread of their
// own and one SDK session, which stores every message before it reports it); the same SDK session
// then takes a 10,000-message one-to-one burst, for the ratio. Last, a member that was away while
// 5,000 room messages arrived signs in and catches up from the room's archive; it first signs in
// after the two bursts, so that the room has exactly 20 members online while they run.
#include <QXmppClient.h>
#include <QXmppElement.h>
#include <QXmppMessage.h>
#include <QXmppPresence.h>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QSet>
#include <QThread>
#include <atomic>
#include <cstdio>
#include <memory>
#include <vector>

#include "base/bind.h"
#include "benchxmpp.h"
#include "openim/itribe.h"
#include "openim/itribe_service.h"
#include "openim/service_guids.h"
#include "sdk/wide_text.h"
#include "support/prosody_server.h"
#include "support/room_admin.h"
#include "support/scratch_folder.h"
#include "support/test_session.h"

namespace {

constexpr quint64 kRoom = 7001;
constexpr int kBareMembers = 19;
constexpr int kTimeoutMs = 120000;
QString kAuthority;  // the server's administrator, as the back end is

bool signIn(TestSession& s, const ProsodyServer& server, const QString& account) {
    const int before = s.probe().count("loginOk");
    s.login(server, account, QStringLiteral("pw"), kAuthority);
    if (!waitUntil([&] { return s.probe().count("loginOk") > before; })) return false;
    base::scoped_refptr<openim::ITribeService> service;
    service.adopt(
        s.root()->GetService<openim::ITribeService>(openim::kTribeModule, openim::kTribeInterface));
    service->SyncTribes({openim::IMTribeID(kRoom)}, {});
    return waitUntil([&] { return s.tribe(kRoom)->IsInRoom(); });
}

void joinRoom(QXmppClient& client, const ProsodyServer& server, const QString& nick) {
    QXmppPresence p;
    p.setTo(QStringLiteral("%1@conference.%2/%3").arg(kRoom).arg(server.domain(), nick));
    QXmppElement x;
    x.setTagName(QStringLiteral("x"));
    x.setAttribute(QStringLiteral("xmlns"), QStringLiteral("http://jabber.org/protocol/muc"));
    QXmppElement history;
    history.setTagName(QStringLiteral("history"));
    history.setAttribute(QStringLiteral("maxstanzas"), QStringLiteral("0"));
    x.appendChild(history);
    p.setExtensions({x});
    client.sendPacket(p);
}

// Sends `count` messages (groupchat to the room, or chat to `to`) and returns the seconds
// until `received` reaches `target`, or -1.
double burst(QXmppClient& sender, const QString& to, bool group, int count, int first,
             const std::function<int()>& received, int target) {
    return bench::sendBurst(sender, to, group ? QXmppMessage::GroupChat : QXmppMessage::Chat, count,
                            first, QStringLiteral("tribe burst"), received, target, kTimeoutMs);
}

}  // namespace

int main(int argc, char** argv) {
    // On ejabberd (QUELIX_XMPP_SERVER, as scripts/bench runs it a second time) the figures
    // carry its name.
    const char* figures = ProsodyServer::isEjabberd() ? "ejabberd_" : "";
    QCoreApplication app(argc, argv);
    // QUELIX_BENCH_SCALE < 1 runs a smaller burst while working on the code.
    const double scale = qEnvironmentVariableIsSet("QUELIX_BENCH_SCALE")
                             ? qEnvironmentVariable("QUELIX_BENCH_SCALE").toDouble()
                             : 1.0;
    const int kBurst = int(10000 * scale), kCatchUp = int(5000 * scale);
    const ScratchFolder scratch;  // stores, server data, downloads: this run's only
    ProsodyServer server;
    if (!server.start()) {
        std::fprintf(stderr, "prosody: %s\n", qPrintable(server.lastError()));
        return 1;
    }
    QStringList members = {QStringLiteral("sender"), QStringLiteral("sdkmember"),
                           QStringLiteral("lagger")};
    for (int i = 0; i < kBareMembers; ++i) members << QStringLiteral("bare%1").arg(i);
    for (const QString& user : members + QStringList{QStringLiteral("directsender")})
        server.registerUser(user, QStringLiteral("pw"));
    kAuthority = server.adminJid().section(QLatin1Char('@'), 0, 0);
    RoomAdmin admin(server, kAuthority, server.adminSecret());
    if (!admin.connectNow() || !admin.createRoom(kRoom, QStringLiteral("bench"),
                                                 QStringLiteral("sender"), members.mid(1))) {
        std::fprintf(stderr, "cannot make the room\n");
        return 1;
    }

    TestSession sdk(QStringLiteral("sdkmember"));
    TestSession lagger(QStringLiteral("lagger"));
    if (!signIn(sdk, server, QStringLiteral("sdkmember"))) {
        std::fprintf(stderr, "the SDK member did not get into the room\n");
        return 1;
    }

    // Nineteen bare members on a thread of their own, each counting what it receives.
    QThread bareThread;
    bareThread.start();
    QObject anchor;
    anchor.moveToThread(&bareThread);
    std::vector<QXmppClient*> bare;
    std::atomic<int> bareReceived{0};
    QMetaObject::invokeMethod(
        &anchor,
        [&] {
            for (int i = 0; i < kBareMembers; ++i) {
                auto* c = new QXmppClient;
                QObject::connect(c, &QXmppClient::messageReceived, [&](const QXmppMessage& m) {
                    if (m.type() == QXmppMessage::GroupChat && !m.body().isEmpty()) ++bareReceived;
                });
                const QString nick = QStringLiteral("bare%1").arg(i);
                QObject::connect(c, &QXmppClient::connected, c,
                                 [c, &server, nick] { joinRoom(*c, server, nick); });
                c->connectToServer(bench::xmppConfig(server, nick));
                bare.push_back(c);
            }
        },
        Qt::BlockingQueuedConnection);

    QXmppClient sender;
    sender.connectToServer(bench::xmppConfig(server, QStringLiteral("sender")));
    if (!waitUntil([&] { return sender.isConnected(); })) return 1;
    joinRoom(sender, server, QStringLiteral("sender"));
    waitUntil([] { return false; }, 2000);  // everyone in the room

    const QString room = QStringLiteral("%1@conference.%2").arg(kRoom).arg(server.domain());
    auto sdkUnread = [&] { return sdk.tribe(kRoom)->GetUnreadCount(); };
    QElapsedTimer bareClock;
    bareClock.start();
    double bareSeconds = -1;
    const double tribeSeconds = burst(
        sender, room, true, kBurst, 0,
        [&] {
            if (bareSeconds < 0 && bareReceived.load() >= kBurst * kBareMembers)
                bareSeconds = bareClock.nsecsElapsed() / 1e9;
            return sdkUnread();
        },
        kBurst);
    if (tribeSeconds < 0) {
        std::fprintf(stderr, "tribe burst timed out at %d\n", sdkUnread());
        return 1;
    }
    waitUntil([&] { return bareReceived.load() >= kBurst * kBareMembers; }, 30000);
    if (bareSeconds < 0) bareSeconds = bareClock.nsecsElapsed() / 1e9;
    std::printf(
        "tribe burst: %d messages stored by the SDK member in %.2f s; the %d bare members had "
        "all %d after %.2f s\n",
        kBurst, tribeSeconds, kBareMembers, bareReceived.load(), bareSeconds);

    // The same SDK session, one to one.
    QXmppClient direct;
    direct.connectToServer(bench::xmppConfig(server, QStringLiteral("directsender")));
    if (!waitUntil([&] { return direct.isConnected(); })) return 1;
    const double directSeconds = burst(
        direct, QStringLiteral("sdkmember@") + server.domain(), false, kBurst, 0,
        [&] { return sdk.unreadCount(QStringLiteral("directsender")); }, kBurst);
    if (directSeconds < 0) {
        std::fprintf(stderr, "direct burst timed out\n");
        return 1;
    }
    std::printf("direct burst: %d messages in %.2f s\n", kBurst, directSeconds);

    // Catch-up: the lagger sees one message (where its catch-up will start), is away while
    // 5,000 arrive, and signs in again; their live time is the SDK member's.
    if (!signIn(lagger, server, QStringLiteral("lagger"))) {
        std::fprintf(stderr, "the lagger did not get into the room\n");
        return 1;
    }
    if (burst(
            sender, room, true, 1, kBurst, [&] { return lagger.tribe(kRoom)->GetUnreadCount(); },
            1) < 0 ||
        !waitUntil([&] { return sdkUnread() >= kBurst + 1; })) {
        std::fprintf(stderr, "the lagger's first message did not arrive\n");
        return 1;
    }
    lagger.tribe(kRoom)->MarkRead();
    lagger.logout();
    waitUntil([&] { return lagger.probe().count("logouted") == 1; });
    const double liveSeconds =
        burst(sender, room, true, kCatchUp, kBurst + 1, sdkUnread, kBurst + 1 + kCatchUp);
    if (liveSeconds < 0)
        std::fprintf(stderr, "live part timed out at %d (sender connected: %d)\n", sdkUnread(),
                     int(sender.isConnected()));
    QElapsedTimer catchUp;
    catchUp.start();
    lagger.login(server, QStringLiteral("lagger"), QStringLiteral("pw"), kAuthority);
    const bool caughtUp =
        waitUntil([&] { return lagger.tribe(kRoom)->GetUnreadCount() >= kCatchUp; }, kTimeoutMs);
    const double catchUpMs = catchUp.nsecsElapsed() / 1e6;
    waitUntil([] { return false; }, 1500);  // anything doubled would come now
    std::vector<openim::IMTribeMessage> got;
    lagger.tribe(kRoom)->GetUnreadMessages(&got);
    QSet<QString> distinct;
    for (const auto& m : got) distinct.insert(wide_text::toQ(m.content.content));
    int lost = 0;
    for (int i = 0; i < kCatchUp; ++i)
        if (!distinct.contains(QStringLiteral("tribe burst %1").arg(kBurst + 1 + i))) ++lost;
    const int doubled = int(got.size()) - distinct.size();

    QMetaObject::invokeMethod(
        &anchor, [&] { qDeleteAll(bare); }, Qt::BlockingQueuedConnection);
    bareThread.quit();
    bareThread.wait();

    std::printf("catch-up: %s, %zu stored, live time %.0f ms\n",
                caughtUp ? "complete" : "timed out", got.size(), liveSeconds * 1000);
    std::printf("%stribe_burst_msgs_per_s=%d\n", figures, int(kBurst / tribeSeconds));
    if (ProsodyServer::isEjabberd())
        std::printf("ejabberd_room_fanout_msgs_per_s=%d\n", int(kBurst / tribeSeconds));
    std::printf("%sdirect_burst_msgs_per_s=%d\n", figures, int(kBurst / directSeconds));
    std::printf("%stribe_vs_direct_ratio=%.2f\n", figures, directSeconds / tribeSeconds);
    // The room's pace is the server's: how the SDK member keeps up with bare members in the
    // same room says what the SDK itself costs.
    std::printf("%stribe_sdk_vs_bare_member_ratio=%.2f\n", figures, bareSeconds / tribeSeconds);
    std::printf("%stribe_catchup_5000_ms=%.0f\n", figures, catchUpMs);
    std::printf("%stribe_catchup_vs_live_ratio=%.2f\n", figures, catchUpMs / (liveSeconds * 1000));
    std::printf("%stribe_catchup_lost=%d\n", figures, lost);
    std::printf("%stribe_catchup_doubled=%d\n", figures, doubled);
    return caughtUp ? 0 : 1;
}
