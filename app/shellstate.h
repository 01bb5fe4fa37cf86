#pragma once

#include <QString>

class ConfigStore;

// Small facts the shell keeps between runs that have no place among the fixed fields of
// the global settings file: whether closing was asked about, the chosen font size. One
// JSON file ("Shell.ini") beside the global settings, changed one key at a time.
class ShellState {
public:
    static QString path(const ConfigStore& store);
    static QString value(const ConfigStore& store, const QString& key);
    // Keeps the file's other keys; false when it cannot be written.
    static bool setValue(const ConfigStore& store, const QString& key, const QString& value);

    // The user's font size in pixels, 0 for the system's.
    static int fontSize(const ConfigStore& store);
    static void applyFontSize(int pixels);
};
