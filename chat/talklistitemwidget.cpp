#include "talklistitemwidget.h"

#include <QApplication>
#include <QLabel>

#include "screenmetrics.h"

TalkListItemWidget::TalkListItemWidget(QWidget* parent)
    : QWidget(parent), badge_(new QLabel(this)) {
    const ScreenMetrics& m = ScreenMetrics::instance();
    const int size = m.value(ScreenMetrics::FontSizeSmall) + 6;
    badge_->setMinimumWidth(size);
    badge_->setFixedHeight(size);
    badge_->setAlignment(Qt::AlignCenter);
    badge_->setStyleSheet(
        QStringLiteral(
            "QLabel{background-color:#FFA54F;border-style:none;font-family:%3;font-size:%1px;"
            "color:#fff;border-radius:%2px;}")
            .arg(m.value(ScreenMetrics::FontSizeSmall))
            .arg(size / 2)
            .arg(QApplication::font().family()));
    badge_->hide();
}

void TalkListItemWidget::setUnreadCount(int count) {
    unread_ = qMax(0, count);
    badge_->setText(QString::number(unread_));
    badge_->setVisible(unread_ > 0);
}
