#pragma once

#include <QMenu>

// The tray icon's menu: show the window, three alert toggles and exit. The toggles read
// "turn off" (checked = that alert is off); they are numbered as the settings page numbers
// them: 0 pop-up, 1 blinking, 2 sound.
class TrayMenu : public QMenu {
    Q_OBJECT
public:
    enum Toggle { PopupToggle = 0, ShiningToggle = 1, SoundToggle = 2, ToggleCount = 3 };

    explicit TrayMenu(QWidget* parent = nullptr);

    // From the settings side: no alertToggled is sent back.
    void setAlertEnabled(int number, bool enabled);
    bool isAlertEnabled(int number) const;
    // The toggles mean something only for a signed-in user.
    void setTogglesAvailable(bool available);
    QAction* toggleAction(int number) const;
    QAction* showAction() const { return show_; }
    QAction* exitAction() const { return exit_; }

signals:
    void trayMenuShowWidgetSignal(bool);
    void trayMenuExitSignal(bool);
    // The user changed a toggle here; enabled is the alert's new state.
    void alertToggled(int number, bool enabled);

public slots:
    void trayMenuTipWidgetDisabledSlot(bool disabled);
    void trayMenuFlashingIconDisabledSlot(bool disabled);
    void trayMenuSoundingDisabledSlot(bool disabled);

private:
    QAction* show_;
    QAction* toggles_[ToggleCount];
    QAction* exit_;
};
