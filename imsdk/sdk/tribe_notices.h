#pragma once

#include <QDateTime>
#include <QString>

class ImEngine;
class QXmppMessage;

// What the back end says about a tribe: one of "joined", "quit", "kicked" (with the account
// it is about), "dismissed" or "renamed" (with the project's new title in `title`).
struct TribeNotice {
    QString event;
    quint64 tribe = 0;
    QString account;
    QString title;
    qint64 time = 0;  // seconds since the epoch, the server's stamp when it gave one
};

// Reads the back end's notices about tribes (`<tribe xmlns="urn:quelix:tribe:1"/>` in a
// message from its own account) and invitations to rooms. Only the company's own account is
// believed, and a notice seen live and again in the account's archive counts once: each is
// kept, hidden, in the account's store.
class TribeNotices {
public:
    static constexpr char kNamespace[] = "urn:quelix:tribe:1";

    enum class Reading {
        None,     // the message carries no notice
        Ignored,  // not the company's, seen before or unusable (a log line says which)
        Notice,   // `notice` holds one to act on
    };

    explicit TribeNotices(ImEngine* engine) : engine_(engine) {}

    void setAuthority(const QString& account) { authority_ = account; }
    // The back end's own account, empty when none was named.
    const QString& authority() const { return authority_; }

    Reading read(const QXmppMessage& message, const QString& archiveId, const QDateTime& stamp,
                 TribeNotice* notice) const;

    // The bare JID of the room a message invites us to (direct or mediated by the room),
    // empty when it is no invitation. Anyone may invite: the room decides who comes in.
    static QString invitedRoom(const QXmppMessage& message);

private:
    ImEngine* engine_;
    QString authority_;
};
