// Moving the frameless main window: dragging, shaking, keeping its place across the tray.
#include "windowmotion.h"

#include <QHideEvent>
#include <QMouseEvent>
#include <QShowEvent>
#include <QWidget>

WindowMotion::WindowMotion(QWidget* window, int shakeAmplitude)
    : QObject(window), window_(window), shake_(kShakeSteps, shakeAmplitude) {
    shakeTimer_.setInterval(kShakeIntervalMs);
    connect(&shakeTimer_, &QTimer::timeout, this, &WindowMotion::shakeStep);
}

void WindowMotion::addHandle(QWidget* handle) { handle->installEventFilter(this); }

bool WindowMotion::eventFilter(QObject* watched, QEvent* event) {
    switch (event->type()) {
        case QEvent::MouseButtonPress: {
            auto* e = static_cast<QMouseEvent*>(event);
            if (e->button() == Qt::LeftButton && !window_->isMaximized()) {
                dragging_ = true;
                dragOffset_ = e->globalPos() - window_->frameGeometry().topLeft();
            }
            break;
        }
        case QEvent::MouseMove: {
            auto* e = static_cast<QMouseEvent*>(event);
            if (dragging_ && (e->buttons() & Qt::LeftButton))
                window_->move(e->globalPos() - dragOffset_);
            break;
        }
        case QEvent::MouseButtonRelease:
            dragging_ = false;
            break;
        default:
            break;
    }
    return QObject::eventFilter(watched, event);
}

void WindowMotion::shake() {
    if (shakeTimer_.isActive()) return;
    shake_.start(window_->pos());
    shakeTimer_.start();
}

void WindowMotion::shakeStep() {
    const QPoint at = shake_.next();
    if (!shake_.isRunning()) shakeTimer_.stop();
    window_->move(at);
}

// A frameless window that is hidden and mapped again is placed anew by the window
// system, which may put it where it would put a decorated one (a title bar's height
// higher or lower). The position it had when hidden is the one it comes back to.
void WindowMotion::windowHidden(const QHideEvent* event) {
    if (event->spontaneous() || window_->isMinimized() || window_->isMaximized()) return;
    hiddenAt_ = window_->pos();
    hasHiddenAt_ = true;
}

void WindowMotion::windowShown(const QShowEvent* event) {
    if (event->spontaneous() || !hasHiddenAt_) return;
    hasHiddenAt_ = false;
    if (window_->isMaximized() || window_->isMinimized()) return;
    const QPoint at = hiddenAt_;
    if (window_->pos() != at) window_->move(at);
    // The window system answers the mapping afterwards and may place it once more.
    QTimer::singleShot(0, this, [this, at] {
        if (window_->isVisible() && !window_->isMaximized() && !window_->isMinimized() &&
            !dragging_ && window_->pos() != at)
            window_->move(at);
    });
}
