#include "messagelabel.h"

#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPropertyAnimation>
#include <QScreen>
#include <QVBoxLayout>

#include "plaintext.h"
#include "uifont.h"

MessageLabel::MessageLabel(QWidget* parent)
    : QWidget(parent, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint) {
    setObjectName(QStringLiteral("messageLabel"));
    setAttribute(Qt::WA_StyledBackground);
    // A notice, not a window to type into: it must never take the focus from the user.
    setAttribute(Qt::WA_ShowWithoutActivating);
    setStyleSheet(
        QStringLiteral("QWidget#messageLabel{background-color:#ffffff;border:1px solid #d5dde6;}"));
    // Grows with the text it shows.
    const auto size = [this] { setFixedSize(UiFont::px(280), UiFont::px(76)); };
    size();
    connect(&UiFont::instance(), &UiFont::changed, this, size);
    setCursor(Qt::PointingHandCursor);
    auto* h = new QHBoxLayout(this);
    h->setContentsMargins(12, 10, 12, 10);
    avatar_ = new QLabel(this);
    avatar_->setFixedSize(44, 44);
    avatar_->setScaledContents(true);
    h->addWidget(avatar_);
    auto* v = new QVBoxLayout;
    name_ = plaintext::label(QString(), this);
    UiFont::keepStyled(name_, QStringLiteral("QLabel{color:#1f2d3d;font-size:14px;}"));
    summary_ = plaintext::label(QString(), this);
    UiFont::keepStyled(summary_, QStringLiteral("QLabel{color:#8492a6;font-size:12px;}"));
    v->addWidget(name_);
    v->addWidget(summary_);
    h->addLayout(v, 1);

    hideTimer_.setSingleShot(true);
    hideTimer_.setInterval(kShowMs);
    connect(&hideTimer_, &QTimer::timeout, this, &QWidget::hide);
    slide_ = new QPropertyAnimation(this, "pos", this);
    slide_->setDuration(kSlideMs);
    slide_->setEasingCurve(QEasingCurve::OutCubic);
}

void MessageLabel::showMessage(const QString& id, const QString& name, const QString& summary,
                               const QString& avatar) {
    id_ = id;
    // In a burst only the last message of a turn of the event loop is ever seen: the
    // texts are laid out once per turn, not once per message.
    pending_ = {name, summary, avatar};
    if (!textQueued_) {
        textQueued_ = true;
        QTimer::singleShot(0, this, &MessageLabel::applyText);
    }
    QScreen* screen = QGuiApplication::primaryScreen();
    const QRect avail = screen ? screen->availableGeometry() : QRect(0, 0, 1280, 800);
    const QPoint end(avail.right() - width() - 8, avail.bottom() - height() - 8);
    if (!isVisible()) {
        // Slides up from just below the work area's edge.
        move(end.x(), avail.bottom());
        show();
        slide_->stop();
        slide_->setStartValue(pos());
        slide_->setEndValue(end);
        slide_->start();
    } else {
        move(end);
    }
    hideTimer_.start();
}

void MessageLabel::applyText() {
    textQueued_ = false;
    name_->setText(pending_.name);
    summary_->setText(summary_->fontMetrics().elidedText(pending_.summary, Qt::ElideRight, 190));
    // A burst from one colleague shows the same picture each time: read from disk once.
    if (pending_.avatar != avatarPath_ || pending_.avatar.isEmpty()) {
        avatarPath_ = pending_.avatar;
        avatar_->setPixmap(avatarPath_.isEmpty() ? QPixmap() : QPixmap(avatarPath_));
    }
}

void MessageLabel::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) {
        hide();
        hideTimer_.stop();
        emit msgTipClicked(id_);
    }
    QWidget::mouseReleaseEvent(event);
}

// The user reading the pop-up keeps it; it counts down again once the pointer leaves.
void MessageLabel::enterEvent(QEvent* event) {
    hideTimer_.stop();
    QWidget::enterEvent(event);
}

void MessageLabel::leaveEvent(QEvent* event) {
    if (isVisible()) hideTimer_.start();
    QWidget::leaveEvent(event);
}
