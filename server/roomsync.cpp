#include "roomsync.h"

#include "mucprotocol.h"
#include "xmppadminsession.h"

#include <QPointer>

namespace {

const char* const kListed[] = {"owner", "admin", "member"};

bool gone(const QString& error) {
    // A destroyed room leaves a tombstone on some servers ("gone"); either way it is not there.
    return error == QLatin1String("item-not-found") || error == QLatin1String("gone");
}

}  // namespace

RoomSync::RoomSync(XmppAdminSession* session, const ProjectRoom& plan, const QString& mucDomain,
                   const QString& userDomain, QObject* parent)
    : QObject(parent),
      session_(session),
      plan_(plan),
      room_(QStringLiteral("%1@%2").arg(plan.id).arg(mucDomain)),
      userDomain_(userDomain.toLower()) {}

void RoomSync::run() {
    if (plan_.exists) return checkExists();
    if (plan_.dissolved) return destroy();
    done(QString());
}

bool RoomSync::failed(const QString& step, const QString& error) {
    if (error.isEmpty()) return false;
    done(QStringLiteral("%1: %2").arg(step, error));
    return true;
}

void RoomSync::checkExists() {
    QPointer<RoomSync> self(this);
    session_->sendIq(QXmppIq::Get, room_, MucProtocol::query(MucProtocol::kDiscoInfo),
                     [self](const QDomElement&, const QString& error) {
                         if (!self) return;
                         if (gone(error)) return self->create();
                         if (self->failed(QStringLiteral("room info"), error)) return;
                         self->configure(false);
                     });
}

void RoomSync::create() {
    QPointer<RoomSync> self(this);
    occupant_ = room_ + QStringLiteral("/quelix-backend");
    session_->enterRoom(occupant_, [self](const QDomElement&, const QString& error) {
        if (!self || self->failed(QStringLiteral("create"), error)) return;
        // Configuring unlocks the new room and makes it persistent; the back end leaves at the
        // end of the pass, so that it stays out of the members' occupant lists.
        self->configure(true);
    });
}

void RoomSync::configure(bool always) {
    QPointer<RoomSync> self(this);
    session_->sendIq(QXmppIq::Get, room_, MucProtocol::query(MucProtocol::kMucOwner),
                     [self, always](const QDomElement& form, const QString& error) {
                         if (!self || self->failed(QStringLiteral("read configuration"), error))
                             return;
                         const QXmppElement submit = MucProtocol::configSubmission(
                             form, MucProtocol::projectRoomConfig(self->plan_.title), always);
                         if (submit.isNull()) return self->readAffiliations(0);
                         QXmppElement q = MucProtocol::query(MucProtocol::kMucOwner);
                         q.appendChild(submit);
                         self->session_->sendIq(
                             QXmppIq::Set, self->room_, q,
                             [self](const QDomElement&, const QString& error) {
                                 if (!self || self->failed(QStringLiteral("configure"), error))
                                     return;
                                 self->readAffiliations(0);
                             });
                     });
}

void RoomSync::readAffiliations(int index) {
    if (index == int(std::size(kListed))) return applyAffiliations();
    QPointer<RoomSync> self(this);
    const QString affiliation = QLatin1String(kListed[index]);
    session_->sendIq(QXmppIq::Get, room_, MucProtocol::affiliationQuery(affiliation),
                     [self, affiliation, index](const QDomElement& answer, const QString& error) {
                         if (!self || self->failed(QStringLiteral("read ") + affiliation +
                                                       QStringLiteral(" list"),
                                                   error))
                             return;
                         for (const QString& jid : MucProtocol::listedJids(answer)) {
                             self->current_.insert(jid, affiliation);
                         }
                         self->readAffiliations(index + 1);
                     });
}

void RoomSync::applyAffiliations() {
    QHash<QString, QString> wanted;
    for (qint64 member : qAsConst(plan_.members)) {
        wanted.insert(QStringLiteral("%1@%2").arg(member).arg(userDomain_),
                      QStringLiteral("member"));
    }
    wanted.insert(QStringLiteral("%1@%2").arg(plan_.owner).arg(userDomain_),
                  QStringLiteral("owner"));
    QList<QPair<QString, QString>> changes;
    for (auto it = wanted.constBegin(); it != wanted.constEnd(); ++it) {
        if (current_.value(it.key()) != it.value()) changes.append({it.key(), it.value()});
    }
    for (auto it = current_.constBegin(); it != current_.constEnd(); ++it) {
        // Our own account keeps the room; anyone the directory does not name goes ("none"
        // puts them out of a members-only room and keeps them out).
        if (!wanted.contains(it.key()) && it.key() != session_->bareJid()) {
            changes.append({it.key(), QStringLiteral("none")});
        }
    }
    if (changes.isEmpty()) return done(QString());
    // One item per query: some servers apply only the first item of a list.
    outstanding_ = changes.size();
    QPointer<RoomSync> self(this);
    for (const auto& change : qAsConst(changes)) {
        const QString what = change.first + QLatin1Char(' ') + change.second;
        session_->sendIq(QXmppIq::Set, room_,
                         MucProtocol::affiliationQuery(change.second, change.first),
                         [self, what](const QDomElement&, const QString& error) {
                             if (!self) return;
                             if (!error.isEmpty() && self->firstError_.isEmpty()) {
                                 self->firstError_ = QStringLiteral("set %1: %2").arg(what, error);
                             }
                             if (--self->outstanding_ == 0) self->done(self->firstError_);
                         });
    }
}

void RoomSync::destroy() {
    QPointer<RoomSync> self(this);
    session_->sendIq(QXmppIq::Set, room_, MucProtocol::destroyQuery(QStringLiteral("项目已解散")),
                     [self](const QDomElement&, const QString& error) {
                         if (!self) return;
                         const bool ok = error.isEmpty() || gone(error);
                         self->done(ok ? QString() : QStringLiteral("destroy: ") + error);
                     });
}

void RoomSync::done(const QString& error) {
    if (!occupant_.isEmpty()) session_->leaveRoom(occupant_);
    emit finished(plan_.id, error.isEmpty(), error);
    deleteLater();
}
