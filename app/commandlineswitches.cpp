#include "commandlineswitches.h"

const char* const CommandLineSwitches::kTable[5] = {"None", "-Kicked", "-Console",
                                                    "-NotAutoLogin-Log", ""};

CommandLineSwitches::Flags CommandLineSwitches::parse(int argc, const char* const* argv) {
    QStringList args;
    for (int i = 0; i < argc; ++i) args << QString::fromLocal8Bit(argv[i]);
    return parse(args);
}

CommandLineSwitches::Flags CommandLineSwitches::parse(const QStringList& arguments) {
    Flags flags;
    for (int i = 2; i < arguments.size(); ++i) {
        const QString& arg = arguments.at(i);
        for (int entry = 1; entry <= 4; ++entry) {
            const QLatin1String name(kTable[entry]);
            // The empty slot ends the walk without a match; the argument is ignored.
            if (name.size() == 0) break;
            if (arg.compare(name, Qt::CaseInsensitive) != 0) continue;
            if (entry == 1)
                flags.kicked = true;
            else if (entry == 3)
                flags.autoLogin = false;
            // entry 2, "-Console", is accepted and changes nothing.
            break;
        }
    }
    return flags;
}
