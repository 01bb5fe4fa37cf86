#include "avatarpixmapcache.h"

#include <QFileInfo>

#include "avatarmanager.h"
#include "colleague.h"
#include "directorystore.h"

AvatarPixmapCache::AvatarPixmapCache(DirectoryStore* store, quelix::AvatarManager* avatars,
                                     QObject* parent)
    : QObject(parent),
      store_(store ? store : &DirectoryStore::instance()),
      avatars_(avatars ? avatars : &quelix::AvatarManager::instance()),
      cache_(kMaxCostKb) {
    connect(avatars_, &quelix::AvatarManager::signal_ReceiveAvatar, this,
            [this](const QString& userId, const QString&) { received(userId); });
}

QPixmap AvatarPixmapCache::pixmap(const QString& userId, bool online, int size) {
    const QString key = QStringLiteral("%1/%2/%3").arg(userId).arg(online ? 1 : 0).arg(size);
    if (const QPixmap* hit = cache_.object(key)) return *hit;
    const bool own = QFileInfo::exists(avatars_->avatarPath(userId));
    if (!own && !asked_.contains(userId)) {
        if (const Colleague* c = store_->colleague(userId)) {
            if (!c->view(Colleague::UserIcon).isEmpty()) {
                asked_.insert(userId);
                avatars_->requestAvatar(userId, c->userIcon());
            }
        }
    }
    // Everyone without a picture shares one placeholder per state and size, rather than
    // one entry each that would crowd real pictures out.
    const QString stored =
        own ? key : QStringLiteral("/placeholder/%1/%2").arg(online ? 1 : 0).arg(size);
    if (!own)
        if (const QPixmap* hit = cache_.object(stored)) return *hit;
    QPixmap picture(avatars_->displayPath(userId, online));
    if (!picture.isNull())
        picture = picture.scaled(size, size, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    const int costKb = qMax(1, picture.width() * picture.height() * 4 / 1024);
    cache_.insert(stored, new QPixmap(picture), costKb);
    return picture;
}

void AvatarPixmapCache::received(const QString& userId) {
    for (int online = 0; online < 2; ++online) {
        const QString prefix = QStringLiteral("%1/%2/").arg(userId).arg(online);
        const QList<QString> keys = cache_.keys();
        for (const QString& k : keys)
            if (k.startsWith(prefix)) cache_.remove(k);
    }
    emit avatarChanged(userId);
}
