#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QMutex>

// Who is signed in. A log-in opens a session (the cookie the client's network manager keeps)
// and gives the user a signature token ("md5Sign"): random, held only here, and the same
// for all of the user's sessions until it lapses. Every log-in renews both.
class SessionStore {
public:
    explicit SessionStore(int lifetimeSeconds = 2 * 60 * 60);

    int lifetimeSeconds() const { return lifetime_; }

    // Opens a session for the user; returns its id. The token is created or renewed.
    QByteArray open(qint64 userId);
    // The user of a live session, 0 when the id is unknown or lapsed.
    qint64 userOf(const QByteArray& sessionId);
    // The user's live token, empty when none.
    QByteArray tokenOf(qint64 userId);
    bool tokenMatches(qint64 userId, const QByteArray& token);

private:
    struct Session {
        qint64 userId;
        QDateTime expires;
    };
    struct Token {
        QByteArray value;
        QDateTime expires;
    };
    void dropLapsed(const QDateTime& now);

    int lifetime_;
    QMutex mutex_;
    QHash<QByteArray, Session> sessions_;
    QHash<qint64, Token> tokens_;
    int opensSinceSweep_ = 0;
};
