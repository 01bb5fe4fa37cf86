#pragma once

#include <QObject>

#include <functional>

// Notices when the first window the user waits for has been drawn: one log line, and,
// when the environment sets QUELIX_STARTUP_PROBE, one line "login-window-shown" on
// standard error for the start-up benchmark. Work that can wait runs right after that (or
// after a second, should the window never be drawn), so it never delays the window.
class StartupProbe : public QObject {
    Q_OBJECT
public:
    static void watch(QWidget* window, std::function<void()> afterShown);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    explicit StartupProbe(QObject* parent) : QObject(parent) {}
    void finish();

    std::function<void()> afterShown_;
    bool done_ = false;
};
