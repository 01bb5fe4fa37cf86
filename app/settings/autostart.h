#pragma once

#include <QString>

// "Start with the system": an XDG autostart entry (~/.config/autostart/quelix.desktop) on
// Linux desktops, the per-user Run key on Windows.
class AutoStart {
public:
    static bool isEnabled();
    // Writes or removes the entry; false (and one log line) when it cannot.
    static bool setEnabled(bool enabled, const QString& program);
    static QString entryPath();
};
