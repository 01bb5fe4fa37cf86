// Deciding what closing the main window does: quit, tray, or minimise.
#include "closepolicy.h"

#include <QString>

#include "configstore.h"
#include "shellstate.h"

namespace {
const char* const kAskedKey = "CloseAsked";
}

ClosePolicy::Outcome ClosePolicy::close() {
    quelix::settings_t& settings = store_.settings();
    const QString asked = QLatin1String(kAskedKey);
    if (settings.closeQuit() && ShellState::value(store_, asked) != QLatin1String("true")) {
        const bool quit = question_ ? question_() : true;
        ShellState::setValue(store_, asked, QStringLiteral("true"));
        if (!quit) {
            settings.setCloseQuit(false);
            settings.save();
        }
    }
    if (settings.closeQuit()) return Quit;
    // Without a tray icon a hidden window could never be brought back.
    return trayAvailable_ ? HideToTray : Minimize;
}
