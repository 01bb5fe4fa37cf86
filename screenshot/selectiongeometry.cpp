#include "selectiongeometry.h"

#include <QtGlobal>

namespace screenshot {

SelectionGeometry::SelectionGeometry(const QRect& bounds) : bounds_(bounds) {}

void SelectionGeometry::setRect(const QRect& rect) { rect_ = clamped(rect.normalized()); }

QRect SelectionGeometry::clamped(QRect r) const {
    if (bounds_.isEmpty()) return r;
    return r.intersected(bounds_);
}

void SelectionGeometry::press(Handle handle, const QPoint& point) {
    handle_ = handle;
    pressPoint_ = point;
    origin_ = rect_;
    dragging_ = true;
    if (handle == None) rect_ = QRect();
}

void SelectionGeometry::dragTo(const QPoint& point) {
    if (!dragging_) return;
    const QPoint p = bounds_.isEmpty()
                         ? point
                         : QPoint(qBound(bounds_.left(), point.x(), bounds_.right() + 1),
                                  qBound(bounds_.top(), point.y(), bounds_.bottom() + 1));
    if (handle_ == None) {
        // Edges as exclusive right/bottom so that a drag of n pixels selects n pixels.
        const int l = qMin(pressPoint_.x(), p.x()), r = qMax(pressPoint_.x(), p.x());
        const int t = qMin(pressPoint_.y(), p.y()), b = qMax(pressPoint_.y(), p.y());
        rect_ = clamped(QRect(l, t, r - l, b - t));
        return;
    }
    const QPoint d = p - pressPoint_;
    if (handle_ == Inside) {
        QRect moved = origin_.translated(d);
        if (!bounds_.isEmpty()) {
            // Moving stops at the desktop's edge instead of shrinking the selection.
            if (moved.left() < bounds_.left()) moved.moveLeft(bounds_.left());
            if (moved.top() < bounds_.top()) moved.moveTop(bounds_.top());
            if (moved.right() > bounds_.right()) moved.moveRight(bounds_.right());
            if (moved.bottom() > bounds_.bottom()) moved.moveBottom(bounds_.bottom());
        }
        rect_ = moved;
        return;
    }
    int l = origin_.left(), t = origin_.top();
    int r = origin_.left() + origin_.width(), b = origin_.top() + origin_.height();
    switch (handle_) {
        case TopLeft:
            l += d.x();
            t += d.y();
            break;
        case Top:
            t += d.y();
            break;
        case TopRight:
            r += d.x();
            t += d.y();
            break;
        case Right:
            r += d.x();
            break;
        case BottomRight:
            r += d.x();
            b += d.y();
            break;
        case Bottom:
            b += d.y();
            break;
        case BottomLeft:
            l += d.x();
            b += d.y();
            break;
        case Left:
            l += d.x();
            break;
        default:
            break;
    }
    // Dragging an edge over the opposite one turns the selection over, as users expect.
    rect_ = clamped(QRect(qMin(l, r), qMin(t, b), qAbs(r - l), qAbs(b - t)));
}

bool SelectionGeometry::release() {
    dragging_ = false;
    if (rect_.width() < kMinimumSide || rect_.height() < kMinimumSide) {
        // A click or a slip: a new selection is dropped, an adjusted one goes back.
        rect_ = handle_ == None ? QRect() : origin_;
    }
    handle_ = None;
    return hasSelection();
}

QPoint SelectionGeometry::handleCentre(Handle handle) const {
    const int l = rect_.left(), t = rect_.top();
    const int r = rect_.left() + rect_.width(), b = rect_.top() + rect_.height();
    const int cx = (l + r) / 2, cy = (t + b) / 2;
    switch (handle) {
        case TopLeft:
            return {l, t};
        case Top:
            return {cx, t};
        case TopRight:
            return {r, t};
        case Right:
            return {r, cy};
        case BottomRight:
            return {r, b};
        case Bottom:
            return {cx, b};
        case BottomLeft:
            return {l, b};
        case Left:
            return {l, cy};
        default:
            return {};
    }
}

QVector<QRect> SelectionGeometry::handleRects() const {
    QVector<QRect> out;
    if (!hasSelection()) return out;
    for (int h = TopLeft; h <= Left; ++h) {
        const QPoint c = handleCentre(Handle(h));
        out.append(
            QRect(c.x() - kHandleSize / 2, c.y() - kHandleSize / 2, kHandleSize, kHandleSize));
    }
    return out;
}

SelectionGeometry::Handle SelectionGeometry::hitTest(const QPoint& point) const {
    if (!hasSelection()) return None;
    for (int h = TopLeft; h <= Left; ++h) {
        const QPoint c = handleCentre(Handle(h));
        if (qAbs(point.x() - c.x()) <= kHandleReach && qAbs(point.y() - c.y()) <= kHandleReach)
            return Handle(h);
    }
    return rect_.contains(point) ? Inside : None;
}

QPoint SelectionGeometry::toolBarPosition(const QRect& selection, const QSize& bar,
                                          const QRect& area, int gap) {
    int x = selection.left() + selection.width() - bar.width();
    int y = selection.top() + selection.height() + gap;
    if (y + bar.height() > area.top() + area.height()) {
        y = selection.top() - gap - bar.height();
        if (y < area.top()) y = selection.top() + selection.height() - gap - bar.height();
    }
    x = qBound(area.left(), x, qMax(area.left(), area.left() + area.width() - bar.width()));
    y = qBound(area.top(), y, qMax(area.top(), area.top() + area.height() - bar.height()));
    return {x, y};
}

}  // namespace screenshot
