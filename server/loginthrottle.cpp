#include "loginthrottle.h"

#include <QMutexLocker>

#include <iterator>

namespace {

QString pairKey(const QString& account, const QString& address) {
    return account + QLatin1Char('\n') + address;
}

}  // namespace

LoginThrottle::LoginThrottle(const Limits& limits) : limits_(limits) { clock_.start(); }

qint64 LoginThrottle::waitFor(const QHash<QString, State>& states, const QString& key,
                              qint64 now) const {
    const auto it = states.constFind(key);
    return it == states.constEnd() ? 0 : qMax<qint64>(0, it->blockedUntilMs - now);
}

qint64 LoginThrottle::waitMs(const QString& account, const QString& address) {
    QMutexLocker lock(&mutex_);
    const qint64 t = now();
    return qMax(waitFor(pairs_, pairKey(account, address), t), waitFor(addresses_, address, t));
}

void LoginThrottle::count(QHash<QString, State>& states, const QString& key, int freeAttempts,
                          qint64 now) {
    if (states.size() >= limits_.maxEntries) prune(states, now);
    State& s = states[key];
    // A quiet spell forgives earlier mistakes; a slow guesser is still paused every few tries.
    if (s.failures > 0 && now - s.lastFailureMs > limits_.forgetAfterMs) s = State();
    ++s.failures;
    s.lastFailureMs = now;
    if (s.failures < freeAttempts) return;
    const int doublings = qMin(s.failures - freeAttempts, 16);
    s.blockedUntilMs =
        now + qMin<qint64>(qint64(limits_.firstPauseMs) << doublings, limits_.maxPauseMs);
}

void LoginThrottle::prune(QHash<QString, State>& states, qint64 now) {
    // Bounded memory under a flood of names: forgotten and unpaused entries go first, then,
    // if the flood is all fresh, the unpaused ones; paused entries stay paused so a flood
    // cannot lift a pause.
    for (auto it = states.begin(); it != states.end();) {
        const bool forgotten = now - it->lastFailureMs > limits_.forgetAfterMs;
        it = forgotten && it->blockedUntilMs <= now ? states.erase(it) : std::next(it);
    }
    if (states.size() < limits_.maxEntries) return;
    for (auto it = states.begin(); it != states.end();)
        it = it->blockedUntilMs <= now ? states.erase(it) : std::next(it);
}

void LoginThrottle::failed(const QString& account, const QString& address) {
    QMutexLocker lock(&mutex_);
    const qint64 t = now();
    count(pairs_, pairKey(account, address), limits_.freeAttempts, t);
    count(addresses_, address, limits_.addressFreeAttempts, t);
}

void LoginThrottle::succeeded(const QString& account, const QString& address) {
    QMutexLocker lock(&mutex_);
    pairs_.remove(pairKey(account, address));
}
