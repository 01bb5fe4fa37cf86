#pragma once

#include <QImage>
#include <QPoint>
#include <QRect>
#include <QSize>
#include <QStringList>

class QPainter;

namespace screenshot {

// The magnifier drawn beside the pointer while the user selects: a square of the frozen
// desktop around the pointer scaled up, with a cross through its centre, and below it the
// information box (pointer position, colour under it, selection size).
class Magnifier {
public:
    // 25 x 25 device pixels shown 5 times larger, in a 125-pixel square: enough to place
    // the pointer on an exact pixel, small enough not to cover what is being selected.
    static constexpr int kSourceSide = 25;
    static constexpr int kZoom = 5;
    static constexpr int kSide = kSourceSide * kZoom;
    static constexpr int kInfoHeight = 54;
    static constexpr int kOffset = 20;  // from the pointer, so it never sits under it

    // The box's three lines: position, colour, and the selection as width then height.
    static QStringList infoLines(const QPoint& position, QRgb colour, const QSize& selection);

    // Where magnifier and box go: below right of the pointer, flipped left or up where
    // that would leave area.
    static QRect placement(const QPoint& pointer, const QRect& area);

    // Paints both. `pointer` is logical; the desktop's pixels are `ratio` times that, and
    // position, colour and size are reported in those pixels, which is what the saved
    // picture will measure.
    static void paint(QPainter& painter, const QImage& desktop, qreal ratio, const QPoint& pointer,
                      const QSize& selectionPixels, const QRect& area);
};

}  // namespace screenshot
