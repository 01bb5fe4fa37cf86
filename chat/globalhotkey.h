#pragma once

// System-wide hot keys, caught whichever application has the focus. Modifiers and key
// use the Windows values (MOD_CONTROL 0x2, MOD_SHIFT 0x4, virtual keys 'A'..'Z'); on X11
// they are mapped to a key grab on the root window.
namespace hotkey {

constexpr unsigned kModControl = 0x0002;
constexpr unsigned kModShift = 0x0004;
constexpr unsigned kKeyZ = 0x5A;

bool registerKey(int id, unsigned modifiers, unsigned virtualKey);
void unregisterKey(int id);
// True when a native event (as handed to a native event filter) is the press of a
// registered key; *id names which.
bool isHotKeyEvent(const char* eventType, void* message, int* id);

}  // namespace hotkey
