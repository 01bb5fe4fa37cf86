#pragma once

#include <QPoint>
#include <QSize>

// Where a press on the sidebar's frame moves or resizes it: the body drags the panel
// (unless a child that wants the press lies there), the left band resizes it, and the
// other edges do nothing, so the panel can only grow from its left edge.
class SidebarHitTest {
public:
    enum Result {
        NotHandled,  // a child takes the press
        Caption,     // drag the panel
        Left,        // resize from the left edge
        Nothing,     // handled, neither moves nor resizes
    };
    static constexpr int kBorder = 4;

    // `childTakesPress`: a child lies under the point and may not move the window.
    static Result hit(const QPoint& pos, const QSize& size, bool childTakesPress);
};
