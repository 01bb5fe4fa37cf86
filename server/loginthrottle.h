#pragma once

#include <QElapsedTimer>
#include <QHash>
#include <QMutex>
#include <QString>

// Slows down password guessing per account: after a few wrong passwords in a row the
// account refuses further attempts for a while, doubling the pause each time. Refusing
// (instead of sleeping) keeps server threads free for everyone else.
class LoginThrottle {
public:
    explicit LoginThrottle(int freeAttempts = 5, int firstPauseMs = 1000, int maxPauseMs = 60000);

    // Milliseconds the account must still wait; 0 when an attempt may be checked now.
    qint64 waitMs(const QString& account);
    void failed(const QString& account);
    void succeeded(const QString& account);

private:
    struct State {
        int failures = 0;
        qint64 blockedUntilMs = 0;
    };
    int freeAttempts_;
    int firstPauseMs_;
    int maxPauseMs_;
    QElapsedTimer clock_;
    QMutex mutex_;
    QHash<QString, State> states_;
};
