#pragma once

#include <QDateTime>
#include <QHash>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>
#include <functional>
#include <vector>

#include <QXmppMessage.h>

#include "base/callback.h"
#include "openim/download_media_result.h"
#include "openim/im_tribe_id.h"
#include "openim/im_tribe_message.h"
#include "openim/im_user_id.h"
#include "openim/result_code.h"
#include "prg/prg_string.h"
#include "sdk/tribe_notices.h"
#include "store/stored_message.h"

class ImEngine;
class QDomElement;
class QTimer;
class TribeMessages;

// The account's tribes: one members-only room per project at
// "<project id>@conference.<domain>", joined under the account's own name. Lives beside the
// engine on the SDK thread; its messages (TribeMessages) share the engine's store: a
// tribe's messages are rows whose peer is key(id), so unread counts, paging and media
// downloads work as for one-to-one talk.
//
// Where the nine tribe events come from:
//   1 loaded       every room of the account answered its join after a sign-in or reconnect
//   2 joined       the back end's notice "joined" (for us: an invitation we could act on,
//                  reported once the room let us in)
//   3 quit         notice "quit"; for us also the room removing us with the reason "quit"
//   4 kicked       notice "kicked"; for us also the room removing, banning or kicking us
//                  otherwise, or refusing our join while we counted ourselves a member
//   5 role         an occupant's affiliation changed (owner, admin, member)
//   6 name         notice "renamed" (the project's new title)
//   7 notice       the room's subject changed
//   8 dismissed    the room was destroyed, notice "dismissed", or a room we had been in is
//                  gone when we come back
//   9 info         after a name or member-list change, so that the client reads it again
// Notices are messages from the back end's own account (the authority); nobody else's are
// believed. Without an authority, others' comings and goings are taken from the room's
// presence instead.
class TribeRooms : public QObject {
    Q_OBJECT
public:
    struct Callbacks {
        base::Callback<void()> loaded;
        base::Callback<void(openim::IMTribeID, openim::IMUserID)> joined, quit, kicked;
        base::Callback<void(openim::IMTribeID, openim::IMUserID, openim::IMUserID)> role;
        base::Callback<void(openim::IMTribeID, prg::PrgStringT<wchar_t>)> name, notice;
        base::Callback<void(const openim::IMTribeID&)> dismissed;
        base::Callback<void(openim::IMTribeID)> info, message;
        base::Callback<void(openim::ResultCode, openim::DownloadTribeMediaResult)> download;
    };

    explicit TribeRooms(ImEngine* engine);

    Callbacks& callbacks() { return callbacks_; }
    void setAuthority(const QString& account) { notices_.setAuthority(account); }
    // The back end's own account (its notices are believed), empty when none was named.
    const QString& authority() const { return notices_.authority(); }

    // Store peer keys of tribes: "tribe:<id>", never an account.
    static QString key(quint64 tribe);
    static bool isKey(const QString& peer);
    static quint64 idOfKey(const QString& peer);
    QString roomJid(quint64 tribe) const;
    QString conferenceDomain() const;

    // Session (SDK thread).
    void accountOpened();
    void sessionStarted();
    void sessionEnded();

    // Stanzas the engine hands on. Each returns true when it was ours.
    bool handlePresence(const QDomElement& presence);
    void handleGroupMessage(const QXmppMessage& message);
    bool handleInvitation(const QXmppMessage& message);
    // A notice from the authority, live or from the account's archive.
    bool handleNotice(const QXmppMessage& message, const QString& archiveId,
                      const QDateTime& stamp);

    // Service operations (SDK thread).
    void sync(const QList<quint64>& tribes, const QStringList& names);
    bool isMember(quint64 tribe) const;
    bool isJoined(quint64 tribe) const;
    // The room no longer has us although we thought it did (it said so, or did not know
    // us when asked): join again; the catch-up after the join brings what was missed.
    void rejoin(quint64 tribe);
    // The tribe of a room's JID (bare or with a nick), 0 when it is none of ours.
    quint64 tribeOfRoom(const QString& jid) const { return tribeOfJid(jid); }
    QList<quint64> joinedTribes() const;
    // Runs `then(true)` once the room has let us in (at once if it has), `then(false)` when
    // it will not: a send made while the room is being joined waits for it.
    void whenJoined(quint64 tribe, std::function<void(bool)> then);
    QString name(quint64 tribe) const;
    QString subject(quint64 tribe) const;
    QStringList occupants(quint64 tribe) const;
    qint64 since(quint64 tribe) const;
    // The account behind a room nick as the room itself told it (see RoomIdentity); for an
    // archived message the server's own stamp first. Empty when the room never said.
    QString senderOf(quint64 tribe, const QString& nick, const QXmppMessage& message,
                     bool archived) const;
    TribeMessages* messages() { return messages_; }

private:
    struct Occupant {
        QString account;
        QString affiliation;
    };
    struct Room {
        QString name;
        QString subject;
        qint64 since = 0;  // catch up from here while nothing of the room is stored
        bool member = true;
        bool everJoined = false;
        bool joined = false;
        bool joining = false;
        bool invited = false;
        // Put out of the room with no reason given: the back end's notice says whether
        // we left or were removed; without one in a few seconds, it counts as removed.
        bool removalUnreported = false;
        int joinRetries = 0;                 // report our own arrival once the room lets us in
        QHash<QString, Occupant> occupants;  // by nick
    };

    void load();
    void save();
    void join(quint64 tribe);
    void leave(quint64 tribe);
    void joinAnswered(quint64 tribe);
    void releaseWaiting(quint64 tribe, bool joined);
    void gone(quint64 tribe, bool dismissed, bool quit);
    void removedAwaitingNotice(quint64 tribe);
    void reportRemoval(quint64 tribe, bool quit);
    QString senderOf(const Room& room, const QString& nick, const QXmppMessage& message,
                     bool archived) const;
    quint64 tribeOfJid(const QString& jid) const;
    openim::IMUserID user(const QString& account) const;
    void memberEvent(const QString& event, quint64 tribe, const QString& account);

    ImEngine* engine_;
    Callbacks callbacks_;
    TribeNotices notices_;
    QHash<quint64, Room> rooms_;
    QHash<quint64, QList<std::function<void(bool)>>> waiting_;
    TribeMessages* messages_;
    QTimer* loadedTimer_;
    int awaitingJoins_ = 0;
    bool loadedReported_ = true;
};
