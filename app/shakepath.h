#pragma once

#include <QPoint>

// The path of one window shake, apart from any window: a step a tick round the four sides,
// the swing fading as the steps run out, and back to where it started at the end.
class ShakePath {
public:
    ShakePath(int steps, int amplitude);

    // Begins a shake around `origin`.
    void start(const QPoint& origin);
    // The place for the next tick. After the last step it is the origin again, and the
    // shake is over.
    QPoint next();
    bool isRunning() const { return running_; }
    // Steps left before the way back; the full count while no shake is under way.
    int remaining() const { return counter_; }

private:
    int steps_;
    int amplitude_;
    int counter_;
    QPoint origin_;
    bool running_ = false;
};
