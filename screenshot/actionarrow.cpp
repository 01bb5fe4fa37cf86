#include "actionarrow.h"

#include <QLineF>
#include <QPainter>

namespace screenshot {

void ActionArrow::start(const QPoint& point) { start_ = end_ = point; }

void ActionArrow::moveTo(const QPoint& point) { end_ = point; }

QPolygonF ActionArrow::head() const {
    const QLineF line(start_, end_);
    if (line.length() <= 0) return QPolygonF();
    // A short line gets a head no longer than itself.
    const qreal length = qMin(headLength(), line.length());
    const QPointF unit = (QPointF(end_) - QPointF(start_)) / line.length();
    const QPointF normal(-unit.y(), unit.x());
    const QPointF base = QPointF(end_) - unit * length;
    const qreal half = length * 0.45;
    return QPolygonF({QPointF(end_), base + normal * half, base - normal * half});
}

void ActionArrow::draw(QPainter& painter) const {
    if (start_ == end_) return;
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    const QPolygonF tip = head();
    // The shaft stops inside the head so its round cap does not poke through the point.
    const QLineF line(start_, end_);
    const qreal shaft = qMax<qreal>(0, line.length() - (tip.isEmpty() ? 0 : headLength() * 0.6));
    QLineF body = line;
    body.setLength(shaft);
    painter.setPen(pen());
    if (shaft > 0) painter.drawLine(body);
    painter.setPen(Qt::NoPen);
    painter.setBrush(color());
    painter.drawPolygon(tip);
    painter.restore();
}

QRect ActionArrow::bounds() const {
    if (start_ == end_) return QRect();
    const QRect line = QRect(start_, end_).normalized();
    const QRect tip = head().boundingRect().toAlignedRect();
    return strokeBounds(line.united(tip));
}

}  // namespace screenshot
