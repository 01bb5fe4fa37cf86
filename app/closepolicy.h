#pragma once

#include <functional>

class ConfigStore;

// What closing the main window does. The client quits only when the user chose "close
// quits"; since quitting ends the alerts too, the first such close asks, and the answer
// is kept either way ("no" keeps the client in the tray from then on). Otherwise the
// window goes to the tray, or is minimised when there is no tray to bring it back from.
class ClosePolicy {
public:
    enum Outcome { Quit, HideToTray, Minimize };

    explicit ClosePolicy(ConfigStore& store) : store_(store) {}

    // Asked once when closing would quit: true to quit, false to stay in the tray.
    void setQuestion(std::function<bool()> question) { question_ = std::move(question); }
    void setTrayAvailable(bool available) { trayAvailable_ = available; }

    // What this close does; asks first when it is due.
    Outcome close();

private:
    ConfigStore& store_;
    std::function<bool()> question_;
    bool trayAvailable_ = false;
};
