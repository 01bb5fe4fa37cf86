#include "loginthrottle.h"

#include <QMutexLocker>

#include <iterator>

LoginThrottle::LoginThrottle(int freeAttempts, int firstPauseMs, int maxPauseMs)
    : freeAttempts_(freeAttempts), firstPauseMs_(firstPauseMs), maxPauseMs_(maxPauseMs) {
    clock_.start();
}

qint64 LoginThrottle::waitMs(const QString& account) {
    QMutexLocker lock(&mutex_);
    const auto it = states_.constFind(account);
    if (it == states_.constEnd()) return 0;
    return qMax<qint64>(0, it->blockedUntilMs - clock_.elapsed());
}

void LoginThrottle::failed(const QString& account) {
    QMutexLocker lock(&mutex_);
    if (states_.size() > 100000) {
        // Bounded memory under a flood of names; accounts still paused stay paused, so the
        // flood cannot be used to lift a pause.
        const qint64 now = clock_.elapsed();
        for (auto it = states_.begin(); it != states_.end();) {
            it = it->blockedUntilMs <= now ? states_.erase(it) : std::next(it);
        }
    }
    State& s = states_[account];
    ++s.failures;
    if (s.failures < freeAttempts_) return;
    const int doublings = qMin(s.failures - freeAttempts_, 16);
    const qint64 pause = qMin<qint64>(qint64(firstPauseMs_) << doublings, maxPauseMs_);
    s.blockedUntilMs = clock_.elapsed() + pause;
}

void LoginThrottle::succeeded(const QString& account) {
    QMutexLocker lock(&mutex_);
    states_.remove(account);
}
