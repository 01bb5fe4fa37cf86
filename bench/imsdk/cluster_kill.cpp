// Two ejabberd nodes in one cluster. alice signs in on node 1, bob on node 2, each knowing
// both nodes. alice sends bob 600 messages, two every 10 ms; after the first 200 node 1 is
// killed (kill -9). alice's client reconnects to node 2 as its retry timer would and sends
// again what node 1 never confirmed; what she wrote while offline is reported failed at once
// (the page shows those with 重新发送). Counted at bob's end: messages reported sent that
// never arrived (lost) and messages that arrived twice (doubled).
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

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QTemporaryDir scratch;
    if (!qEnvironmentVariableIsSet("QUELIX_TEST_TMP"))
        qputenv("QUELIX_TEST_TMP", scratch.path().toLocal8Bit());
    qputenv("QUELIX_XMPP_SERVER", "ejabberd");
    ProsodyServer cluster;
    if (!cluster.startCluster(2) || cluster.nodePorts().size() != 2 ||
        cluster.nodePids().size() != 2) {
        std::fprintf(stderr, "ejabberd cluster: %s\n", qPrintable(cluster.lastError()));
        return 1;
    }
    for (const char* user : {"alice", "bob"})
        cluster.registerUser(QLatin1String(user), QStringLiteral("pw-") + user);
    const QString host = cluster.host();
    const QString one = QStringLiteral("%1:%2").arg(host).arg(cluster.nodePorts().at(0));
    const QString two = QStringLiteral("%1:%2").arg(host).arg(cluster.nodePorts().at(1));

    TestSession alice(QStringLiteral("cluster-alice")), bob(QStringLiteral("cluster-bob"));
    alice.setEndpoints(one + QLatin1Char(',') + two);
    bob.setEndpoints(two + QLatin1Char(',') + one);
    alice.login(cluster, QStringLiteral("alice"), QStringLiteral("pw-alice"));
    bob.login(cluster, QStringLiteral("bob"), QStringLiteral("pw-bob"));
    if (!waitUntil([&] { return alice.probe().count("loginOk") && bob.probe().count("loginOk"); },
                   30000)) {
        std::fprintf(stderr, "the sessions did not sign in\n");
        return 1;
    }

    int sent = 0;
    bool killed = false;
    QTimer pace;
    QObject::connect(&pace, &QTimer::timeout, [&] {
        for (int i = 0; i < 2 && sent < kMessages; ++i)
            alice.sendText(QStringLiteral("bob"), line(++sent));
        if (!killed && sent >= kKillAfter) {
            killed = true;
            ::kill(pid_t(cluster.nodePids().at(0)), SIGKILL);
        }
        if (alice.probe().count("disconnected") >
            alice.probe().count("reloginOk") + alice.probe().count("reloginFail"))
            alice.relogin();
    });
    pace.start(10);
    // Every message gets one outcome; the client's retry timer signs in again meanwhile.
    const bool settled = waitUntil(
        [&] {
            if (alice.probe().count("disconnected") > alice.probe().count("reloginOk") &&
                alice.probe().count("reloginFail") >= alice.probe().count("disconnected"))
                alice.relogin();
            return sent == kMessages && alice.probe().count("sent") == kMessages;
        },
        120000);
    pace.stop();
    const int reportedOk = alice.probe().count("sent:0:0");
    const int failed = alice.probe().count("sent") - reportedOk;
    waitUntil([&] { return int(bob.unread(QStringLiteral("alice")).size()) >= reportedOk; }, 30000);
    waitUntil([] { return false; }, 2000);  // copies would come now
    QStringList got;
    for (const auto& m : bob.unread(QStringLiteral("alice"))) got << toQ(m.content.content);
    const int unique = int(QSet<QString>(got.begin(), got.end()).size());
    // Every message reported sent must be at bob's, once, in the order written.
    const int lost = qMax(0, reportedOk - unique);
    int outOfOrder = 0;
    for (int i = 1; i < got.size(); ++i)
        if (got.at(i) < got.at(i - 1)) ++outOfOrder;
    std::printf(
        "cluster kill: %d sent, %d confirmed, %d reported failed, %d arrived (%d distinct)"
        "%s\n",
        sent, reportedOk, failed, int(got.size()), unique,
        settled ? "" : ", not every send had an outcome");
    std::printf("cluster_kill_lost=%d\n",
                lost + (settled ? 0 : kMessages - alice.probe().count("sent")));
    std::printf("cluster_kill_doubled=%d\n", int(got.size()) - unique);
    std::printf("cluster_kill_out_of_order=%d\n", outOfOrder);
    std::printf("cluster_kill_failed_shown=%d\n", failed);
    return 0;
}
