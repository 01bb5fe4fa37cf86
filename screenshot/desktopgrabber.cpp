#include "desktopgrabber.h"

#include <QGuiApplication>
#include <QPainter>
#include <QPixmap>
#include <QScreen>

#include <cmath>

#include "logger.h"

namespace screenshot {

QString DesktopGrabber::refusalText() {
    return QStringLiteral(
        "当前桌面环境不允许程序截取屏幕（例如 Wayland 会话），无法截图。\n"
        "请使用系统自带的截图工具，截好后粘贴到聊天输入框中。");
}

bool DesktopGrabber::looksBlank(const QImage& image) {
    if (image.isNull()) return true;
    // A 32 x 32 grid of samples: a real desktop is never one colour at all of them.
    const QRgb first = image.pixel(0, 0);
    for (int gy = 0; gy < 32; ++gy)
        for (int gx = 0; gx < 32; ++gx) {
            const int x = (image.width() - 1) * gx / 31, y = (image.height() - 1) * gy / 31;
            if (image.pixel(x, y) != first) return false;
        }
    return true;
}

DesktopImage DesktopGrabber::compose(const QVector<Piece>& pieces) {
    DesktopImage out;
    qreal ratio = 1.0;
    for (const Piece& p : pieces) {
        if (p.image.isNull() || p.geometry.isEmpty()) {
            out.refusal = refusalText();
            return out;
        }
        out.geometry = out.geometry.united(p.geometry);
        ratio = qMax(ratio, qreal(p.image.width()) / p.geometry.width());
    }
    if (out.geometry.isEmpty()) {
        out.refusal = refusalText();
        return out;
    }
    out.ratio = ratio;
    const QSize size(int(std::lround(out.geometry.width() * ratio)),
                     int(std::lround(out.geometry.height() * ratio)));
    if (pieces.size() == 1 && pieces.first().image.size() == size) {
        // The common case, one screen: no second copy of a large picture.
        out.image = pieces.first().image.convertToFormat(QImage::Format_RGB32);
    } else {
        out.image = QImage(size, QImage::Format_RGB32);
        out.image.fill(Qt::black);
        QPainter painter(&out.image);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        for (const Piece& p : pieces) {
            const QRectF target(QPointF(p.geometry.topLeft() - out.geometry.topLeft()) * ratio,
                                QSizeF(p.geometry.size()) * ratio);
            QImage piece = p.image;
            piece.setDevicePixelRatio(1.0);
            painter.drawImage(target, piece);
        }
    }
    out.image.setDevicePixelRatio(1.0);  // the overlay maps pixels itself
    return out;
}

DesktopImage DesktopGrabber::grab() {
    DesktopImage refused;
    refused.refusal = refusalText();
    const QString platform = QGuiApplication::platformName();
    if (platform.startsWith(QLatin1String("wayland"))) {
        Logger::instance().write(
            QStringLiteral("screenshot: the Wayland platform gives no screen"));
        return refused;
    }
    QVector<Piece> pieces;
    for (QScreen* screen : QGuiApplication::screens()) {
        const QPixmap shot = screen->grabWindow(0);
        pieces.append({screen->geometry(), shot.toImage()});
    }
    DesktopImage desktop = compose(pieces);
    const bool waylandSession = qgetenv("XDG_SESSION_TYPE").toLower() == "wayland" ||
                                qEnvironmentVariableIsSet("WAYLAND_DISPLAY");
    if (desktop.isValid() && waylandSession && looksBlank(desktop.image)) {
        // XWayland hands out a black picture instead of refusing.
        desktop = refused;
    }
    if (!desktop.isValid())
        Logger::instance().write(
            QStringLiteral("screenshot: the platform %1 refused the screen grab").arg(platform));
    return desktop;
}

}  // namespace screenshot
