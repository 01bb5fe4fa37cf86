#pragma once

#include "screenshotaction.h"

namespace screenshot {

// A rectangle spanned by where the pointer went down and where it is (or was let go).
class ActionRectangle : public ScreenShotAction {
public:
    using ScreenShotAction::ScreenShotAction;
    void start(const QPoint& point) override;
    void moveTo(const QPoint& point) override;
    void draw(QPainter& painter) const override;
    QRect bounds() const override;

private:
    QPoint start_;
    QPoint end_;
};

}  // namespace screenshot
