#pragma once

#include <QVector>

#include "screenshotaction.h"

namespace screenshot {

// A free-hand stroke: the pointer's positions in order, joined by straight segments.
class ActionBrush : public ScreenShotAction {
public:
    using ScreenShotAction::ScreenShotAction;
    void start(const QPoint& point) override;
    void moveTo(const QPoint& point) override;
    void draw(QPainter& painter) const override;
    QRect bounds() const override;

    const QVector<QPoint>& points() const { return points_; }
    // The area the last segment paints: what a repaint needs while the stroke grows.
    QRect lastSegmentBounds() const;

private:
    QVector<QPoint> points_;
    QRect bounds_;
};

}  // namespace screenshot
