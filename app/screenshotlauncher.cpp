// Launching the screenshot overlay from the main window.
#include "screenshotlauncher.h"

#include <QMessageBox>
#include <QTimer>

#include "desktopgrabber.h"
#include "screenshotview.h"

ScreenshotLauncher::ScreenshotLauncher(QWidget* window) : QObject(window), window_(window) {}

screenshot::ScreenShotView* ScreenshotLauncher::current() const { return shot_.data(); }

void ScreenshotLauncher::start() {
    if (shot_) {  // the hot key again while capturing: keep the capture under way
        shot_->raise();
        shot_->activateWindow();
        return;
    }
    if (pending_) return;
    pending_ = true;
    // Hidden a moment ago, the window may still be on screen until the desktop repaints.
    QTimer::singleShot(window_->isVisible() ? 0 : kHideSettleMs, this, &ScreenshotLauncher::open);
}

void ScreenshotLauncher::open() {
    pending_ = false;
    const screenshot::DesktopImage desktop = screenshot::DesktopGrabber::grab();
    if (!desktop.isValid()) {
        QMessageBox::information(window_, QStringLiteral("提示"), desktop.refusal);
        emit refused();
        return;
    }
    shot_ = new screenshot::ScreenShotView(desktop);
    shot_->setAttribute(Qt::WA_DeleteOnClose);
    emit opened(shot_);
    shot_->showOverlay();
}
