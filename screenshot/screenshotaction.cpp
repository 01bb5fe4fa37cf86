#include "screenshotaction.h"

namespace screenshot {

ScreenShotAction::ScreenShotAction(const QColor& color, int penWidth)
    : color_(color), penWidth_(penWidth) {}

ScreenShotAction::~ScreenShotAction() = default;

QPen ScreenShotAction::pen() const {
    QPen p(color_, penWidth_, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    return p;
}

QRect ScreenShotAction::strokeBounds(const QRect& shape) const {
    const int grow = penWidth_ / 2 + 2;
    return shape.normalized().adjusted(-grow, -grow, grow, grow);
}

}  // namespace screenshot
