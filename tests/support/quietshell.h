#pragma once

#include <QString>
#include <QWidget>

#include "configstore.h"
#include "mainwindow.h"
#include "shellservices.h"
#include "systemtrayicon.h"
#include "traybackend.h"
#include "triggermanager.h"

// The tray and update services wired to the client's window as the application wires them,
// on `tray` (a test double), without the update check's questions (the client under test is
// no release, so the check would ask about a newer one) and without sound.
inline ShellServices* attachQuietShell(MainWindow* window, TrayBackend* tray) {
    auto* shell = new ShellServices(window, ConfigStore::instance(), tray, window);
    shell->trigger()->setAsker([](QWidget*, const QString&) { return false; });
    shell->trigger()->setInformer([](QWidget*, const QString&) {});
    shell->tray()->setSoundPlayer([] {});
    return shell;
}
