#include <windows.h>
#include <windowsx.h>

#include "web/sidebarnative.h"

namespace sidebarnative {

bool hitTestPoint(const void* message, int frameLeft, int frameTop, int* x, int* y) {
    const MSG* msg = static_cast<const MSG*>(message);
    if (!msg || msg->message != WM_NCHITTEST) return false;
    *x = GET_X_LPARAM(msg->lParam) - frameLeft;
    *y = GET_Y_LPARAM(msg->lParam) - frameTop;
    return true;
}

}  // namespace sidebarnative
