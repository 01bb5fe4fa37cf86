// The notification-area icon on Windows: Shell_NotifyIconW with icon id 1, flags
// message|icon|tip and the callback message WM_USER + 123.
#include <windows.h>
// Needs windows.h first.
#include <shellapi.h>

#include <cstring>
#include <cwchar>
#include <vector>

#include "platform/notifyicon.h"

namespace platform {

namespace {

HICON makeIcon(const NotifyIconImage& image) {
    if (image.width <= 0 || image.height <= 0 || !image.argb) return nullptr;
    BITMAPV5HEADER header = {};
    header.bV5Size = sizeof(header);
    header.bV5Width = image.width;
    header.bV5Height = -image.height;  // top-down rows
    header.bV5Planes = 1;
    header.bV5BitCount = 32;
    header.bV5Compression = BI_BITFIELDS;
    header.bV5RedMask = 0x00ff0000;
    header.bV5GreenMask = 0x0000ff00;
    header.bV5BlueMask = 0x000000ff;
    header.bV5AlphaMask = 0xff000000;
    HDC screen = GetDC(nullptr);
    void* bits = nullptr;
    HBITMAP colour = CreateDIBSection(screen, reinterpret_cast<BITMAPINFO*>(&header),
                                      DIB_RGB_COLORS, &bits, nullptr, 0);
    ReleaseDC(nullptr, screen);
    if (!colour || !bits) return nullptr;
    std::memcpy(bits, image.argb, std::size_t(image.width) * std::size_t(image.height) * 4);
    std::vector<unsigned char> maskBits(std::size_t((image.width + 15) / 16 * 2) * image.height, 0);
    HBITMAP mask = CreateBitmap(image.width, image.height, 1, 1, maskBits.data());
    ICONINFO info = {};
    info.fIcon = TRUE;
    info.hbmMask = mask;
    info.hbmColor = colour;
    HICON icon = CreateIconIndirect(&info);
    DeleteObject(colour);
    DeleteObject(mask);
    return icon;
}

}  // namespace

NotifyIcon::NotifyIcon(std::uintptr_t window) : window_(window) {}

NotifyIcon::~NotifyIcon() { remove(); }

bool NotifyIcon::set(const NotifyIconImage& image, const std::wstring& tip) {
    HICON icon = makeIcon(image);
    if (!icon) return false;
    NOTIFYICONDATAW data = {};
    data.cbSize = sizeof(data);
    data.hWnd = reinterpret_cast<HWND>(window_);
    data.uID = kIconId;
    data.uFlags = NIF_MESSAGE | NIF_ICON | NIF_TIP;
    data.uCallbackMessage = kCallbackMessage;
    data.hIcon = icon;
    wcsncpy_s(data.szTip, tip.c_str(), _TRUNCATE);
    const BOOL ok = Shell_NotifyIconW(added_ ? NIM_MODIFY : NIM_ADD, &data);
    if (!ok) {
        DestroyIcon(icon);
        return false;
    }
    added_ = true;
    if (icon_) DestroyIcon(reinterpret_cast<HICON>(icon_));
    icon_ = reinterpret_cast<std::uintptr_t>(icon);
    return true;
}

void NotifyIcon::remove() {
    if (added_) {
        NOTIFYICONDATAW data = {};
        data.cbSize = sizeof(data);
        data.hWnd = reinterpret_cast<HWND>(window_);
        data.uID = kIconId;
        Shell_NotifyIconW(NIM_DELETE, &data);
        added_ = false;
    }
    if (icon_) {
        DestroyIcon(reinterpret_cast<HICON>(icon_));
        icon_ = 0;
    }
}

NotifyIconEvent NotifyIcon::decode(const void* nativeMessage) {
    const MSG* msg = static_cast<const MSG*>(nativeMessage);
    if (!msg || msg->message != kCallbackMessage) return NotifyIconEvent::None;
    switch (LOWORD(msg->lParam)) {
        case WM_MOUSEMOVE:
            return NotifyIconEvent::MouseMove;
        case WM_LBUTTONDOWN:
            return NotifyIconEvent::LeftButtonDown;
        case WM_RBUTTONDOWN:
            return NotifyIconEvent::RightButtonDown;
        default:
            return NotifyIconEvent::None;
    }
}

bool NotifyIcon::cursorPos(int* x, int* y) {
    POINT p;
    if (!GetCursorPos(&p)) return false;
    *x = p.x;
    *y = p.y;
    return true;
}

std::uintptr_t NotifyIcon::windowAt(int x, int y) {
    POINT p = {x, y};
    HWND w = WindowFromPoint(p);
    return w ? reinterpret_cast<std::uintptr_t>(GetAncestor(w, GA_ROOT)) : 0;
}

}  // namespace platform
