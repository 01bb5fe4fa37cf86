// Drills on a two-node ejabberd cluster: a node killed in the middle of a burst.
#include "cluster_drill.h"

#include <QSet>
#include <atomic>
#include <csignal>
#include <mutex>

#include "base/bind.h"
#include "base/ref_counted.h"
#include "openim/itribe.h"
#include "openim/itribe_service.h"
#include "openim/service_guids.h"
#include "room_admin.h"
#include "sdk/wide_text.h"

using wide_text::toQ;

namespace {

QStringList texts(const QList<openim::IMMessage>& messages) {
    QStringList out;
    for (const openim::IMMessage& m : messages) out << toQ(m.content.content);
    return out;
}

// The room's send outcomes, reported on the SDK thread.
class RoomSends : public base::RefCountedThreadSafe<RoomSends> {
public:
    void OnSent(openim::IMTribeMessage m, openim::ResultCode sent, openim::ResultCode) {
        if (sent.pending()) return;  // the outcome follows
        std::lock_guard<std::mutex> guard(lock);
        (sent.ok() ? confirmed : failed) << toQ(m.content.content);
    }
    int outcomes() {
        std::lock_guard<std::mutex> guard(lock);
        return int(confirmed.size() + failed.size());
    }
    std::mutex lock;
    QStringList confirmed, failed;

private:
    friend class base::RefCountedThreadSafe<RoomSends>;
    ~RoomSends() = default;
};

}  // namespace

int DrillOutcome::distinct() const {
    return int(QSet<QString>(arrived.begin(), arrived.end()).size());
}

int DrillOutcome::outOfOrder() const {
    int n = 0;
    for (int i = 1; i < arrived.size(); ++i)
        if (arrived.at(i) < arrived.at(i - 1)) ++n;
    return n;
}

QStringList DrillOutcome::missing() const {
    const QSet<QString> got(arrived.begin(), arrived.end());
    QStringList out;
    for (const QString& text : confirmed)
        if (!got.contains(text)) out << text;
    return out;
}

int DrillOutcome::lost() const {
    return sent - int(confirmed.size() + failed.size()) + int(missing().size());
}

QString ClusterDrill::line(int n) { return QStringLiteral("c%1").arg(n, 4, 10, QLatin1Char('0')); }

ClusterDrill::ClusterDrill(const QString& tag) : tag_(tag) {
    // As the client's retry timer does: a session that dropped signs in again.
    QObject::connect(&keepUp_, &QTimer::timeout, [this] {
        for (TestSession* s : {alice_.get(), bob_.get()}) {
            if (!s) continue;
            SessionProbe& p = s->probe();
            if (p.count("disconnected") > p.count("reloginOk") &&
                p.count("reloginFail") + p.count("reloginOk") >= p.count("disconnected") - 1)
                s->relogin();
        }
    });
}

ClusterDrill::~ClusterDrill() = default;

QString ClusterDrill::authority() const {
    return cluster_.adminJid().section(QLatin1Char('@'), 0, 0);
}

bool ClusterDrill::start() {
    if (!cluster_.startCluster(2) || cluster_.nodePorts().size() != 2 ||
        cluster_.nodePids().size() != 2) {
        error_ = QStringLiteral("ejabberd cluster: ") + cluster_.lastError();
        return false;
    }
    for (const char* user : {"alice", "bob"})
        if (!cluster_.registerUser(QLatin1String(user), QStringLiteral("pw-") + user)) {
            error_ = QStringLiteral("cannot register ") + QLatin1String(user);
            return false;
        }
    one_ = QStringLiteral("%1:%2").arg(cluster_.host()).arg(cluster_.nodePorts().at(0));
    two_ = QStringLiteral("%1:%2").arg(cluster_.host()).arg(cluster_.nodePorts().at(1));
    alice_ = std::make_unique<TestSession>(QStringLiteral("cluster-alice-") + tag_);
    bob_ = std::make_unique<TestSession>(QStringLiteral("cluster-bob-") + tag_);
    return true;
}

bool ClusterDrill::signIn(TestSession& s, const QString& account, const QString& endpoints) {
    s.setEndpoints(endpoints);
    s.login(cluster_, account, QStringLiteral("pw-") + account, authority());
    if (!waitUntil([&] { return s.probe().count("loginOk") > 0; }, 30000)) {
        error_ = account + QStringLiteral(" did not sign in");
        return false;
    }
    keepUp_.start(200);
    return true;
}

bool ClusterDrill::signInPair() {
    return signIn(*alice_, QStringLiteral("alice"), one_ + QLatin1Char(',') + two_) &&
           signIn(*bob_, QStringLiteral("bob"), two_ + QLatin1Char(',') + one_);
}

bool ClusterDrill::signInRoom(quint64 room) {
    admin_ = std::make_unique<RoomAdmin>(cluster_, authority(), cluster_.adminSecret());
    if (!admin_->connectNow() ||
        !admin_->createRoom(room, QStringLiteral("cluster"), QStringLiteral("alice"),
                            {QStringLiteral("bob")})) {
        error_ = QStringLiteral("cannot make the room");
        return false;
    }
    for (TestSession* s : {alice_.get(), bob_.get()}) {
        const QString account = s == alice_.get() ? QStringLiteral("alice") : QStringLiteral("bob");
        if (!signIn(*s, account, two_ + QLatin1Char(',') + one_)) return false;
        base::scoped_refptr<openim::ITribeService> service;
        service.adopt(s->root()->GetService<openim::ITribeService>(openim::kTribeModule,
                                                                   openim::kTribeInterface));
        service->SyncTribes({openim::IMTribeID(room)}, {});
        if (!waitUntil([&] { return s->tribe(room)->IsInRoom(); }, 30000)) {
            error_ = account + QStringLiteral(" did not get into the room");
            return false;
        }
    }
    return true;
}

void ClusterDrill::kill(int node) { ::kill(pid_t(cluster_.nodePids().at(node)), SIGKILL); }

void ClusterDrill::burst(int count, int killAfter, int node, DrillOutcome* o) {
    bool killed = false;
    QTimer pace;
    QObject::connect(&pace, &QTimer::timeout, [&] {
        for (int i = 0; i < 2 && o->sent < count; ++i)
            alice_->sendText(QStringLiteral("bob"), line(++o->sent));
        if (!killed && o->sent >= killAfter) {
            killed = true;
            kill(node);
        }
    });
    pace.start(10);
    SessionProbe& probe = alice_->probe();
    o->settled =
        waitUntil([&] { return o->sent == count && probe.count("sent") == count; }, 120000);
    pace.stop();
    o->failed = texts(probe.failedSends());
    o->confirmed = texts(probe.sent());
    for (const QString& text : o->failed) o->confirmed.removeOne(text);
    const QString peer = QStringLiteral("alice");
    waitUntil([&] { return bob_->unreadCount(peer) >= o->confirmed.size(); }, 60000);
    waitUntil([] { return false; }, 2000);  // copies would come now
    o->arrived.clear();
    for (const openim::IMMessage& m : bob_->unread(peer)) o->arrived << toQ(m.content.content);
}

QStringList ClusterDrill::roomLines(quint64 room, TestSession& member) {
    std::vector<openim::IMTribeMessage> unread;
    member.tribe(room)->GetUnreadMessages(&unread);
    QStringList out;
    for (const openim::IMTribeMessage& m : unread) out << toQ(m.content.content);
    return out;
}

void ClusterDrill::roomBurst(quint64 room, int count, int killAfter, DrillOutcome* o) {
    base::scoped_refptr<RoomSends> sends(new RoomSends);
    bool killed = false;
    QTimer pace;
    QObject::connect(&pace, &QTimer::timeout, [&] {
        for (int i = 0; i < 2 && o->sent < count; ++i)
            alice_->tribe(room)->SendText(wide_text::fromQ(line(++o->sent)),
                                          base::Bind(&RoomSends::OnSent, sends.get()));
        if (!killed && o->sent >= killAfter) {
            killed = true;
            kill(0);
        }
    });
    pace.start(10);
    o->settled = waitUntil([&] { return o->sent == count && sends->outcomes() == count; }, 120000);
    pace.stop();
    {
        std::lock_guard<std::mutex> guard(sends->lock);
        o->confirmed = sends->confirmed;
        o->failed = sends->failed;
    }
    const auto collect = [&] {
        o->arrived = roomLines(room, *bob_);
        return o->distinct() >= o->confirmed.size();
    };
    waitUntil(collect, 60000);
    waitUntil([] { return false; }, 2000);  // copies would come now
    collect();
}
