// Two ejabberd nodes in one cluster. alice signs in on node 1, bob on node 2, each knowing
// both nodes. alice sends bob 600 messages, two every 10 ms; after the first 200 her node is
// killed (kill -9), and in a second run on a fresh cluster bob's. A third run sends 300
// messages into a project room whose node is killed a third of the way. alice's client reconnects
// to node 2 as its retry timer would and sends again what node 1 never confirmed; what she wrote
// while offline is reported failed at once (the page shows those with 重新发送). Counted at bob's
// end: messages reported sent that never arrived (lost) and messages that arrived twice (doubled).
#include <QCoreApplication>
#include <cstdio>

#include "support/cluster_drill.h"
#include "support/scratch_folder.h"

namespace {

constexpr int kMessages = 600;
constexpr int kKillAfter = 200;
constexpr quint64 kRoom = 4001;
constexpr int kRoomMessages = 300;
constexpr int kRoomKillAfter = 100;

void report(const char* what, const DrillOutcome& o) {
    std::printf(
        "kill of the %s node: %d sent, %d confirmed, %d reported failed, %d arrived "
        "(%d distinct, %d out of order, %d lost)%s\n",
        what, o.sent, int(o.confirmed.size()), int(o.failed.size()), int(o.arrived.size()),
        o.distinct(), o.outOfOrder(), o.lost(), o.settled ? "" : ", not every send had an outcome");
}

// One run on a fresh cluster; `node` is the one killed (0: alice's, 1: bob's).
bool run(int node, DrillOutcome* o) {
    ClusterDrill drill(node == 0 ? QStringLiteral("s") : QStringLiteral("r"));
    if (!drill.start() || !drill.signInPair()) {
        std::fprintf(stderr, "%s\n", qPrintable(drill.error()));
        return false;
    }
    drill.burst(kMessages, kKillAfter, node, o);
    report(node == 0 ? "sender's" : "receiver's", *o);
    return true;
}

// The project room, made by the administrator on node 1 (where its process then lives);
// both members sign in on node 2. Node 1 dies a third of the way: the room comes back on
// node 2 without its occupants and says nothing; alice learns it from its refusals, bob from
// his ping, and both join again.
bool runRoom(DrillOutcome* o) {
    ClusterDrill drill(QStringLiteral("room"));
    if (!drill.start() || !drill.signInRoom(kRoom)) {
        std::fprintf(stderr, "%s\n", qPrintable(drill.error()));
        return false;
    }
    drill.roomBurst(kRoom, kRoomMessages, kRoomKillAfter, o);
    report("room's", *o);
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const ScratchFolder scratch;  // stores, server data, downloads: this run's only
    qputenv("QUELIX_XMPP_SERVER", "ejabberd");
    // Members ask their rooms whether they still have them every second rather than every
    // five minutes, so that a run stays short.
    qputenv("QUELIX_ROOM_PING_MS", "1000");
    DrillOutcome sender, receiver, room;
    if (!run(0, &sender) || !run(1, &receiver) || !runRoom(&room)) return 1;
    int lost = 0, doubled = 0, outOfOrder = 0, failed = 0;
    for (const DrillOutcome* o : {&sender, &receiver, &room}) {
        lost += o->lost();
        doubled += o->doubled();
        outOfOrder += o->outOfOrder();
        failed += int(o->failed.size());
    }
    std::printf("cluster_kill_lost=%d\n", lost);
    std::printf("cluster_kill_doubled=%d\n", doubled);
    std::printf("cluster_kill_out_of_order=%d\n", outOfOrder);
    std::printf("cluster_kill_failed_shown=%d\n", failed);
    return 0;
}
