#include "sidebarhittest.h"

SidebarHitTest::Result SidebarHitTest::hit(const QPoint& p, const QSize& s, bool childTakesPress) {
    const int x = p.x();
    const int y = p.y();
    if (x > kBorder && x < s.width() - kBorder && y > kBorder && y < s.height() - kBorder)
        return childTakesPress ? NotHandled : Caption;
    if (x <= kBorder && y < s.height() - kBorder) return Left;
    return Nothing;
}
