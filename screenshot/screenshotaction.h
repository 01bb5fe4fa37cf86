#pragma once

#include <QColor>
#include <QPen>
#include <QPoint>
#include <QRect>

class QPainter;

namespace screenshot {

// One annotation on the selection. Points are in the overlay's logical coordinates (the
// virtual desktop's top-left is 0,0); whoever paints sets up the painter so the same
// annotation lands on the screen and, scaled, in the output picture.
class ScreenShotAction {
public:
    ScreenShotAction(const QColor& color, int penWidth);
    virtual ~ScreenShotAction();
    ScreenShotAction(const ScreenShotAction&) = delete;
    ScreenShotAction& operator=(const ScreenShotAction&) = delete;

    // Where the pointer went down.
    virtual void start(const QPoint& point) = 0;
    // Where the pointer is now, while the button is held.
    virtual void moveTo(const QPoint& point) = 0;
    virtual void draw(QPainter& painter) const = 0;
    // The area the annotation paints (pen included); empty when there is nothing to keep,
    // such as a shape whose corners coincide.
    virtual QRect bounds() const = 0;

    QColor color() const { return color_; }
    int penWidth() const { return penWidth_; }

protected:
    QPen pen() const;
    // The rectangle spanned by two corners, grown by half the pen and a pixel for
    // antialiasing.
    QRect strokeBounds(const QRect& shape) const;

private:
    QColor color_;
    int penWidth_;
};

}  // namespace screenshot
