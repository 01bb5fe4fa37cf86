#pragma once

#include <QString>
#include <QStringList>
#include <QTimer>
#include <memory>

#include "prosody_server.h"
#include "test_session.h"

class RoomAdmin;

// What one drill saw: the sender's outcomes and what reached the receiver, in the order
// the receiver's SDK lists it. Lines are numbered so that their text sorts in send order.
struct DrillOutcome {
    int sent = 0;
    bool settled = false;  // every send had its outcome
    QStringList confirmed;
    QStringList failed;
    QStringList arrived;

    int distinct() const;
    int doubled() const { return int(arrived.size()) - distinct(); }
    int outOfOrder() const;
    // Confirmed but never arrived, and sends that never had an outcome.
    int lost() const;
    // The confirmed lines that never arrived.
    QStringList missing() const;
};

// A fresh two-node ejabberd cluster with alice and bob, each knowing both nodes and signing
// in again when dropped (as the client's retry timer does); one node is killed (kill -9) in
// the middle of a burst. Used by the cluster test and the cluster benchmark.
class ClusterDrill {
public:
    static QString line(int n);

    explicit ClusterDrill(const QString& tag);
    ~ClusterDrill();

    bool start();
    QString error() const { return error_; }
    ProsodyServer& cluster() { return cluster_; }
    TestSession& alice() { return *alice_; }
    TestSession& bob() { return *bob_; }
    QString authority() const;

    // alice on node 1, bob on node 2.
    bool signInPair();
    // Both on node 2 and in the project room `room`, which the administrator makes on node 1.
    bool signInRoom(quint64 room);
    // alice sends bob `count` lines, two every 10 ms, and node `node` (0 or 1) dies after
    // `killAfter` of them; returns once every send has an outcome and bob has what was
    // confirmed (or the time is up).
    void burst(int count, int killAfter, int node, DrillOutcome* o);
    // The same into the room, whose node 1 dies.
    void roomBurst(quint64 room, int count, int killAfter, DrillOutcome* o);
    // What bob's SDK shows of the room, in order.
    QStringList roomLines(quint64 room, TestSession& member);

private:
    bool signIn(TestSession& s, const QString& account, const QString& endpoints);
    void kill(int node);

    QString tag_;
    ProsodyServer cluster_;
    QString one_, two_;
    std::unique_ptr<TestSession> alice_, bob_;
    std::unique_ptr<RoomAdmin> admin_;
    QTimer keepUp_;
    QString error_;
};
