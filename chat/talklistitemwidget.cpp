#include "talklistitemwidget.h"

#include <QApplication>
#include <QLabel>

#include "screenmetrics.h"
#include "uifont.h"

TalkListItemWidget::TalkListItemWidget(QWidget* parent)
    : QWidget(parent), badge_(new QLabel(this)) {
    badge_->setAlignment(Qt::AlignCenter);
    const auto styleBadge = [this] {
        const int text = UiFont::px(ScreenMetrics::instance().value(ScreenMetrics::FontSizeSmall));
        const int size = text + 6;
        badge_->setMinimumWidth(size);
        badge_->setFixedHeight(size);
        badge_->setStyleSheet(
            QStringLiteral(
                "QLabel{background-color:#FFA54F;border-style:none;font-family:%3;font-size:%1px;"
                "color:#fff;border-radius:%2px;}")
                .arg(text)
                .arg(size / 2)
                .arg(QApplication::font().family()));
    };
    styleBadge();
    connect(&UiFont::instance(), &UiFont::changed, badge_, styleBadge);
    badge_->hide();
}

void TalkListItemWidget::setUnreadCount(int count) {
    unread_ = qMax(0, count);
    badge_->setText(QString::number(unread_));
    badge_->setVisible(unread_ > 0);
}
