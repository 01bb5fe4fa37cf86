#include "traymenu.h"

#include <QApplication>
#include <QSignalBlocker>

TrayMenu::TrayMenu(QWidget* parent) : QMenu(parent) {
    setStyleSheet(QStringLiteral("QMenu{border-image:url(:/resource/Chat/TrayMenu.png);"
                                 "font-family:%1;border-radius:5px;}")
                      .arg(QApplication::font().family()));
    show_ = addAction(QStringLiteral("打开主面板"));
    connect(show_, &QAction::triggered, this, [this] { emit trayMenuShowWidgetSignal(true); });
    addSeparator();
    const char* const texts[ToggleCount] = {"关闭消息弹窗", "关闭图标闪烁", "关闭声音提醒"};
    const char* const receivers[ToggleCount] = {SLOT(trayMenuTipWidgetDisabledSlot(bool)),
                                                SLOT(trayMenuFlashingIconDisabledSlot(bool)),
                                                SLOT(trayMenuSoundingDisabledSlot(bool))};
    for (int i = 0; i < ToggleCount; ++i) {
        toggles_[i] = addAction(QString::fromUtf8(texts[i]));
        toggles_[i]->setCheckable(true);
        connect(toggles_[i], SIGNAL(toggled(bool)), this, receivers[i]);
    }
    addSeparator();
    exit_ = addAction(QStringLiteral("退出"));
    connect(exit_, &QAction::triggered, this, [this] { emit trayMenuExitSignal(true); });
    setTogglesAvailable(false);
}

void TrayMenu::setAlertEnabled(int number, bool enabled) {
    if (number < 0 || number >= ToggleCount) return;
    const QSignalBlocker quiet(toggles_[number]);
    toggles_[number]->setChecked(!enabled);
}

bool TrayMenu::isAlertEnabled(int number) const {
    return number >= 0 && number < ToggleCount && !toggles_[number]->isChecked();
}

void TrayMenu::setTogglesAvailable(bool available) {
    for (QAction* a : toggles_) a->setEnabled(available);
}

QAction* TrayMenu::toggleAction(int number) const {
    return number >= 0 && number < ToggleCount ? toggles_[number] : nullptr;
}

void TrayMenu::trayMenuTipWidgetDisabledSlot(bool disabled) {
    emit alertToggled(PopupToggle, !disabled);
}

void TrayMenu::trayMenuFlashingIconDisabledSlot(bool disabled) {
    emit alertToggled(ShiningToggle, !disabled);
}

void TrayMenu::trayMenuSoundingDisabledSlot(bool disabled) {
    emit alertToggled(SoundToggle, !disabled);
}
