#pragma once

#include <cstdint>
#include <string>

// The notification-area icon through the operating system's own call (Windows). Plain
// types only, so the Windows side needs no toolkit headers.
namespace platform {

// 32-bit ARGB pixels, row by row, straight (not premultiplied) alpha.
struct NotifyIconImage {
    int width = 0;
    int height = 0;
    const std::uint32_t* argb = nullptr;
};

enum class NotifyIconEvent { None, MouseMove, LeftButtonDown, RightButtonDown };

class NotifyIcon {
public:
    // The icon's callback message: the first user message number plus 123.
    static constexpr unsigned kCallbackMessage = 0x0400 + 123;
    static constexpr unsigned kIconId = 1;

    explicit NotifyIcon(std::uintptr_t window);
    ~NotifyIcon();
    NotifyIcon(const NotifyIcon&) = delete;
    NotifyIcon& operator=(const NotifyIcon&) = delete;

    // The first call adds the icon, later ones modify it.
    bool set(const NotifyIconImage& image, const std::wstring& tip);
    void remove();

    // What a native message means for the icon; None when it is not the icon's message.
    static NotifyIconEvent decode(const void* nativeMessage);
    static bool cursorPos(int* x, int* y);
    // The top-level window under a screen point, 0 for none.
    static std::uintptr_t windowAt(int x, int y);

private:
    std::uintptr_t window_;
    std::uintptr_t icon_ = 0;
    bool added_ = false;
};

}  // namespace platform
