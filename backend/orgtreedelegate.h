#pragma once

#include <QStyledItemDelegate>

class AvatarPixmapCache;

// Paints one row of the organisation tree or a member list: departments as a name line,
// colleagues with their avatar (grey while off line) and name. Painting asks the avatar
// cache, so only rows on screen ever request a picture.
class OrgTreeDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    static constexpr int kRowHeight = 36;
    static constexpr int kAvatar = 28;

    explicit OrgTreeDelegate(AvatarPixmapCache* avatars, QObject* parent = nullptr);

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

private:
    AvatarPixmapCache* avatars_;
};
