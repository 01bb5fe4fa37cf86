// Windows implementation of the shell's platform calls.
#include <windows.h>

#include "platform/platform.h"

namespace platform {

void flashWindow(std::uintptr_t nativeWindow) {
    FlashWindow(reinterpret_cast<HWND>(nativeWindow), FALSE);
}

}  // namespace platform
