#include "baseitem.h"

#include <QFileInfo>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPixmapCache>

#include "avatarmanager.h"
#include "directorystore.h"
#include "itemsizer.h"

namespace qx_output {

namespace {
const QColor kOwnBubble(0x9e, 0xd4, 0xff);
const QColor kOtherBubble(0xff, 0xff, 0xff);
const QColor kNameColour(0x88, 0x88, 0x88);
}  // namespace

BaseItem::BaseItem(const MessageEntry& e, QWidget* parent)
    : QWidget(parent),
      content_(e.content),
      senderId_(e.msg.senderId),
      senderName_(e.msg.senderName.isEmpty() ? e.msg.senderId : e.msg.senderName),
      msgId_(e.msg.msgId),
      isSelf_(e.msg.isSelf),
      showName_(e.showName) {
    setAttribute(Qt::WA_OpaquePaintEvent, false);
}

QRect BaseItem::avatarRect() const {
    const int x = isSelf_ ? width() - ItemSizer::kSide - ItemSizer::kAvatar : ItemSizer::kSide;
    return QRect(x, ItemSizer::kTop, ItemSizer::kAvatar, ItemSizer::kAvatar);
}

QRect BaseItem::bubbleRect() const {
    const QSize size(content_.width() + 2 * ItemSizer::kPad,
                     content_.height() + 2 * ItemSizer::kPad);
    const int top = ItemSizer::kTop + (showName_ ? ItemSizer::nameHeight() : 0);
    const int edge = ItemSizer::kSide + ItemSizer::kAvatar + ItemSizer::kGap;
    const int x = isSelf_ ? width() - edge - size.width() : edge;
    return QRect(QPoint(x, top), size);
}

QColor BaseItem::bubbleColour() const { return isSelf_ ? kOwnBubble : kOtherBubble; }

QRect BaseItem::contentRect() const {
    return bubbleRect().adjusted(ItemSizer::kPad, ItemSizer::kPad, -ItemSizer::kPad,
                                 -ItemSizer::kPad);
}

QPixmap BaseItem::avatarPixmap(const QString& userId) {
    const QString key = QStringLiteral("qx_output/avatar/") + userId;
    QPixmap pixmap;
    if (QPixmapCache::find(key, &pixmap)) return pixmap;
    quelix::AvatarManager& avatars = quelix::AvatarManager::instance();
    QString path = avatars.displayPath(userId, true);
    if (!QFileInfo::exists(avatars.avatarPath(userId))) {
        // Fetched when a row first needs it; the row repaints once it is on disk.
        if (const Colleague* c = DirectoryStore::instance().colleague(userId))
            avatars.requestAvatar(userId, c->userIcon());
    }
    if (!pixmap.load(path)) pixmap.load(QStringLiteral(":/resource/Chat/default_user_icon.png"));
    if (!pixmap.isNull())
        pixmap = pixmap.scaled(ItemSizer::kAvatar, ItemSizer::kAvatar, Qt::KeepAspectRatio,
                               Qt::SmoothTransformation);
    QPixmapCache::insert(key, pixmap);
    return pixmap;
}

void BaseItem::forgetAvatar(const QString& userId) {
    QPixmapCache::remove(QStringLiteral("qx_output/avatar/") + userId);
}

void BaseItem::onAvatarClicked() { emit avatarClickedSignal(senderId_); }

void BaseItem::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRect avatar = avatarRect();
    QPainterPath round;
    round.addEllipse(avatar);
    p.save();
    p.setClipPath(round);
    p.drawPixmap(avatar, avatarPixmap(senderId_));
    p.restore();
    if (showName_) {
        p.setPen(kNameColour);
        QFont f = font();
        f.setPixelSize(ItemSizer::namePixelSize());
        p.setFont(f);
        const int edge = ItemSizer::kSide + ItemSizer::kAvatar + ItemSizer::kGap;
        const QRect nameRect(edge, ItemSizer::kTop, width() - 2 * edge, ItemSizer::nameHeight());
        p.drawText(nameRect, (isSelf_ ? Qt::AlignRight : Qt::AlignLeft) | Qt::AlignVCenter,
                   senderName_);
    }
    if (paintsBubble()) {
        p.setPen(Qt::NoPen);
        p.setBrush(bubbleColour());
        p.drawRoundedRect(bubbleRect(), 6, 6);
    }
}

void BaseItem::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton && avatarRect().contains(event->pos())) {
        onAvatarClicked();
        return;
    }
    QWidget::mousePressEvent(event);
}

}  // namespace qx_output
