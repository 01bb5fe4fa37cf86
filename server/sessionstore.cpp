#include "sessionstore.h"

#include "passwordhasher.h"

#include <QMutexLocker>
#include <QRandomGenerator>

#include <iterator>

namespace {

QByteArray randomHex(int bytes) {
    QByteArray raw(bytes, '\0');
    QRandomGenerator::system()->fillRange(reinterpret_cast<quint32*>(raw.data()),
                                          bytes / int(sizeof(quint32)));
    return raw.toHex();
}

}  // namespace

SessionStore::SessionStore(int lifetimeSeconds) : lifetime_(qMax(60, lifetimeSeconds)) {}

QByteArray SessionStore::open(qint64 userId) {
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const QDateTime expires = now.addSecs(lifetime_);
    QMutexLocker lock(&mutex_);
    if (++opensSinceSweep_ >= 1024) {
        opensSinceSweep_ = 0;
        dropLapsed(now);
    }
    const QByteArray id = randomHex(16);
    sessions_.insert(id, Session{userId, expires});
    Token& token = tokens_[userId];
    if (token.value.isEmpty() || token.expires <= now) token.value = randomHex(16);
    token.expires = expires;
    return id;
}

qint64 SessionStore::userOf(const QByteArray& sessionId) {
    QMutexLocker lock(&mutex_);
    const auto it = sessions_.constFind(sessionId);
    if (it == sessions_.constEnd() || it->expires <= QDateTime::currentDateTimeUtc()) return 0;
    return it->userId;
}

QByteArray SessionStore::tokenOf(qint64 userId) {
    QMutexLocker lock(&mutex_);
    const auto it = tokens_.constFind(userId);
    if (it == tokens_.constEnd() || it->expires <= QDateTime::currentDateTimeUtc()) return {};
    return it->value;
}

bool SessionStore::tokenMatches(qint64 userId, const QByteArray& token) {
    return PasswordHasher::constantTimeEquals(tokenOf(userId), token);
}

void SessionStore::dropLapsed(const QDateTime& now) {
    for (auto it = sessions_.begin(); it != sessions_.end();) {
        it = it->expires <= now ? sessions_.erase(it) : std::next(it);
    }
    for (auto it = tokens_.begin(); it != tokens_.end();) {
        it = it->expires <= now ? tokens_.erase(it) : std::next(it);
    }
}
