// Windows hot keys through RegisterHotKey on the thread (no window handle).
#include <windows.h>

#include <cstring>

#include "globalhotkey.h"

namespace hotkey {

bool registerKey(int id, unsigned modifiers, unsigned virtualKey) {
    return RegisterHotKey(nullptr, id, modifiers, virtualKey) != FALSE;
}

void unregisterKey(int id) { UnregisterHotKey(nullptr, id); }

bool isHotKeyEvent(const char* eventType, void* message, int* id) {
    if (!eventType || std::strcmp(eventType, "windows_generic_MSG") != 0 || !message) return false;
    const MSG* msg = static_cast<const MSG*>(message);
    if (msg->message != WM_HOTKEY) return false;
    if (id) *id = int(msg->wParam);
    return true;
}

}  // namespace hotkey
