#include "actionrectangle.h"

#include <QPainter>

namespace screenshot {

void ActionRectangle::start(const QPoint& point) { start_ = end_ = point; }

void ActionRectangle::moveTo(const QPoint& point) { end_ = point; }

void ActionRectangle::draw(QPainter& painter) const {
    if (start_ == end_) return;
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    QPen p = pen();
    p.setJoinStyle(Qt::MiterJoin);  // square corners, as a frame around something
    painter.setPen(p);
    painter.setBrush(Qt::NoBrush);
    const QRect r = QRect(start_, end_).normalized();
    painter.drawRect(QRectF(r.topLeft(), QSizeF(r.width() - 1, r.height() - 1)));
    painter.restore();
}

QRect ActionRectangle::bounds() const {
    if (start_.x() == end_.x() || start_.y() == end_.y()) return QRect();
    return strokeBounds(QRect(start_, end_));
}

}  // namespace screenshot
