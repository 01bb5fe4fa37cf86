#include "actionellipse.h"

#include <QPainter>

namespace screenshot {

void ActionEllipse::start(const QPoint& point) { start_ = end_ = point; }

void ActionEllipse::moveTo(const QPoint& point) { end_ = point; }

void ActionEllipse::draw(QPainter& painter) const {
    if (start_ == end_) return;
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(pen());
    painter.setBrush(Qt::NoBrush);
    const QRect r = QRect(start_, end_).normalized();
    painter.drawEllipse(QRectF(r.topLeft(), QSizeF(r.width() - 1, r.height() - 1)));
    painter.restore();
}

QRect ActionEllipse::bounds() const {
    if (start_.x() == end_.x() || start_.y() == end_.y()) return QRect();
    return strokeBounds(QRect(start_, end_));
}

}  // namespace screenshot
