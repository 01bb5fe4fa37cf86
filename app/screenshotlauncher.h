#pragma once

#include <QObject>
#include <QPointer>

class QWidget;
namespace screenshot {
class ScreenShotView;
}

// Starting a screen capture from the main window: the desktop is grabbed once a window
// hidden for the capture has left the screen; a request while a capture is on its way or
// open brings that one forward; a grab the system refuses is told to the user, never
// shown as a black overlay.
class ScreenshotLauncher : public QObject {
    Q_OBJECT
public:
    // A window hidden for a capture gets this long to leave the screen before the grab.
    static constexpr int kHideSettleMs = 250;

    // `window` is the main window: whether it shows decides the wait, and it is the
    // parent of the refusal.
    explicit ScreenshotLauncher(QWidget* window);

    void start();
    // The capture overlay while one is open.
    screenshot::ScreenShotView* current() const;

signals:
    // The overlay is about to show.
    void opened(screenshot::ScreenShotView* view);
    // The grab was refused and the user told why.
    void refused();

private:
    void open();

    QWidget* window_;
    QPointer<screenshot::ScreenShotView> shot_;
    bool pending_ = false;
};
