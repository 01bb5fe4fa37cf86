#include "shellservices.h"

#include <QCoreApplication>
#include <QStackedWidget>
#include <QTimer>

#include "avatarmanager.h"
#include "configstore.h"
#include "loginview.h"
#include "mainwindow.h"
#include "settingdialog.h"
#include "systemtrayicon.h"
#include "traymenu.h"
#include "triggermanager.h"
#include "unreadmsgscard.h"
#ifdef Q_OS_WIN
#include "wintraybackend.h"
#else
#include "qttraybackend.h"
#endif

namespace {
constexpr int kMaxSummary = 200;
}

TrayBackend* ShellServices::platformBackend() {
#ifdef Q_OS_WIN
    return new WinTrayBackend;
#else
    return new QtTrayBackend;
#endif
}

ShellServices::ShellServices(MainWindow* window, ConfigStore& store, TrayBackend* backend,
                             QObject* parent)
    : QObject(parent),
      window_(window),
      store_(store),
      tray_(new SystemTrayIcon(backend ? backend : platformBackend(), this)),
      trigger_(new quelix::TriggerManager(this)) {
    SystemTrayIcon* tray = tray_;
    trigger_->setDialogParent(window);  // its questions open over the window
    connect(window, &MainWindow::talkListUpdateSignal, this,
            [this](const ConversationRecord& record, const QString& text) {
                if (!text.isEmpty()) lastText_.insert(record.id, text.left(kMaxSummary));
            });
    connect(window, &MainWindow::newMessageAlertSignal, this,
            [this](const QString& id, const QString& name, int count) {
                tray_->newMessage(id, name, lastText_.value(id),
                                  quelix::AvatarManager::instance().displayPath(id, true), count);
            });
    connect(window, &MainWindow::totalUnreadSignal, this, [this](int total) {
        tray_->unreadChanged(total, [this](const QString& id) { return window_->unreadCount(id); });
    });
    connect(window, &MainWindow::onlineChangedSignal, tray, &SystemTrayIcon::setOnline);
    connect(window, &MainWindow::kickedSignal, tray, [tray] { tray->setOnline(false); });
    connect(window, &MainWindow::loginSuccessSignal, this, &ShellServices::onSignedIn);
    connect(window, &MainWindow::trayToggleSignal, tray,
            [tray](int number, bool value) { tray->menu()->setAlertEnabled(number, value); });

    connect(tray, &SystemTrayIcon::showWindowRequested, window, [window] {
        if (window->ownId().isEmpty()) {
            window->loginView()->show();
            window->loginView()->raise();
            window->loginView()->activateWindow();
        } else {
            window->showMainWindow();
        }
    });
    connect(tray, &SystemTrayIcon::openConversationRequested, window, [window](const QString& id) {
        if (window->ownId().isEmpty()) return;
        window->openConversation(id);
    });
    connect(tray, &SystemTrayIcon::quitRequested, window, [window] { window->quitApplication(); });
    connect(tray, &SystemTrayIcon::ignoreAllRequested, window,
            [window] { window->ignoreAllMessages(); });
    connect(tray, &SystemTrayIcon::alertToggled, this, &ShellServices::storeAlertFromTray);
    connect(qApp, &QCoreApplication::aboutToQuit, tray, &SystemTrayIcon::remove);

    window->setTrayAvailable(tray->backend()->isAvailable());
    tray->show();

    connect(this, &ShellServices::checkUpdateRequested, this, [this] { checkForUpdate(false); });
    // The start-up check waits a little, so it never competes with signing in.
    QTimer::singleShot(3000, this, [this] { checkForUpdate(true); });
}

void ShellServices::checkForUpdate(bool silent) {
    trigger_->setSilent(silent);
    trigger_->checkUpdate();
}

ShellServices::~ShellServices() = default;

void ShellServices::onSignedIn() {
    // Signed in to the IM service: the coloured icon, whatever the connection reports next.
    tray_->setOnline(true);
    TrayMenu* menu = tray_->menu();
    const quelix::userconfig_t& c = store_.userConfig();
    menu->setAlertEnabled(TrayMenu::PopupToggle, c.popup);
    menu->setAlertEnabled(TrayMenu::ShiningToggle, c.trayShining);
    menu->setAlertEnabled(TrayMenu::SoundToggle, c.sound);
    menu->setTogglesAvailable(true);
    if (settings_) {
        settings_->reload();
        return;
    }
    // The settings page replaces its placeholder once there is a user to set things for.
    QStackedWidget* pages = window_->pages();
    settings_ = new SettingDialog(store_, pages);
    QWidget* placeholder = pages->widget(MainViewDelegate::SettingPage);
    const bool current = pages->currentIndex() == MainViewDelegate::SettingPage;
    pages->insertWidget(MainViewDelegate::SettingPage, settings_);
    if (placeholder) {
        pages->removeWidget(placeholder);
        placeholder->deleteLater();
    }
    if (current) pages->setCurrentIndex(MainViewDelegate::SettingPage);
    connect(settings_, &SettingDialog::feedBackSignal, window_, &MainWindow::feedBackSlot);
    connect(settings_, &SettingDialog::exitSignal, window_, [this] { window_->quitApplication(); });
    connect(settings_, &SettingDialog::checkUpdateSignal, this,
            &ShellServices::checkUpdateRequested);
}

void ShellServices::storeAlertFromTray(int number, bool enabled) {
    if (settings_) {
        settings_->trayToggleSlot(number, enabled);
        return;
    }
    quelix::userconfig_t& c = store_.userConfig();
    bool* flags[] = {&c.popup, &c.trayShining, &c.sound};
    if (number < 0 || number > 2) return;
    *flags[number] = enabled;
    if (store_.hasUser()) c.save();
}
