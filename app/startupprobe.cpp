#include "startupprobe.h"

#include <QEvent>
#include <QTimer>
#include <QWidget>

#include <cstdio>

#include "logger.h"

void StartupProbe::watch(QWidget* window, std::function<void()> afterShown) {
    auto* probe = new StartupProbe(window);
    probe->afterShown_ = std::move(afterShown);
    window->installEventFilter(probe);
    QTimer::singleShot(1000, probe, &StartupProbe::finish);
}

bool StartupProbe::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::Paint && !done_) {
        watched->removeEventFilter(this);
        Logger::instance().write(QStringLiteral("log-in window shown"));
        if (qEnvironmentVariableIsSet("QUELIX_STARTUP_PROBE")) {
            std::fputs("login-window-shown\n", stderr);
            std::fflush(stderr);
        }
        // After this paint has reached the screen, not in the middle of it.
        QTimer::singleShot(0, this, &StartupProbe::finish);
    }
    return false;
}

void StartupProbe::finish() {
    if (done_) return;
    done_ = true;
    if (afterShown_) afterShown_();
    deleteLater();
}
