#pragma once

#include <QRect>
#include <QSize>
#include <QVector>

namespace screenshot {

// The selected rectangle of the overlay and how the pointer changes it: drawn by a first
// drag, then moved from inside or resized from one of eight handles (corners and edge
// middles). It never leaves the desktop's bounds.
class SelectionGeometry {
public:
    enum Handle {
        None,
        Inside,
        TopLeft,
        Top,
        TopRight,
        Right,
        BottomRight,
        Bottom,
        BottomLeft,
        Left
    };

    // Handles are drawn as 6 x 6 squares centred on the border, but answer the pointer
    // 5 pixels either side of their centre: small enough not to hide what was captured,
    // large enough to catch without aiming.
    static constexpr int kHandleSize = 6;
    static constexpr int kHandleReach = 5;
    // A drag shorter than this is a click, not a selection.
    static constexpr int kMinimumSide = 3;

    explicit SelectionGeometry(const QRect& bounds = QRect());

    void setBounds(const QRect& bounds) { bounds_ = bounds; }
    QRect bounds() const { return bounds_; }
    bool hasSelection() const { return !rect_.isEmpty(); }
    QRect rect() const { return rect_; }
    void setRect(const QRect& rect);
    void clear() { rect_ = QRect(); }

    // A drag with the given handle (or a new selection with None) starts at point.
    void press(Handle handle, const QPoint& point);
    // The pointer moved while held.
    void dragTo(const QPoint& point);
    // The drag ended; a new selection too small to be one is dropped. Returns whether a
    // selection remains.
    bool release();
    bool dragging() const { return dragging_; }
    Handle dragHandle() const { return handle_; }

    Handle hitTest(const QPoint& point) const;
    QVector<QRect> handleRects() const;

    // Where a bar of the given size goes: under the selection's right edge, else above
    // it, else inside its bottom, kept within area.
    static QPoint toolBarPosition(const QRect& selection, const QSize& bar, const QRect& area,
                                  int gap = 6);

private:
    QPoint handleCentre(Handle handle) const;
    QRect clamped(QRect r) const;

    QRect bounds_;
    QRect rect_;
    QRect origin_;
    QPoint pressPoint_;
    Handle handle_ = None;
    bool dragging_ = false;
};

}  // namespace screenshot
