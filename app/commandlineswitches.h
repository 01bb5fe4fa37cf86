#pragma once

#include <QStringList>

// The few switches the program understands. "-NotAutoLogin-Log" is one switch, matched
// whole. Arguments are examined from the second one after the program name on: the
// first is never a switch (the loader that restarts the client passes its own value
// there).
class CommandLineSwitches {
public:
    struct Flags {
        bool autoLogin = true;
        bool kicked = false;
    };

    // The switch table: 0 "None", 1 "-Kicked", 2 "-Console", 3 "-NotAutoLogin-Log",
    // 4 an empty slot that matches nothing.
    static const char* const kTable[5];

    static Flags parse(int argc, const char* const* argv);
    static Flags parse(const QStringList& arguments);
};
