// The path of a window shake: round the four sides, fading, back to the start.
#include "shakepath.h"

#include <QtGlobal>

ShakePath::ShakePath(int steps, int amplitude)
    : steps_(steps), amplitude_(amplitude), counter_(steps) {}

void ShakePath::start(const QPoint& origin) {
    origin_ = origin;
    counter_ = steps_;
    running_ = true;
}

QPoint ShakePath::next() {
    if (counter_ <= 0) {
        running_ = false;
        counter_ = steps_;
        return origin_;
    }
    // Round the four sides, with the swing fading as the counter runs down.
    const int a = qMax(1, amplitude_ * counter_ / steps_);
    static const QPoint kSides[4] = {QPoint(1, 0), QPoint(0, 1), QPoint(-1, 0), QPoint(0, -1)};
    const QPoint at = origin_ + kSides[counter_ % 4] * a;
    --counter_;
    return at;
}
