// Rooms we think we are in, kept so: rejoined after a refusal or an unanswered self-ping.
#include "sdk/room_health.h"

#include <QXmppMessage.h>
#include <QXmppPingIq.h>
#include <QXmppUtils.h>

#include "sdk/im_engine.h"
#include "sdk/tribe_rooms.h"

namespace {

// The conditions a room gives when we are not (or no longer) an occupant.
bool meansNotInRoom(QXmppStanza::Error::Condition c) {
    return c == QXmppStanza::Error::NotAcceptable || c == QXmppStanza::Error::ItemNotFound ||
           c == QXmppStanza::Error::RemoteServerNotFound;
}

}  // namespace

RoomHealth::RoomHealth(ImEngine* engine) : QObject(engine), engine_(engine) {
    const int ms = qEnvironmentVariableIntValue("QUELIX_ROOM_PING_MS");
    timer_.setInterval(ms > 0 ? ms : kPingMs);
    connect(&timer_, &QTimer::timeout, this, &RoomHealth::pingRooms);
}

void RoomHealth::sessionStarted() { timer_.start(); }

void RoomHealth::sessionEnded() {
    timer_.stop();
    pings_.clear();
}

bool RoomHealth::handleError(const QXmppMessage& message) {
    TribeRooms* tribes = engine_->tribes();
    const quint64 tribe = tribes->tribeOfRoom(message.from());
    if (tribe == 0) return false;
    const QXmppStanza::Error::Condition condition = message.error().condition();
    qWarning().noquote() << "imsdk: room" << tribe << "refused message" << message.id()
                         << "(condition" << int(condition) << ")";
    if (!meansNotInRoom(condition)) return true;
    tribes->rejoin(tribe);
    engine_->roomRefused(message.id());
    return true;
}

bool RoomHealth::handleIq(const QXmppIq& iq) {
    auto it = pings_.find(iq.id());
    if (it == pings_.end()) return false;
    const quint64 tribe = it.value();
    pings_.erase(it);
    if (iq.type() == QXmppIq::Result) return true;
    // A room that does not implement pings to occupants answers so; that says nothing.
    const QXmppStanza::Error::Condition c = iq.error().condition();
    if (c == QXmppStanza::Error::ServiceUnavailable ||
        c == QXmppStanza::Error::FeatureNotImplemented)
        return true;
    qInfo().noquote() << "imsdk: room" << tribe << "no longer had us (condition" << int(c)
                      << "); joining again";
    engine_->tribes()->rejoin(tribe);
    return true;
}

void RoomHealth::pingRooms() {
    if (!engine_->isOnline()) return;
    TribeRooms* tribes = engine_->tribes();
    for (quint64 tribe : tribes->joinedTribes()) {
        QXmppPingIq ping;
        ping.setTo(tribes->roomJid(tribe) + QLatin1Char('/') + engine_->account());
        if (engine_->xmppClient()->sendPacket(ping)) pings_.insert(ping.id(), tribe);
    }
}
