// Two ejabberd nodes in one cluster. alice signs in on node 1, bob on node 2, each knowing
// both nodes. alice sends bob 600 messages, two every 10 ms; after the first 200 her node is
// killed (kill -9), and in a second run on a fresh cluster bob's. A third run sends 300
// messages into a project room whose node is killed a third of the way. alice's client reconnects
// to node 2 as its retry timer would and sends again what node 1 never confirmed; what she wrote
// while offline is reported failed at once (the page shows those with 重新发送). Counted at bob's
// end: messages reported sent that never arrived (lost) and messages that arrived twice (doubled).
#include <QCoreApplication>
#include <QSet>
#include <QTemporaryDir>
#include <QTimer>
#include <atomic>
#include <csignal>
#include <cstdio>

#include "base/bind.h"
#include "base/ref_counted.h"
#include "openim/itribe.h"
#include "openim/itribe_service.h"
#include "openim/service_guids.h"
#include "sdk/wide_text.h"
#include "support/prosody_server.h"
#include "support/room_admin.h"
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

// A fresh two-node cluster with alice and bob; `one` and `two` are the nodes' endpoints.
bool startTwoNodes(ProsodyServer& cluster, QString* one, QString* two) {
    if (!cluster.startCluster(2) || cluster.nodePorts().size() != 2 ||
        cluster.nodePids().size() != 2) {
        std::fprintf(stderr, "ejabberd cluster: %s\n", qPrintable(cluster.lastError()));
        return false;
    }
    for (const char* user : {"alice", "bob"})
        cluster.registerUser(QLatin1String(user), QStringLiteral("pw-") + user);
    *one = QStringLiteral("%1:%2").arg(cluster.host()).arg(cluster.nodePorts().at(0));
    *two = QStringLiteral("%1:%2").arg(cluster.host()).arg(cluster.nodePorts().at(1));
    return true;
}

// One run on a fresh cluster; `killReceivers` kills bob's node instead of alice's.
bool run(bool killReceivers, Outcome* o) {
    ProsodyServer cluster;
    QString one, two;
    if (!startTwoNodes(cluster, &one, &two)) return false;

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

constexpr quint64 kRoom = 4001;
constexpr int kRoomMessages = 300;
constexpr int kRoomKillAfter = 100;

class RoomSends : public base::RefCountedThreadSafe<RoomSends> {
public:
    void OnSent(openim::IMTribeMessage, openim::ResultCode sent, openim::ResultCode) {
        if (sent.pending()) return;  // the outcome follows
        if (sent.ok())
            ++confirmed;
        else
            ++failed;
    }
    std::atomic<int> confirmed{0};
    std::atomic<int> failed{0};
};

// The project room, made by the administrator on node 1 (where its process then lives);
// both members sign in on node 2. Node 1 dies a third of the way: the room comes back on
// node 2 without its occupants and says nothing; alice learns it from its refusals, bob from
// his ping, and both join again.
bool runRoom(Outcome* o) {
    ProsodyServer cluster;
    QString one, two;
    if (!startTwoNodes(cluster, &one, &two)) return false;
    const QString authority = cluster.adminJid().section(QLatin1Char('@'), 0, 0);
    RoomAdmin admin(cluster, authority, cluster.adminSecret());
    if (!admin.connectNow() ||
        !admin.createRoom(kRoom, QStringLiteral("cluster"), QStringLiteral("alice"),
                          {QStringLiteral("bob")})) {
        std::fprintf(stderr, "cannot make the room\n");
        return false;
    }
    TestSession alice(QStringLiteral("cluster-alice-room")),
        bob(QStringLiteral("cluster-bob-room"));
    for (TestSession* s : {&alice, &bob}) {
        s->setEndpoints(two + QLatin1Char(',') + one);
        const QString account = s == &alice ? QStringLiteral("alice") : QStringLiteral("bob");
        s->login(cluster, account, QStringLiteral("pw-") + account, authority);
        if (!waitUntil([&] { return s->probe().count("loginOk") > 0; }, 30000)) return false;
        base::scoped_refptr<openim::ITribeService> service;
        service.adopt(s->root()->GetService<openim::ITribeService>(openim::kTribeModule,
                                                                   openim::kTribeInterface));
        service->SyncTribes({openim::IMTribeID(kRoom)}, {});
        if (!waitUntil([&] { return s->tribe(kRoom)->IsInRoom(); }, 30000)) {
            std::fprintf(stderr, "%s did not get into the room\n", qPrintable(account));
            return false;
        }
    }
    base::scoped_refptr<RoomSends> sends(new RoomSends);
    bool killed = false;
    QTimer pace;
    QObject::connect(&pace, &QTimer::timeout, [&] {
        for (int i = 0; i < 2 && o->sent < kRoomMessages; ++i)
            alice.tribe(kRoom)->SendText(wide_text::fromQ(line(++o->sent)),
                                         base::Bind(&RoomSends::OnSent, sends.get()));
        if (!killed && o->sent >= kRoomKillAfter) {
            killed = true;
            ::kill(pid_t(cluster.nodePids().at(0)), SIGKILL);
        }
    });
    pace.start(10);
    o->settled = waitUntil(
        [&] {
            return o->sent == kRoomMessages &&
                   sends->confirmed.load() + sends->failed.load() == kRoomMessages;
        },
        120000);
    pace.stop();
    o->confirmed = sends->confirmed.load();
    o->failed = sends->failed.load();
    QStringList got;
    const auto collect = [&] {
        got.clear();
        std::vector<openim::IMTribeMessage> unread;
        bob.tribe(kRoom)->GetUnreadMessages(&unread);
        for (const auto& m : unread) got << toQ(m.content.content);
        return int(QSet<QString>(got.begin(), got.end()).size()) >= o->confirmed;
    };
    waitUntil(collect, 60000);
    waitUntil([] { return false; }, 2000);  // copies would come now
    collect();
    o->arrived = int(got.size());
    o->distinct = int(QSet<QString>(got.begin(), got.end()).size());
    for (int i = 1; i < got.size(); ++i)
        if (got.at(i) < got.at(i - 1)) ++o->outOfOrder;
    std::printf(
        "kill of the room's node: %d sent, %d confirmed, %d reported failed, %d arrived "
        "(%d distinct, %d out of order)%s\n",
        o->sent, o->confirmed, o->failed, o->arrived, o->distinct, o->outOfOrder,
        o->settled ? "" : ", not every send had an outcome");
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QTemporaryDir scratch;
    if (!qEnvironmentVariableIsSet("QUELIX_TEST_TMP"))
        qputenv("QUELIX_TEST_TMP", scratch.path().toLocal8Bit());
    qputenv("QUELIX_XMPP_SERVER", "ejabberd");
    // Members ask their rooms whether they still have them every second rather than every
    // five minutes, so that a run stays short.
    qputenv("QUELIX_ROOM_PING_MS", "1000");
    Outcome sender, receiver, room;
    if (!run(false, &sender) || !run(true, &receiver) || !runRoom(&room)) return 1;
    int lost = 0, doubled = 0, outOfOrder = 0, failed = 0;
    for (const Outcome* o : {&sender, &receiver, &room}) {
        lost += o->lost();
        doubled += o->arrived - o->distinct;
        outOfOrder += o->outOfOrder;
        failed += o->failed;
    }
    std::printf("cluster_kill_lost=%d\n", lost);
    std::printf("cluster_kill_doubled=%d\n", doubled);
    std::printf("cluster_kill_out_of_order=%d\n", outOfOrder);
    std::printf("cluster_kill_failed_shown=%d\n", failed);
    return 0;
}
