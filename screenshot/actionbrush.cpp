#include "actionbrush.h"

#include <QPainter>

namespace screenshot {

void ActionBrush::start(const QPoint& point) {
    points_ = {point};
    bounds_ = strokeBounds(QRect(point, point));
}

void ActionBrush::moveTo(const QPoint& point) {
    if (!points_.isEmpty() && points_.last() == point) return;
    points_.append(point);
    bounds_ = bounds_.united(strokeBounds(QRect(point, point)));
}

void ActionBrush::draw(QPainter& painter) const {
    if (points_.isEmpty()) return;
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(pen());
    if (points_.size() == 1)
        painter.drawPoint(points_.first());  // a click leaves a dot
    else
        painter.drawPolyline(points_.constData(), points_.size());
    painter.restore();
}

QRect ActionBrush::bounds() const { return bounds_; }

QRect ActionBrush::lastSegmentBounds() const {
    if (points_.isEmpty()) return QRect();
    const QPoint last = points_.last();
    const QPoint before = points_.size() > 1 ? points_.at(points_.size() - 2) : last;
    return strokeBounds(QRect(before, last));
}

}  // namespace screenshot
