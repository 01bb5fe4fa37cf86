#pragma once

#include <QWidget>

#include <functional>

class AboutQuelix;
class ConfigStore;
class SettingAccount;
class SettingUtility;

// The settings of the signed-in user, embedded in the main window's settings page. Every
// handler stores its setting at once (per-user flags in the user's "Settings.ini", the
// global ones in the global file) and the change takes effect at once. The three alert
// boxes are kept in step with the tray menu's toggles (0 pop-up, 1 blinking, 2 sound).
class SettingDialog : public QWidget {
    Q_OBJECT
public:
    explicit SettingDialog(ConfigStore& store, QWidget* parent = nullptr);

    SettingUtility* utility() const { return utility_; }
    SettingAccount* account() const { return account_; }
    // Reads every setting from the store into the boxes.
    void reload();

    // How a folder is chosen (a folder dialog by default; tests answer themselves).
    void setFolderChooser(std::function<QString(const QString& current)> chooser) {
        chooseFolder_ = std::move(chooser);
    }
    // How a refusal is told to the user (a message box by default).
    void setNotifier(std::function<void(const QString&)> notify) { notify_ = std::move(notify); }
    // The program the autostart entry starts.
    void setProgram(const QString& program) { program_ = program; }

signals:
    void feedBackSignal();
    void checkUpdateSignal();
    void exitSignal();
    void downloadDirChanged(const QString& dir);

public slots:
    void OnClickedBrowse();
    void OnClickedShining(bool on);
    void OnClickedPopup(bool on);
    void OnClickedAuto(bool on);
    void OnClickedSounding(bool on);
    void OnClickedReply(bool on);
    void OnClickedSuspend(bool on);
    void OnClickedDispose(bool on);
    void OnClickedComplete(bool on);
    void OnClickedCreateAndDelete(bool on);
    void OnCLickedExit();
    void OnClickedStartup(bool on);
    void OnClickedCloseQuit(bool quits);
    void OnChangedFontSize(int index);
    // A toggle changed on the tray's side.
    void trayToggleSlot(int number, bool value);
    void showAbout();

private:
    void storeUserFlag(bool* flag, bool value);
    void storeAlert(int number, bool value);
    bool* alertFlag(int number);
    void showDownloadDir();

    ConfigStore& store_;
    SettingUtility* utility_;
    SettingAccount* account_;
    AboutQuelix* about_ = nullptr;
    QString program_;
    std::function<QString(const QString&)> chooseFolder_;
    std::function<void(const QString&)> notify_;
};
