#include "sdk/tribe_rooms.h"

#include "sdk/room_identity.h"

#include <QXmppClient.h>
#include <QXmppElement.h>
#include <QXmppMessage.h>
#include <QXmppPresence.h>
#include <QXmppUtils.h>
#include <QDebug>
#include <QDomElement>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimer>

#include "openim/im_message_content.h"
#include "sdk/im_engine.h"
#include "sdk/tribe_messages.h"
#include "sdk/wide_text.h"

using wide_text::fromQ;

namespace {

const char kMucNs[] = "http://jabber.org/protocol/muc";
const char kMucUserNs[] = "http://jabber.org/protocol/muc#user";
const char kStanzasNs[] = "urn:ietf:params:xml:ns:xmpp-stanzas";
const char kRoomsMeta[] = "tribes";
const char kKeyPrefix[] = "tribe:";
// A room that never answers its join must not hold back the "loaded" report for ever.
constexpr int kLoadedWaitMs = 15000;
// How long a removal without a reason waits for the back end's word on it.
constexpr int kNoticeWaitMs = 5000;
// A room never entered that refuses us is tried again after 2, 8 and 32 seconds.
constexpr int kJoinRetries = 3;
constexpr int kJoinRetryMs = 2000;

QDomElement child(const QDomElement& parent, const char* name, const char* ns) {
    for (QDomElement e = parent.firstChildElement(QLatin1String(name)); !e.isNull();
         e = e.nextSiblingElement(QLatin1String(name)))
        if (e.namespaceURI() == QLatin1String(ns)) return e;
    return QDomElement();
}

}  // namespace

TribeRooms::TribeRooms(ImEngine* engine)
    : QObject(engine),
      engine_(engine),
      notices_(engine),
      messages_(new TribeMessages(engine, this)),
      loadedTimer_(new QTimer(this)) {
    loadedTimer_->setSingleShot(true);
    loadedTimer_->setInterval(kLoadedWaitMs);
    connect(loadedTimer_, &QTimer::timeout, this, [this] {
        awaitingJoins_ = 0;
        if (!loadedReported_) {
            loadedReported_ = true;
            if (!callbacks_.loaded.is_null()) callbacks_.loaded.Run();
        }
    });
}

QString TribeRooms::key(quint64 tribe) {
    return QLatin1String(kKeyPrefix) + QString::number(tribe);
}

bool TribeRooms::isKey(const QString& peer) { return peer.startsWith(QLatin1String(kKeyPrefix)); }

quint64 TribeRooms::idOfKey(const QString& peer) {
    return isKey(peer) ? peer.midRef(int(sizeof(kKeyPrefix)) - 1).toULongLong() : 0;
}

QString TribeRooms::conferenceDomain() const {
    return QStringLiteral("conference.") + engine_->domain();
}

QString TribeRooms::roomJid(quint64 tribe) const {
    return QString::number(tribe) + QLatin1Char('@') + conferenceDomain();
}

quint64 TribeRooms::tribeOfJid(const QString& jid) const {
    if (QXmppUtils::jidToDomain(jid) != conferenceDomain()) return 0;
    bool ok = false;
    const quint64 id = QXmppUtils::jidToUser(jid).toULongLong(&ok);
    return ok ? id : 0;
}

openim::IMUserID TribeRooms::user(const QString& account) const { return engine_->userId(account); }

// ---- what the account remembers of its rooms ----

void TribeRooms::accountOpened() {
    rooms_.clear();
    messages_->accountOpened();
    load();
}

void TribeRooms::load() {
    const QJsonObject all =
        QJsonDocument::fromJson(engine_->messageStore().meta(QLatin1String(kRoomsMeta)).toUtf8())
            .object();
    for (auto it = all.begin(); it != all.end(); ++it) {
        bool ok = false;
        const quint64 id = it.key().toULongLong(&ok);
        if (!ok || id == 0) continue;
        const QJsonObject o = it.value().toObject();
        Room room;
        room.name = o.value(QStringLiteral("name")).toString();
        room.subject = o.value(QStringLiteral("subject")).toString();
        room.since = qint64(o.value(QStringLiteral("since")).toDouble());
        room.member = o.value(QStringLiteral("member")).toBool(true);
        room.everJoined = o.value(QStringLiteral("joined")).toBool();
        rooms_.insert(id, room);
    }
}

void TribeRooms::save() {
    QJsonObject all;
    for (auto it = rooms_.cbegin(); it != rooms_.cend(); ++it) {
        QJsonObject o;
        o.insert(QStringLiteral("name"), it->name);
        o.insert(QStringLiteral("subject"), it->subject);
        o.insert(QStringLiteral("since"), double(it->since));
        o.insert(QStringLiteral("member"), it->member);
        o.insert(QStringLiteral("joined"), it->everJoined);
        all.insert(QString::number(it.key()), o);
    }
    engine_->messageStore().setMeta(
        QLatin1String(kRoomsMeta),
        QString::fromUtf8(QJsonDocument(all).toJson(QJsonDocument::Compact)));
}

void TribeRooms::sync(const QList<quint64>& tribes, const QStringList& names) {
    bool changed = false;
    for (int i = 0; i < tribes.size(); ++i) {
        const quint64 id = tribes[i];
        if (id == 0) continue;
        auto it = rooms_.find(id);
        const QString name = i < names.size() ? names[i] : QString();
        if (it == rooms_.end()) {
            Room room;
            room.name = name;
            room.since = QDateTime::currentSecsSinceEpoch();
            rooms_.insert(id, room);
            changed = true;
            if (engine_->isOnline()) join(id);
            continue;
        }
        if (!name.isEmpty() && it->name != name) {
            it->name = name;
            changed = true;
        }
        if (!it->member) {
            // The company counts us in again (added back while we were away).
            it->member = true;
            it->since = QDateTime::currentSecsSinceEpoch();
            changed = true;
            if (engine_->isOnline()) join(id);
        }
    }
    if (changed) save();
}

bool TribeRooms::isMember(quint64 tribe) const {
    auto it = rooms_.constFind(tribe);
    return it != rooms_.cend() && it->member;
}

bool TribeRooms::isJoined(quint64 tribe) const {
    auto it = rooms_.constFind(tribe);
    return it != rooms_.cend() && it->joined;
}

void TribeRooms::whenJoined(quint64 tribe, std::function<void(bool)> then) {
    auto it = rooms_.constFind(tribe);
    if (it == rooms_.cend() || !it->member || !engine_->isOnline()) return then(false);
    if (it->joined) return then(true);
    waiting_[tribe].append(std::move(then));
    join(tribe);
}

void TribeRooms::releaseWaiting(quint64 tribe, bool joined) {
    const auto waiting = waiting_.take(tribe);
    for (const auto& then : waiting) then(joined);
}

QString TribeRooms::name(quint64 tribe) const { return rooms_.value(tribe).name; }

qint64 TribeRooms::since(quint64 tribe) const { return rooms_.value(tribe).since; }

QString TribeRooms::subject(quint64 tribe) const { return rooms_.value(tribe).subject; }

QStringList TribeRooms::occupants(quint64 tribe) const {
    QStringList out;
    auto it = rooms_.constFind(tribe);
    if (it == rooms_.cend()) return out;
    for (const Occupant& o : it->occupants)
        if (!out.contains(o.account)) out << o.account;
    return out;
}

// ---- joining ----

void TribeRooms::sessionStarted() {
    awaitingJoins_ = 0;
    loadedReported_ = false;
    for (auto it = rooms_.begin(); it != rooms_.end(); ++it) {
        it->joined = false;
        it->joining = false;
        it->occupants.clear();
        if (it->member) join(it.key());
    }
    if (awaitingJoins_ == 0) {
        loadedReported_ = true;
        if (!callbacks_.loaded.is_null()) callbacks_.loaded.Run();
    } else {
        loadedTimer_->start();
    }
}

void TribeRooms::sessionEnded() {
    for (auto it = rooms_.begin(); it != rooms_.end(); ++it) {
        it->joined = false;
        it->joining = false;
        it->occupants.clear();
    }
    messages_->sessionEnded();
    const QList<quint64> waiting = waiting_.keys();
    for (quint64 tribe : waiting) releaseWaiting(tribe, false);
    loadedTimer_->stop();
    awaitingJoins_ = 0;
    loadedReported_ = true;
}

void TribeRooms::join(quint64 tribe) {
    Room& room = rooms_[tribe];
    if (room.joined || room.joining) return;
    room.joining = true;
    if (!loadedReported_) ++awaitingJoins_;
    // Ask for no history: the archive catch-up after the join brings what we missed,
    // exactly once and with the archive's ids.
    QXmppPresence presence;
    presence.setTo(roomJid(tribe) + QLatin1Char('/') + engine_->account());
    QXmppElement x;
    x.setTagName(QStringLiteral("x"));
    x.setAttribute(QStringLiteral("xmlns"), QLatin1String(kMucNs));
    QXmppElement history;
    history.setTagName(QStringLiteral("history"));
    history.setAttribute(QStringLiteral("maxstanzas"), QStringLiteral("0"));
    x.appendChild(history);
    presence.setExtensions({x});
    engine_->xmppClient()->sendPacket(presence);
}

void TribeRooms::rejoin(quint64 tribe) {
    auto it = rooms_.find(tribe);
    if (it == rooms_.end() || !it->member || it->joining || !engine_->isOnline()) return;
    it->joined = false;
    it->occupants.clear();
    engine_->roomRejoining(tribe);
    join(tribe);
}

QList<quint64> TribeRooms::joinedTribes() const {
    QList<quint64> out;
    for (auto it = rooms_.cbegin(); it != rooms_.cend(); ++it)
        if (it->joined) out << it.key();
    return out;
}

void TribeRooms::leave(quint64 tribe) {
    auto it = rooms_.find(tribe);
    if (it == rooms_.end() || (!it->joined && !it->joining)) return;
    QXmppPresence presence(QXmppPresence::Unavailable);
    presence.setTo(roomJid(tribe) + QLatin1Char('/') + engine_->account());
    engine_->xmppClient()->sendPacket(presence);
    it->joined = false;
    it->joining = false;
    it->occupants.clear();
}

void TribeRooms::joinAnswered(quint64 tribe) {
    Q_UNUSED(tribe);
    if (loadedReported_ || awaitingJoins_ <= 0) return;
    if (--awaitingJoins_ == 0) {
        loadedReported_ = true;
        loadedTimer_->stop();
        if (!callbacks_.loaded.is_null()) callbacks_.loaded.Run();
    }
}

bool TribeRooms::handlePresence(const QDomElement& stanza) {
    const QString from = stanza.attribute(QStringLiteral("from"));
    const quint64 tribe = tribeOfJid(from);
    if (tribe == 0) return QXmppUtils::jidToDomain(from) == conferenceDomain();
    auto it = rooms_.find(tribe);
    if (it == rooms_.end()) {
        qInfo().noquote() << "imsdk: presence from a room we do not keep:" << from;
        return true;
    }
    Room& room = *it;
    const QString nick = QXmppUtils::jidToResource(from);
    const QString type = stanza.attribute(QStringLiteral("type"));
    const QDomElement x = child(stanza, "x", kMucUserNs);
    QSet<int> codes;
    for (QDomElement s = x.firstChildElement(QStringLiteral("status")); !s.isNull();
         s = s.nextSiblingElement(QStringLiteral("status")))
        codes.insert(s.attribute(QStringLiteral("code")).toInt());
    const QDomElement item = x.firstChildElement(QStringLiteral("item"));
    const bool self = codes.contains(110) || nick == engine_->account();

    if (type == QLatin1String("error")) {
        const bool wasJoining = room.joining;
        room.joining = false;
        room.joined = false;
        const QDomElement error = stanza.firstChildElement(QStringLiteral("error"));
        QString condition;
        for (QDomElement c = error.firstChildElement(); !c.isNull(); c = c.nextSiblingElement())
            if (c.namespaceURI() == QLatin1String(kStanzasNs) &&
                c.tagName() != QLatin1String("text"))
                condition = c.tagName();
        qInfo().noquote() << "imsdk: room" << tribe << "refused us:" << condition;
        const bool refused = condition == QLatin1String("registration-required") ||
                             condition == QLatin1String("forbidden");
        const bool missing = condition == QLatin1String("item-not-found") ||
                             condition == QLatin1String("not-allowed");
        if (room.member && room.everJoined && refused) {
            gone(tribe, false, false);  // removed while we were away
        } else if (room.member && room.everJoined && missing) {
            gone(tribe, true, false);  // dissolved while we were away
        } else if (room.member && (refused || missing)) {
            // A room we never got into: the back end may still be making it or adding us
            // (the project list can be ahead of the room). Try again a few times.
            if (room.joinRetries < kJoinRetries) {
                const int delay = kJoinRetryMs << (2 * room.joinRetries++);
                QTimer::singleShot(delay, this, [this, tribe] {
                    auto it = rooms_.find(tribe);
                    if (it != rooms_.end() && it->member && engine_->isOnline()) join(tribe);
                });
            } else {
                qInfo().noquote() << "imsdk: room" << tribe << "gave up: not a member";
                room.member = false;
                save();
            }
        }
        releaseWaiting(tribe, false);
        if (wasJoining) joinAnswered(tribe);
        return true;
    }

    if (type == QLatin1String("unavailable")) {
        if (self) {
            const bool wasJoining = room.joining;
            room.joined = false;
            room.joining = false;
            room.occupants.clear();
            const QDomElement destroy = x.firstChildElement(QStringLiteral("destroy"));
            const QString reason = item.firstChildElement(QStringLiteral("reason")).text();
            if (!destroy.isNull()) {
                if (room.member) gone(tribe, true, false);
            } else if (codes.contains(321) || codes.contains(301) || codes.contains(307)) {
                if (room.member && reason.isEmpty() && !authority().isEmpty())
                    removedAwaitingNotice(tribe);
                else if (room.member)
                    gone(tribe, false, reason == QLatin1String("quit"));
            } else if (room.member && engine_->isOnline() && !codes.contains(332)) {
                // Dropped by the room for no stated reason: come back.
                join(tribe);
            }
            if (!room.joining) releaseWaiting(tribe, false);
            if (wasJoining) joinAnswered(tribe);
            return true;
        }
        const Occupant was = room.occupants.take(nick);
        const QString account = was.account.isEmpty() ? nick : was.account;
        if (authority().isEmpty() &&
            (codes.contains(321) || codes.contains(301) || codes.contains(307))) {
            const QString reason = item.firstChildElement(QStringLiteral("reason")).text();
            memberEvent(
                reason == QLatin1String("quit") ? QStringLiteral("quit") : QStringLiteral("kicked"),
                tribe, account);
        }
        return true;
    }

    // Available.
    const QString account =
        RoomIdentity::accountOf(item.attribute(QStringLiteral("jid")), engine_->domain());
    const QString affiliation = item.attribute(QStringLiteral("affiliation"));
    auto known = room.occupants.find(nick);
    if (known != room.occupants.end() && !known->affiliation.isEmpty() &&
        known->affiliation != affiliation && !callbacks_.role.is_null()) {
        const QString actor = QXmppUtils::jidToUser(
            item.firstChildElement(QStringLiteral("actor")).attribute(QStringLiteral("jid")));
        callbacks_.role.Run(openim::IMTribeID(tribe), user(account), user(actor));
    }
    room.occupants.insert(nick, {account, affiliation});
    if (self && !room.joined) {
        room.joined = true;
        const bool wasJoining = room.joining;
        room.joining = false;
        if (codes.contains(201)) {
            // Only the back end makes rooms; one made by joining is a mistake of the
            // server's settings. Leave it locked and unused.
            qWarning().noquote() << "imsdk: room" << tribe
                                 << "did not exist and was created by our join";
        }
        const bool firstTime = !room.everJoined;
        room.everJoined = true;
        if (firstTime) save();
        messages_->startCatchUp(tribe);
        releaseWaiting(tribe, true);
        room.joinRetries = 0;
        if (room.invited) {
            room.invited = false;
            if (!callbacks_.joined.is_null())
                callbacks_.joined.Run(openim::IMTribeID(tribe), user(engine_->account()));
            if (!callbacks_.info.is_null()) callbacks_.info.Run(openim::IMTribeID(tribe));
        }
        if (wasJoining) joinAnswered(tribe);
    }
    return true;
}

// We are out of the room: removed (quit or kicked) or the room is gone.
void TribeRooms::gone(quint64 tribe, bool dismissed, bool quit) {
    auto it = rooms_.find(tribe);
    if (it == rooms_.end()) return;
    if (!it->member) {
        // Already out and waiting to hear why: this is why.
        if (it->removalUnreported && !dismissed) reportRemoval(tribe, quit);
        return;
    }
    it->member = false;
    it->invited = false;
    it->removalUnreported = false;
    if (it->joined || it->joining) leave(tribe);
    save();
    const openim::IMTribeID id(tribe);
    if (dismissed) {
        if (!callbacks_.dismissed.is_null()) callbacks_.dismissed.Run(id);
    } else {
        reportRemoval(tribe, quit);
    }
}

void TribeRooms::removedAwaitingNotice(quint64 tribe) {
    Room& room = rooms_[tribe];
    room.member = false;
    room.invited = false;
    room.removalUnreported = true;
    save();
    QTimer::singleShot(kNoticeWaitMs, this, [this, tribe] {
        auto it = rooms_.find(tribe);
        if (it != rooms_.end() && it->removalUnreported) reportRemoval(tribe, false);
    });
}

void TribeRooms::reportRemoval(quint64 tribe, bool quit) {
    auto it = rooms_.find(tribe);
    if (it != rooms_.end()) it->removalUnreported = false;
    const openim::IMTribeID id(tribe);
    if (quit) {
        if (!callbacks_.quit.is_null()) callbacks_.quit.Run(id, user(engine_->account()));
    } else if (!callbacks_.kicked.is_null()) {
        callbacks_.kicked.Run(id, user(engine_->account()));
    }
}

void TribeRooms::memberEvent(const QString& event, quint64 tribe, const QString& account) {
    const openim::IMTribeID id(tribe);
    if (event == QLatin1String("joined")) {
        if (!callbacks_.joined.is_null()) callbacks_.joined.Run(id, user(account));
    } else if (event == QLatin1String("quit")) {
        if (!callbacks_.quit.is_null()) callbacks_.quit.Run(id, user(account));
    } else if (!callbacks_.kicked.is_null()) {
        callbacks_.kicked.Run(id, user(account));
    }
    if (!callbacks_.info.is_null()) callbacks_.info.Run(id);
}

bool TribeRooms::handleInvitation(const QXmppMessage& message) {
    const QString room = TribeNotices::invitedRoom(message);
    const quint64 tribe = tribeOfJid(room);
    if (tribe == 0) return !room.isEmpty();
    Room& r = rooms_[tribe];
    if (r.member && (r.joined || r.joining)) return true;
    if (!r.member || r.since == 0) r.since = QDateTime::currentSecsSinceEpoch();
    r.member = true;
    r.invited = true;
    save();
    if (engine_->isOnline()) join(tribe);
    return true;
}

bool TribeRooms::handleNotice(const QXmppMessage& message, const QString& archiveId,
                              const QDateTime& stamp) {
    TribeNotice notice;
    switch (notices_.read(message, archiveId, stamp, &notice)) {
        case TribeNotices::Reading::None:
            return false;
        case TribeNotices::Reading::Ignored:
            return true;
        case TribeNotices::Reading::Notice:
            break;
    }
    const quint64 tribe = notice.tribe;
    const QString& event = notice.event;
    const bool self = notice.account == engine_->account();
    Room& room = rooms_[tribe];
    if (!notice.title.isEmpty() && room.name != notice.title) {
        room.name = notice.title;
        save();
    }
    if (event == QLatin1String("joined")) {
        if (self) {
            if (room.member && room.everJoined) return true;
            room.member = true;
            room.invited = true;
            if (room.since == 0) room.since = notice.time;
            save();
            if (engine_->isOnline()) join(tribe);
        } else if (room.member) {
            memberEvent(event, tribe, notice.account);
        }
    } else if (event == QLatin1String("quit") || event == QLatin1String("kicked")) {
        if (self)
            gone(tribe, false, event == QLatin1String("quit"));
        else if (room.member)
            memberEvent(event, tribe, notice.account);
    } else if (event == QLatin1String("dismissed")) {
        gone(tribe, true, false);
    } else if (event == QLatin1String("renamed")) {
        if (!callbacks_.name.is_null())
            callbacks_.name.Run(openim::IMTribeID(tribe), fromQ(notice.title));
        if (!callbacks_.info.is_null()) callbacks_.info.Run(openim::IMTribeID(tribe));
    } else {
        qInfo().noquote() << "imsdk: tribe notice of unknown kind" << event << "ignored";
    }
    return true;
}

// ---- messages: who sent them ----

QString TribeRooms::senderOf(quint64 tribe, const QString& nick, const QXmppMessage& message,
                             bool archived) const {
    return senderOf(rooms_.value(tribe), nick, message, archived);
}

QString TribeRooms::senderOf(const Room& room, const QString& nick, const QXmppMessage& message,
                             bool archived) const {
    if (archived) {
        const QString stamped = RoomIdentity::archiveStamp(message, engine_->domain());
        if (!stamped.isEmpty()) return stamped;
    }
    // A nick is never taken for an account: a member may join under another's account name.
    return room.occupants.value(nick).account;
}

void TribeRooms::handleGroupMessage(const QXmppMessage& message) {
    const quint64 tribe = tribeOfJid(message.from());
    auto it = rooms_.find(tribe);
    if (tribe == 0 || it == rooms_.end()) {
        qInfo().noquote() << "imsdk: group message from" << message.from()
                          << "dropped: not one of our rooms";
        return;
    }
    const QString nick = QXmppUtils::jidToResource(message.from());
    if (message.body().isEmpty() && !message.subject().isNull()) {
        // The room's subject, shown as the tribe's notice.
        if (it->subject != message.subject()) {
            it->subject = message.subject();
            save();
            if (!callbacks_.notice.is_null())
                callbacks_.notice.Run(openim::IMTribeID(tribe), fromQ(it->subject));
        }
        return;
    }
    if (nick.isEmpty()) return;  // the room's own status lines
    const QString sender = senderOf(*it, nick, message, false);
    if (sender.isEmpty()) {
        qWarning().noquote() << "imsdk: room" << tribe << "message" << message.id() << "from"
                             << nick << "dropped: the room never said who that is";
        return;
    }
    messages_->received(tribe, message, sender);
}
