#pragma once

#include <cstdint>

// The few calls the shell makes into the operating system. Windows has its own
// implementations (platform_win.cpp); elsewhere the toolkit's portable equivalents serve.
namespace platform {

// Draws the user's attention to the window (task-bar flash) without activating it.
void flashWindow(std::uintptr_t nativeWindow);

}  // namespace platform
