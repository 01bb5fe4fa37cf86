#pragma once

// The window-system side of the sidebar's hit testing on Windows: reads the cursor out of
// a hit-test message. Plain C++ so it compiles without the toolkit.
namespace sidebarnative {

constexpr long kHtNowhere = 0;
constexpr long kHtCaption = 2;
constexpr long kHtLeft = 10;

// True when `message` (a MSG) is the hit-test message (WM_NCHITTEST); then (x, y) is the
// cursor relative to the frame's top-left corner (frameLeft, frameTop) in device pixels.
bool hitTestPoint(const void* message, int frameLeft, int frameTop, int* x, int* y);

}  // namespace sidebarnative
