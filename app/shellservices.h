#pragma once

#include <QHash>
#include <QObject>

class ConfigStore;
class MainWindow;
class SettingDialog;
class SystemTrayIcon;
class TrayBackend;
namespace quelix {
class TriggerManager;
}

// The shell around the main window: the tray icon with its alerts, the settings page and
// the update check, joined to the window's delegate signals. Start-up and the tests make
// it the same way, after the log-in window is up.
class ShellServices : public QObject {
    Q_OBJECT
public:
    // backend null: the platform's own tray.
    ShellServices(MainWindow* window, ConfigStore& store, TrayBackend* backend = nullptr,
                  QObject* parent = nullptr);
    ~ShellServices() override;

    SystemTrayIcon* tray() const { return tray_; }
    // There once a user has signed in.
    SettingDialog* settings() const { return settings_; }
    quelix::TriggerManager* trigger() const { return trigger_; }
    // Looks for a newer client: silently at start, with an answer from the about box.
    void checkForUpdate(bool silent);

    static TrayBackend* platformBackend();

signals:
    // The about box asked for an update check (not silent).
    void checkUpdateRequested();

private:
    void onSignedIn();
    void storeAlertFromTray(int number, bool enabled);

    MainWindow* window_;
    ConfigStore& store_;
    SystemTrayIcon* tray_;
    SettingDialog* settings_ = nullptr;
    quelix::TriggerManager* trigger_;
    // The latest text of each conversation, for the card and the pop-up.
    QHash<QString, QString> lastText_;
};
