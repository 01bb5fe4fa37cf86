// The screenshot overlay over a 3840 x 2160 desktop: the time from starting a capture
// (desktop picture in hand) to the overlay painted on screen, and the frame time while a
// brush stroke is dragged across the selection. Runs on the offscreen platform unless a
// display is asked for; there the screen itself cannot be grabbed, so the desktop is a
// generated picture of that size and the grab is not part of the figure.
#include <QApplication>
#include <QElapsedTimer>
#include <QMouseEvent>
#include <QPainter>

#include <cmath>
#include <cstdio>
#include <vector>

#include "benchfigures.h"
#include "desktopgrabber.h"
#include "resources.h"
#include "screenshotview.h"

using namespace screenshot;

namespace {

const QSize kDesktop(3840, 2160);

// Something like a desktop: windows, text-like rows, gradients; never one flat colour.
QImage desktopPicture() {
    QImage image(kDesktop, QImage::Format_RGB32);
    QPainter p(&image);
    QLinearGradient g(0, 0, kDesktop.width(), kDesktop.height());
    g.setColorAt(0, QColor(32, 64, 110));
    g.setColorAt(1, QColor(160, 90, 60));
    p.fillRect(image.rect(), g);
    for (int i = 0; i < 12; ++i) {
        const QRect w(100 + i * 280, 80 + (i % 4) * 420, 1100, 800);
        p.fillRect(w, QColor(245, 245, 245));
        p.fillRect(w.x(), w.y(), w.width(), 36, QColor(60 + i * 10, 90, 140));
        for (int row = 0; row < 30; ++row)
            p.fillRect(w.x() + 20, w.y() + 60 + row * 24, 300 + (row * 97 + i * 31) % 700, 10,
                       QColor(90, 90, 90));
    }
    return image;
}

void send(QWidget* w, QEvent::Type type, QPoint pos) {
    QMouseEvent e(
        type, pos, w->mapToGlobal(pos), type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton,
        type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(w, &e);
}

void settle() {
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents();
}

}  // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    quelixInitResources();
    const QImage picture = desktopPicture();

    // Opening: ten captures, each from the picture to the first frame painted.
    std::vector<double> open;
    for (int run = 0; run < 10; ++run) {
        QElapsedTimer t;
        t.start();
        const DesktopImage desktop =
            DesktopGrabber::compose({{QRect(QPoint(0, 0), kDesktop), picture}});
        ScreenShotView view(desktop);
        view.showOverlay();
        while (view.paintCount() == 0) QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        open.push_back(t.nsecsElapsed() / 1e6);
        view.OnCancel();
        settle();
    }

    // Dragging: a selection of most of the desktop, a thick brush stroke of 2,000 moves
    // (a spiral), each move followed by the repaint it causes.
    const DesktopImage desktop =
        DesktopGrabber::compose({{QRect(QPoint(0, 0), kDesktop), picture}});
    ScreenShotView view(desktop);
    view.showOverlay();
    settle();
    view.setSelection(QRect(200, 150, 3400, 1850));
    settle();
    view.setTool(ScreenShotView::Tool::Brush);
    settle();
    const QPoint centre(1900, 1075);
    send(&view, QEvent::MouseButtonPress, centre);
    settle();
    std::vector<double> frames;
    const int moves = 2000;
    for (int i = 1; i <= moves; ++i) {
        const double a = i * 0.05;
        const double r = 20 + i * 0.4;
        const QPoint p = centre + QPoint(int(std::lround(r * std::cos(a))),
                                         int(std::lround(r * std::sin(a) * 0.55)));
        QElapsedTimer t;
        t.start();
        send(&view, QEvent::MouseMove, p);
        settle();
        frames.push_back(t.nsecsElapsed() / 1e6);
    }
    send(&view, QEvent::MouseButtonRelease, centre);
    settle();

    std::printf("frames painted while dragging: %d for %d moves\n", view.paintCount(), moves);
    // The worst of the ten (the first, which pays for fonts and styles) is the figure.
    std::printf("shot_open_ms=%.1f\n", bench::percentile(open, 1.0));
    std::printf("shot_open_median_ms=%.1f\n", bench::percentile(open, 0.5));
    std::printf("shot_drag_median_ms=%.2f\n", bench::percentile(frames, 0.5));
    std::printf("shot_drag_p99_ms=%.2f\n", bench::percentile(frames, 0.99));
    std::printf("shot_rss_kb=%ld\n", bench::rssKb());
    return 0;
}
