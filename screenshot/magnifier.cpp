#include "magnifier.h"

#include <QPainter>

#include <cmath>

namespace screenshot {

QStringList Magnifier::infoLines(const QPoint& position, QRgb colour, const QSize& selection) {
    // Short enough for the box's width at 12 pixels: RGB is how colour values are read in
    // any language, the rest says what it is in the user's.
    return {
        QStringLiteral("坐标：%1, %2").arg(position.x()).arg(position.y()),
        QStringLiteral("RGB：%1,%2,%3").arg(qRed(colour)).arg(qGreen(colour)).arg(qBlue(colour)),
        QStringLiteral("尺寸：%1×%2").arg(selection.width()).arg(selection.height())};
}

QRect Magnifier::placement(const QPoint& pointer, const QRect& area) {
    const QSize size(kSide, kSide + kInfoHeight);
    int x = pointer.x() + kOffset;
    int y = pointer.y() + kOffset;
    if (x + size.width() > area.left() + area.width()) x = pointer.x() - kOffset - size.width();
    if (y + size.height() > area.top() + area.height()) y = pointer.y() - kOffset - size.height();
    return QRect(QPoint(qMax(area.left(), x), qMax(area.top(), y)), size);
}

void Magnifier::paint(QPainter& painter, const QImage& desktop, qreal ratio, const QPoint& pointer,
                      const QSize& selectionPixels, const QRect& area) {
    const QRect box = placement(pointer, area);
    const QRect zoomed(box.topLeft(), QSize(kSide, kSide));
    const QPoint pixel(int(std::floor(pointer.x() * ratio)), int(std::floor(pointer.y() * ratio)));
    const QRect source(pixel.x() - kSourceSide / 2, pixel.y() - kSourceSide / 2, kSourceSide,
                       kSourceSide);

    painter.save();
    painter.setRenderHint(QPainter::SmoothPixmapTransform, false);  // pixels stay square
    painter.fillRect(zoomed, Qt::black);                            // beyond the desktop's edge
    // Only the part of the square that lies on the desktop is drawn, at its place.
    const QRect onDesktop = source.intersected(desktop.rect());
    if (!onDesktop.isEmpty()) {
        const QRect target(zoomed.topLeft() + (onDesktop.topLeft() - source.topLeft()) * kZoom,
                           onDesktop.size() * kZoom);
        painter.drawImage(target, desktop, onDesktop);
    }
    painter.setPen(QPen(QColor(31, 143, 255, 200), 2));
    const QPoint c = zoomed.center();
    painter.drawLine(zoomed.left(), c.y(), zoomed.right(), c.y());
    painter.drawLine(c.x(), zoomed.top(), c.x(), zoomed.bottom());
    painter.setPen(QPen(Qt::white, 1));
    painter.drawRect(zoomed.adjusted(0, 0, -1, -1));

    const QRect info(box.left(), zoomed.bottom() + 1, kSide, kInfoHeight);
    painter.fillRect(info, QColor(0, 0, 0, 200));
    const QRgb colour = desktop.valid(pixel) ? desktop.pixel(pixel) : qRgb(0, 0, 0);
    QFont font = painter.font();
    font.setPixelSize(12);
    painter.setFont(font);
    painter.setPen(Qt::white);
    painter.drawText(info.adjusted(6, 3, -4, -3), Qt::AlignLeft | Qt::AlignVCenter,
                     infoLines(pixel, colour, selectionPixels).join(QLatin1Char('\n')));
    painter.restore();
}

}  // namespace screenshot
