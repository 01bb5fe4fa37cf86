// 10,000 chat messages from one sender to one receiver through a private Prosody: first to
// an SDK session (which stores every message before it reports it), then to a bare QXmpp
// client as the baseline; then the SDK's burst again on a private ejabberd. Prints messages
// per second, the SDK's idle memory and ejabberd's time over Prosody's.
#include <QXmppClient.h>
#include <QXmppConfiguration.h>
#include <QXmppMessage.h>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QThread>
#include <atomic>
#include <cstdio>

#include "base/bind.h"
#include "base/ref_counted.h"
#include "benchfigures.h"
#include "benchxmpp.h"
#include "openim/iconversation_service.h"
#include "openim/service_guids.h"
#include "support/prosody_server.h"
#include "support/scratch_folder.h"
#include "support/test_session.h"

namespace {

constexpr int kMessages = 10000;
constexpr int kTimeoutMs = 60000;

class BurstCounter : public base::RefCountedThreadSafe<BurstCounter> {
public:
    void OnNewMessage(openim::IMUserID) { ++count; }
    std::atomic<int> count{0};
};

bool connectClient(QXmppClient& client, const QXmppConfiguration& c) {
    client.connectToServer(c);
    return waitUntil([&] { return client.isConnected(); });
}

// Sends the burst and returns the seconds until `received` reached kMessages (or -1).
double burst(QXmppClient& sender, const QString& to, const std::function<int()>& received) {
    return bench::sendBurst(sender, to, QXmppMessage::Chat, kMessages, 0,
                            QStringLiteral("burst message"), received, kMessages, kTimeoutMs);
}

// The SDK receiver's burst on `server`: seconds until every message was stored and reported
// (-1 on failure, which is printed). `idleRss` gets the signed-in session's memory.
double sdkBurst(const ProsodyServer& server, const QString& name, long* idleRss) {
    TestSession sdk(name);
    base::scoped_refptr<BurstCounter> counter(new BurstCounter);
    sdk.conversationService()->RegisterNewMessageCallback(
        base::Bind(&BurstCounter::OnNewMessage, counter.get()));
    sdk.login(server, QStringLiteral("sdkreceiver"), QStringLiteral("pw"));
    if (!waitUntil([&] { return sdk.probe().count("loginOk") == 1; })) return -1;
    waitUntil([] { return false; }, 1000);
    if (idleRss) *idleRss = bench::rssKb();

    QXmppClient sender;
    if (!connectClient(sender, bench::xmppConfig(server, QStringLiteral("sender")))) return -1;
    // Should the link drop mid-burst, sign in again as the client's retry timer would; the
    // rest arrives from offline storage and the archive.
    // One report can cover a whole commit of messages, so the store is what is counted; it is
    // asked again only after a new report.
    int reports = 0;
    int stored = 0;
    const double seconds = burst(sender, QStringLiteral("sdkreceiver@") + server.domain(), [&] {
        if (sdk.probe().count("disconnected") > sdk.probe().count("reloginOk")) sdk.relogin();
        if (counter->count.load() != reports) {
            reports = counter->count.load();
            stored = sdk.unreadCount(QStringLiteral("sender"));
        }
        return stored;
    });
    if (seconds < 0)
        std::fprintf(stderr, "SDK burst timed out at %d messages (session events: %s)\n", stored,
                     qPrintable(sdk.probe().events().join(QLatin1Char(' '))));
    return seconds;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const ScratchFolder scratch;  // stores, server data, downloads: this run's only
    ProsodyServer server;
    if (!server.start()) {
        std::fprintf(stderr, "prosody: %s\n", qPrintable(server.lastError()));
        return 1;
    }
    for (const char* user : {"sender", "baresender", "sdkreceiver", "barereceiver"})
        server.registerUser(QLatin1String(user), QStringLiteral("pw"));

    long idleRss = 0;
    const double sdkSeconds = sdkBurst(server, QStringLiteral("bench-receiver"), &idleRss);
    if (sdkSeconds < 0) return 1;
    std::printf("sdk burst: %d messages stored and reported in %.2f s\n", kMessages, sdkSeconds);

    // The baseline: a bare client on a thread of its own, as the SDK has.
    QThread bareThread;
    bareThread.start();
    std::atomic<int> bareCount{0};
    QXmppClient* bare = nullptr;
    QObject anchor;
    anchor.moveToThread(&bareThread);
    const QXmppConfiguration bareConfig = bench::xmppConfig(server, QStringLiteral("barereceiver"));
    QMetaObject::invokeMethod(
        &anchor,
        [&] {
            bare = new QXmppClient;
            QObject::connect(bare, &QXmppClient::messageReceived, [&](const QXmppMessage& m) {
                if (!m.body().isEmpty()) ++bareCount;
            });
            bare->connectToServer(bareConfig);
        },
        Qt::BlockingQueuedConnection);
    bool bareUp = waitUntil([&] {
        bool up = false;
        QMetaObject::invokeMethod(
            &anchor, [&] { up = bare->isConnected(); }, Qt::BlockingQueuedConnection);
        return up;
    });
    // A sender of its own, so that both bursts meet the server's archives equally empty.
    QXmppClient bareSender;
    bareUp = bareUp &&
             connectClient(bareSender, bench::xmppConfig(server, QStringLiteral("baresender")));
    const double bareSeconds =
        bareUp ? burst(bareSender, QStringLiteral("barereceiver@") + server.domain(),
                       [&] { return bareCount.load(); })
               : -1;
    QMetaObject::invokeMethod(
        &anchor, [&] { delete bare; }, Qt::BlockingQueuedConnection);
    bareThread.quit();
    bareThread.wait();
    if (bareSeconds < 0) {
        std::fprintf(stderr, "bare burst failed at %d messages (sender connected: %d)\n",
                     bareCount.load(), int(bareSender.isConnected()));
        return 1;
    }
    std::printf("bare burst: %d messages in %.2f s; sdk/bare time ratio %.2f\n", kMessages,
                bareSeconds, sdkSeconds / bareSeconds);
    std::printf("sdk_burst_msgs_per_s=%d\n", int(kMessages / sdkSeconds));
    std::printf("bare_burst_msgs_per_s=%d\n", int(kMessages / bareSeconds));
    std::printf("sdk_idle_rss_kb=%ld\n", idleRss);

    // The same SDK burst on ejabberd, the clustered server a growing company moves to.
    qputenv("QUELIX_XMPP_SERVER", "ejabberd");
    ProsodyServer ejabberd;
    if (!ejabberd.start()) {
        std::fprintf(stderr, "ejabberd: %s; its figures are not measured\n",
                     qPrintable(ejabberd.lastError()));
        return 0;
    }
    for (const char* user : {"sender", "sdkreceiver"})
        ejabberd.registerUser(QLatin1String(user), QStringLiteral("pw"));
    const double ejabberdSeconds = sdkBurst(ejabberd, QStringLiteral("bench-receiver-ej"), nullptr);
    if (ejabberdSeconds < 0) return 1;
    std::printf("sdk burst on ejabberd: %d messages in %.2f s\n", kMessages, ejabberdSeconds);
    std::printf("ejabberd_sdk_burst_msgs_per_s=%d\n", int(kMessages / ejabberdSeconds));
    std::printf("ejabberd_burst_vs_prosody_ratio=%.2f\n", ejabberdSeconds / sdkSeconds);
    return 0;
}
