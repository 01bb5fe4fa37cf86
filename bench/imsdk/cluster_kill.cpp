// Two ejabberd nodes in one cluster. alice signs in on node 1, bob on node 2, each knowing
// both nodes. alice sends bob 600 messages, two every 10 ms; after the first 200 her node is
// killed (kill -9), and in a second run on a fresh cluster bob's. alice's client reconnects to node
// 2 as its retry timer would and sends again what node 1 never confirmed; what she wrote while
// offline is reported failed at once (the page shows those with 重新发送). Counted at bob's end:
// messages reported sent that never arrived (lost) and messages that arrived twice (doubled).
#include <QCoreApplication>
#include <QSet>
#include <QTemporaryDir>
#include <QTimer>
#include <csignal>
#include <cstdio>

#include "sdk/wide_text.h"
#include "support/prosody_server.h"
#include "support/test_session.h"

using wide_text::toQ;

namespace {

constexpr int kMessages = 600;
constexpr int kKillAfter = 200;

QString line(int n) { return QStringLiteral("c%1").arg(n, 4, 10, QLatin1Char('0')); }

struct Outcome {
    int sent = 0, confirmed = 0, failed = 0, arrived = 0, distinct = 0, outOfOrder = 0;
    bool settled = false;
    int lost() const {
        return qMax(0, confirmed - distinct) + (settled ? 0 : sent - confirmed - failed);
    }
};

// One run on a fresh cluster; `killReceivers` kills bob's node instead of alice's.
bool run(bool killReceivers, Outcome* o) {
    ProsodyServer cluster;
    if (!cluster.startCluster(2) || cluster.nodePorts().size() != 2 ||
        cluster.nodePids().size() != 2) {
        std::fprintf(stderr, "ejabberd cluster: %s\n", qPrintable(cluster.lastError()));
        return false;
    }
    for (const char* user : {"alice", "bob"})
        cluster.registerUser(QLatin1String(user), QStringLiteral("pw-") + user);
    const QString host = cluster.host();
    const QString one = QStringLiteral("%1:%2").arg(host).arg(cluster.nodePorts().at(0));
    const QString two = QStringLiteral("%1:%2").arg(host).arg(cluster.nodePorts().at(1));

    const QString tag = killReceivers ? QStringLiteral("r") : QStringLiteral("s");
    TestSession alice(QStringLiteral("cluster-alice-") + tag);
    TestSession bob(QStringLiteral("cluster-bob-") + tag);
    alice.setEndpoints(one + QLatin1Char(',') + two);
    bob.setEndpoints(two + QLatin1Char(',') + one);
    alice.login(cluster, QStringLiteral("alice"), QStringLiteral("pw-alice"));
    bob.login(cluster, QStringLiteral("bob"), QStringLiteral("pw-bob"));
    if (!waitUntil([&] { return alice.probe().count("loginOk") && bob.probe().count("loginOk"); },
                   30000)) {
        std::fprintf(stderr, "the sessions did not sign in\n");
        return false;
    }
    // As the client's retry timer does: a session that dropped signs in again.
    const auto keepUp = [](TestSession& s) {
        SessionProbe& p = s.probe();
        if (p.count("disconnected") > p.count("reloginOk") &&
            p.count("reloginFail") + p.count("reloginOk") >= p.count("disconnected") - 1)
            s.relogin();
    };
    bool killed = false;
    QTimer pace;
    QObject::connect(&pace, &QTimer::timeout, [&] {
        for (int i = 0; i < 2 && o->sent < kMessages; ++i)
            alice.sendText(QStringLiteral("bob"), line(++o->sent));
        if (!killed && o->sent >= kKillAfter) {
            killed = true;
            ::kill(pid_t(cluster.nodePids().at(killReceivers ? 1 : 0)), SIGKILL);
        }
    });
    QTimer retry;
    QObject::connect(&retry, &QTimer::timeout, [&] {
        keepUp(alice);
        keepUp(bob);
    });
    pace.start(10);
    retry.start(200);
    // Every message gets one outcome.
    o->settled = waitUntil(
        [&] { return o->sent == kMessages && alice.probe().count("sent") == kMessages; }, 120000);
    pace.stop();
    o->confirmed = alice.probe().count("sent:0:0");
    o->failed = alice.probe().count("sent") - o->confirmed;
    waitUntil([&] { return int(bob.unread(QStringLiteral("alice")).size()) >= o->confirmed; },
              60000);
    waitUntil([] { return false; }, 2000);  // copies would come now
    retry.stop();
    QStringList got;
    for (const auto& m : bob.unread(QStringLiteral("alice"))) got << toQ(m.content.content);
    o->arrived = int(got.size());
    o->distinct = int(QSet<QString>(got.begin(), got.end()).size());
    for (int i = 1; i < got.size(); ++i)
        if (got.at(i) < got.at(i - 1)) ++o->outOfOrder;
    std::printf(
        "kill of the %s node: %d sent, %d confirmed, %d reported failed, %d arrived "
        "(%d distinct, %d out of order)%s\n",
        killReceivers ? "receiver's" : "sender's", o->sent, o->confirmed, o->failed, o->arrived,
        o->distinct, o->outOfOrder, o->settled ? "" : ", not every send had an outcome");
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QTemporaryDir scratch;
    if (!qEnvironmentVariableIsSet("QUELIX_TEST_TMP"))
        qputenv("QUELIX_TEST_TMP", scratch.path().toLocal8Bit());
    qputenv("QUELIX_XMPP_SERVER", "ejabberd");
    Outcome sender, receiver;
    if (!run(false, &sender) || !run(true, &receiver)) return 1;
    std::printf("cluster_kill_lost=%d\n", sender.lost() + receiver.lost());
    std::printf("cluster_kill_doubled=%d\n",
                sender.arrived - sender.distinct + receiver.arrived - receiver.distinct);
    std::printf("cluster_kill_out_of_order=%d\n", sender.outOfOrder + receiver.outOfOrder);
    std::printf("cluster_kill_failed_shown=%d\n", sender.failed + receiver.failed);
    return 0;
}
