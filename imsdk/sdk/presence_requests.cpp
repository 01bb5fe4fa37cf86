// The heartbeat: pings to the server answered with the colleagues' online marks.
#include "sdk/presence_requests.h"

#include <QXmppPingIq.h>
#include <QXmppPresence.h>
#include <QXmppRosterManager.h>
#include <QXmppUtils.h>
#include <QTimer>

#include "sdk/wide_text.h"

using wide_text::fromQ;

PresenceRequests::PresenceRequests(ImEngine* engine) : QObject(engine), engine_(engine) {}

void PresenceRequests::request(const ImEngine::PresenceCallback& done) {
    if (!engine_->isOnline()) {
        if (!done.is_null()) done.Run(openim::ResultCode(openim::ResultCode::kNotLoggedIn), {});
        return;
    }
    QXmppPingIq ping;
    ping.setTo(engine_->domain());
    auto* timer = new QTimer(this);
    timer->setSingleShot(true);
    const QString id = ping.id();
    connect(timer, &QTimer::timeout, this, [this, id] {
        Pending p = pending_.take(id);
        if (p.timer) p.timer->deleteLater();
        if (!p.done.is_null()) p.done.Run(openim::ResultCode(openim::ResultCode::kTimeout), {});
    });
    pending_.insert(id, {done, timer});
    timer->start(kTimeoutMs);
    engine_->xmppClient()->sendPacket(ping);
}

bool PresenceRequests::handleIq(const QXmppIq& iq) {
    auto it = pending_.find(iq.id());
    if (it == pending_.end()) return false;
    Pending p = *it;
    pending_.erase(it);
    p.timer->deleteLater();
    std::map<openim::IMUserID, openim::IMUserStatus> statuses;
    auto* roster = engine_->xmppClient()->findExtension<QXmppRosterManager>();
    const QStringList jids = roster ? roster->getRosterBareJids() : QStringList();
    for (const QString& jid : jids) {
        openim::IMUserStatus status;
        const auto presences = roster->getAllPresencesForBareJid(jid);
        for (const QXmppPresence& presence : presences) {
            if (presence.type() != QXmppPresence::Available) continue;
            status.state = presence.availableStatusType() == QXmppPresence::Online ||
                                   presence.availableStatusType() == QXmppPresence::Chat
                               ? openim::IMUserStatus::kOnline
                           : presence.availableStatusType() == QXmppPresence::DND
                               ? openim::IMUserStatus::kBusy
                               : openim::IMUserStatus::kAway;
            status.statusText = fromQ(presence.statusText());
        }
        statuses[engine_->userId(QXmppUtils::jidToUser(jid))] = status;
    }
    if (!p.done.is_null())
        p.done.Run(
            openim::ResultCode(iq.type() == QXmppIq::Result ? openim::ResultCode::kOk
                                                            : openim::ResultCode::kServerError),
            statuses);
    return true;
}

// Nothing will answer them on this stream.
void PresenceRequests::sessionEnded() {
    const auto pending = std::exchange(pending_, {});
    for (const Pending& p : pending) {
        p.timer->deleteLater();
        if (!p.done.is_null())
            p.done.Run(openim::ResultCode(openim::ResultCode::kNetworkError), {});
    }
}
