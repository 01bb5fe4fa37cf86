#pragma once

#include <QCache>
#include <QObject>
#include <QPixmap>
#include <QSet>
#include <QString>

class DirectoryStore;
namespace quelix {
class AvatarManager;
}

// Scaled avatar pictures for the list views, colour for colleagues who are on line and
// grey for the others. A picture is asked for only when a view paints its row, so a tree
// of 100,000 colleagues fetches what the user scrolls past, not the company. The cache is
// bounded; a dropped picture is read again from disk when its row comes back.
class AvatarPixmapCache : public QObject {
    Q_OBJECT
public:
    static constexpr int kMaxCostKb = 8 * 1024;

    explicit AvatarPixmapCache(DirectoryStore* store = nullptr,
                               quelix::AvatarManager* avatars = nullptr, QObject* parent = nullptr);

    // The picture to paint now: the colleague's own when it is on disk (a download is
    // started the first time it is not), else the placeholder.
    QPixmap pixmap(const QString& userId, bool online, int size);
    // How many downloads this cache has asked for; benchmarks and tests read it.
    int requested() const { return asked_.size(); }

signals:
    // A colleague's picture arrived: rows showing them should repaint.
    void avatarChanged(const QString& userId);

private:
    void received(const QString& userId);

    DirectoryStore* store_;
    quelix::AvatarManager* avatars_;
    QCache<QString, QPixmap> cache_;
    QSet<QString> asked_;  // asked once per session; a failed download is not retried per paint
};
