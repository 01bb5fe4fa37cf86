#pragma once

#include <QPolygonF>

#include "screenshotaction.h"

namespace screenshot {

// A line from where the pointer went down to where it is, with a filled head at the end.
class ActionArrow : public ScreenShotAction {
public:
    using ScreenShotAction::ScreenShotAction;
    void start(const QPoint& point) override;
    void moveTo(const QPoint& point) override;
    void draw(QPainter& painter) const override;
    QRect bounds() const override;

    // The head grows with the pen so a thick arrow still reads as one.
    qreal headLength() const { return 10.0 + 3.0 * penWidth(); }
    QPolygonF head() const;

private:
    QPoint start_;
    QPoint end_;
};

}  // namespace screenshot
