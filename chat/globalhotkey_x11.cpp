// X11 hot keys: a passive grab of the key on the root window, for every combination of
// the lock modifiers so that Caps Lock or Num Lock do not disable it.
#include <QHash>
#include <QX11Info>

#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>
#include <cstring>

#include "globalhotkey.h"

namespace hotkey {

namespace {
struct Grab {
    xcb_keycode_t keycode;
    uint16_t modifiers;
};
QHash<int, Grab>& grabs() {
    static QHash<int, Grab> table;
    return table;
}
const uint16_t kLockVariants[] = {0, XCB_MOD_MASK_LOCK, XCB_MOD_MASK_2,
                                  XCB_MOD_MASK_LOCK | XCB_MOD_MASK_2};
constexpr uint16_t kRelevant =
    XCB_MOD_MASK_SHIFT | XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1 | XCB_MOD_MASK_4;
}  // namespace

bool registerKey(int id, unsigned modifiers, unsigned virtualKey) {
    if (!QX11Info::isPlatformX11() || virtualKey < 'A' || virtualKey > 'Z') return false;
    xcb_connection_t* c = QX11Info::connection();
    xcb_key_symbols_t* symbols = xcb_key_symbols_alloc(c);
    if (!symbols) return false;
    xcb_keycode_t* codes =
        xcb_key_symbols_get_keycode(symbols, xcb_keysym_t('a' + (virtualKey - 'A')));
    xcb_key_symbols_free(symbols);
    if (!codes || codes[0] == XCB_NO_SYMBOL) {
        free(codes);
        return false;
    }
    const xcb_keycode_t keycode = codes[0];
    free(codes);
    uint16_t mods = 0;
    if (modifiers & 0x1) mods |= XCB_MOD_MASK_1;  // Alt
    if (modifiers & kModControl) mods |= XCB_MOD_MASK_CONTROL;
    if (modifiers & kModShift) mods |= XCB_MOD_MASK_SHIFT;
    if (modifiers & 0x8) mods |= XCB_MOD_MASK_4;  // Win
    bool ok = true;
    for (uint16_t lock : kLockVariants) {
        xcb_void_cookie_t cookie =
            xcb_grab_key_checked(c, 1, QX11Info::appRootWindow(), mods | lock, keycode,
                                 XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
        if (xcb_generic_error_t* error = xcb_request_check(c, cookie)) {
            ok = false;  // another program holds the combination
            free(error);
        }
    }
    grabs().insert(id, Grab{keycode, mods});
    return ok;
}

void unregisterKey(int id) {
    if (!QX11Info::isPlatformX11() || !grabs().contains(id)) return;
    const Grab g = grabs().take(id);
    for (uint16_t lock : kLockVariants)
        xcb_ungrab_key(QX11Info::connection(), g.keycode, QX11Info::appRootWindow(),
                       g.modifiers | lock);
    xcb_flush(QX11Info::connection());
}

bool isHotKeyEvent(const char* eventType, void* message, int* id) {
    if (!eventType || std::strcmp(eventType, "xcb_generic_event_t") != 0 || !message) return false;
    const auto* event = static_cast<const xcb_generic_event_t*>(message);
    if ((event->response_type & ~0x80) != XCB_KEY_PRESS) return false;
    const auto* key = reinterpret_cast<const xcb_key_press_event_t*>(event);
    for (auto it = grabs().constBegin(); it != grabs().constEnd(); ++it) {
        if (it->keycode == key->detail && (key->state & kRelevant) == it->modifiers) {
            if (id) *id = it.key();
            return true;
        }
    }
    return false;
}

}  // namespace hotkey
