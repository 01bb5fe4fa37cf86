#pragma once

#include <QElapsedTimer>
#include <QHash>
#include <QMutex>
#include <QString>

// Slows down password guessing without handing anyone a way to lock a colleague out.
// Wrong passwords are counted per account *and address*: after a few in a row, that account
// pauses for that address only, doubling the pause each time, so a stranger elsewhere who
// keeps sending wrong passwords pauses only himself. Every address is also counted across all
// accounts, so a guesser who moves from account to account is slowed as well. A count is
// forgotten after a quiet spell. Refusing (instead of sleeping) keeps workers free.
class LoginThrottle {
public:
    struct Limits {
        int freeAttempts = 5;  // per account and address
        int firstPauseMs = 1000;
        int maxPauseMs = 60000;
        int addressFreeAttempts = 20;  // per address, over all accounts
        qint64 forgetAfterMs = 15 * 60 * 1000;
        int maxEntries = 100000;
    };

    explicit LoginThrottle(const Limits& limits);

    // Milliseconds before `account` may be tried from `address`; 0 when it may be now.
    qint64 waitMs(const QString& account, const QString& address);
    void failed(const QString& account, const QString& address);
    // Clears the account's count for the address; the address's own count stays, so
    // signing in to one's own account does not buy more guesses at others.
    void succeeded(const QString& account, const QString& address);

    // For tests: pretend `ms` milliseconds have passed.
    void advance(qint64 ms) { offsetMs_ += ms; }

private:
    struct State {
        int failures = 0;
        qint64 lastFailureMs = 0;
        qint64 blockedUntilMs = 0;
    };
    qint64 now() const { return clock_.elapsed() + offsetMs_; }
    qint64 waitFor(const QHash<QString, State>& states, const QString& key, qint64 now) const;
    void count(QHash<QString, State>& states, const QString& key, int freeAttempts, qint64 now);
    void prune(QHash<QString, State>& states, qint64 now);

    Limits limits_;
    QElapsedTimer clock_;
    qint64 offsetMs_ = 0;
    QMutex mutex_;
    QHash<QString, State> pairs_;      // account + '\n' + address
    QHash<QString, State> addresses_;  // address
};
