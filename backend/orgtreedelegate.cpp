#include "orgtreedelegate.h"

#include <QPainter>

#include "avatarpixmapcache.h"
#include "colleague.h"
#include "orgtreemodel.h"

OrgTreeDelegate::OrgTreeDelegate(AvatarPixmapCache* avatars, QObject* parent)
    : QStyledItemDelegate(parent), avatars_(avatars) {}

QSize OrgTreeDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex&) const {
    return QSize(option.rect.width() > 0 ? option.rect.width() : 200, kRowHeight);
}

void OrgTreeDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                            const QModelIndex& index) const {
    painter->save();
    const QRect r = option.rect;
    if (option.state & QStyle::State_Selected)
        painter->fillRect(r, QColor(0xd9, 0xe6, 0xf2));
    else if (option.state & QStyle::State_MouseOver)
        painter->fillRect(r, QColor(0xee, 0xf1, 0xf4));
    const bool colleague =
        index.data(OrgTreeModel::KindRole).toString() == QLatin1String(Colleague::kKind);
    const QString name = index.data(Qt::DisplayRole).toString();
    int textLeft = r.left() + 6;
    if (colleague) {
        const bool online = index.data(OrgTreeModel::OnlineRole).toBool();
        const QRect pictureRect(r.left() + 4, r.top() + (r.height() - kAvatar) / 2, kAvatar,
                                kAvatar);
        if (avatars_)
            painter->drawPixmap(
                pictureRect,
                avatars_->pixmap(index.data(OrgTreeModel::IdRole).toString(), online, kAvatar));
        textLeft = pictureRect.right() + 8;
        painter->setPen(online ? QColor(0x44, 0x44, 0x44) : QColor(0x99, 0x99, 0x99));
    } else {
        QFont bold = option.font;
        bold.setBold(true);
        painter->setFont(bold);
        painter->setPen(QColor(0x33, 0x33, 0x33));
    }
    const QRect textRect(textLeft, r.top(), r.right() - textLeft - 4, r.height());
    painter->drawText(textRect, Qt::AlignVCenter | Qt::AlignLeft,
                      painter->fontMetrics().elidedText(name, Qt::ElideRight, textRect.width()));
    painter->restore();
}
