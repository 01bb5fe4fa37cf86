#include "settingdialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QRadioButton>
#include <QSignalBlocker>
#include <QTabWidget>

#include "aboutquelix.h"
#include "autostart.h"
#include "configstore.h"
#include "logger.h"
#include "mainviewdelegate.h"
#include "settingaccount.h"
#include "settingutility.h"
#include "shellstate.h"

SettingDialog::SettingDialog(ConfigStore& store, QWidget* parent)
    : QWidget(parent), store_(store), program_(QCoreApplication::applicationFilePath()) {
    setObjectName(QStringLiteral("settingDialog"));
    auto* tabs = new QTabWidget(this);
    utility_ = new SettingUtility(tabs);
    account_ = new SettingAccount(tabs);
    tabs->addTab(utility_, QStringLiteral("常规"));
    tabs->addTab(account_, QStringLiteral("账号与通知"));
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(16, 12, 16, 12);
    layout->addWidget(tabs);

    chooseFolder_ = [this](const QString& current) {
        return QFileDialog::getExistingDirectory(this, QStringLiteral("选择文件保存位置"), current);
    };
    notify_ = [this](const QString& text) {
        QMessageBox::information(this, QStringLiteral("提示"), text);
    };

    const SettingUtility* u = utility_;
    connect(u->browse, SIGNAL(clicked()), this, SLOT(OnClickedBrowse()));
    connect(u->shining, SIGNAL(toggled(bool)), this, SLOT(OnClickedShining(bool)));
    connect(u->popup, SIGNAL(toggled(bool)), this, SLOT(OnClickedPopup(bool)));
    connect(u->sounding, SIGNAL(toggled(bool)), this, SLOT(OnClickedSounding(bool)));
    connect(u->autoLogin, SIGNAL(toggled(bool)), this, SLOT(OnClickedAuto(bool)));
    connect(u->startWithSystem, SIGNAL(toggled(bool)), this, SLOT(OnClickedStartup(bool)));
    connect(u->closeQuits, SIGNAL(toggled(bool)), this, SLOT(OnClickedCloseQuit(bool)));
    connect(u->fontSize, SIGNAL(currentIndexChanged(int)), this, SLOT(OnChangedFontSize(int)));
    const SettingAccount* a = account_;
    connect(a->reply, SIGNAL(toggled(bool)), this, SLOT(OnClickedReply(bool)));
    connect(a->suspend, SIGNAL(toggled(bool)), this, SLOT(OnClickedSuspend(bool)));
    connect(a->dispose, SIGNAL(toggled(bool)), this, SLOT(OnClickedDispose(bool)));
    connect(a->complete, SIGNAL(toggled(bool)), this, SLOT(OnClickedComplete(bool)));
    connect(a->createAndDelete, SIGNAL(toggled(bool)), this, SLOT(OnClickedCreateAndDelete(bool)));
    connect(a->exit, SIGNAL(clicked()), this, SLOT(OnCLickedExit()));
    connect(a->about, SIGNAL(clicked()), this, SLOT(showAbout()));
    connect(a->feedback, SIGNAL(clicked()), this, SIGNAL(feedBackSignal()));
    reload();
}

void SettingDialog::reload() {
    const quelix::userconfig_t& c = store_.userConfig();
    const quelix::listlogin_t& logins = store_.loginList();
    const SettingUtility* u = utility_;
    const SettingAccount* a = account_;
    const struct {
        QAbstractButton* box;
        bool value;
    } states[] = {
        {u->popup, c.popup},
        {u->shining, c.trayShining},
        {u->sounding, c.sound},
        {u->autoLogin,
         !logins.logins.isEmpty() && logins.autoLogin == logins.logins.first().username},
        {u->startWithSystem, AutoStart::isEnabled()},
        {u->closeQuits, store_.settings().closeQuit()},
        {u->closeToTray, !store_.settings().closeQuit()},
        {a->reply, c.reply},
        {a->suspend, c.suspend},
        {a->dispose, c.dispose},
        {a->complete, c.complete},
        {a->createAndDelete, c.createAndDelete},
    };
    for (const auto& s : states) {
        const QSignalBlocker quiet(s.box);
        s.box->setChecked(s.value);
    }
    {
        const QSignalBlocker quiet(utility_->fontSize);
        const int index = utility_->fontSize->findData(ShellState::fontSize(store_));
        utility_->fontSize->setCurrentIndex(qMax(0, index));
    }
    showDownloadDir();
}

void SettingDialog::OnChangedFontSize(int index) {
    const int px = utility_->fontSize->itemData(index).toInt();
    if (!ShellState::setValue(store_, QStringLiteral("FontSize"), QString::number(px)))
        Logger::instance().write(QStringLiteral("font size not saved: ") +
                                 ShellState::path(store_));
    ShellState::applyFontSize(px);
}

void SettingDialog::showDownloadDir() {
    utility_->downloadDir->setText(
        QDir::toNativeSeparators(store_.folderPath(ConfigStore::Download)));
}

void SettingDialog::storeUserFlag(bool* flag, bool value) {
    *flag = value;
    if (!store_.hasUser()) return;
    if (!store_.userConfig().save())
        Logger::instance().write(QStringLiteral("user settings not saved: ") +
                                 store_.userConfig().path());
}

bool* SettingDialog::alertFlag(int number) {
    quelix::userconfig_t& c = store_.userConfig();
    switch (number) {
        case 0:
            return &c.popup;
        case 1:
            return &c.trayShining;
        case 2:
            return &c.sound;
        default:
            return nullptr;
    }
}

void SettingDialog::storeAlert(int number, bool value) {
    bool* flag = alertFlag(number);
    if (!flag) return;
    storeUserFlag(flag, value);
    if (MainViewDelegate* shell = MainViewDelegate::instance())
        shell->trayToggleChanged(0, value, number);
}

void SettingDialog::trayToggleSlot(int number, bool value) {
    QCheckBox* boxes[] = {utility_->popup, utility_->shining, utility_->sounding};
    bool* flag = alertFlag(number);
    if (!flag) return;
    QCheckBox* box = boxes[number];
    if (box->isChecked() != value) {
        const QSignalBlocker quiet(box);
        box->setChecked(value);
    }
    storeUserFlag(flag, value);
    // What is stored is what the box shows.
    const QSignalBlocker quiet(box);
    box->setChecked(*flag);
}

void SettingDialog::OnClickedPopup(bool on) { storeAlert(0, on); }

void SettingDialog::OnClickedShining(bool on) { storeAlert(1, on); }

void SettingDialog::OnClickedSounding(bool on) { storeAlert(2, on); }

void SettingDialog::OnClickedReply(bool on) { storeUserFlag(&store_.userConfig().reply, on); }

void SettingDialog::OnClickedSuspend(bool on) { storeUserFlag(&store_.userConfig().suspend, on); }

void SettingDialog::OnClickedDispose(bool on) { storeUserFlag(&store_.userConfig().dispose, on); }

void SettingDialog::OnClickedComplete(bool on) { storeUserFlag(&store_.userConfig().complete, on); }

void SettingDialog::OnClickedCreateAndDelete(bool on) {
    storeUserFlag(&store_.userConfig().createAndDelete, on);
}

void SettingDialog::OnClickedAuto(bool on) {
    quelix::listlogin_t& logins = store_.loginList();
    if (on) {
        // Signing in by itself needs the password, which is kept only when the user asked.
        if (logins.logins.isEmpty() || logins.logins.first().password.isEmpty()) {
            const QSignalBlocker quiet(utility_->autoLogin);
            utility_->autoLogin->setChecked(false);
            notify_(QStringLiteral("自动登录需要保存密码：请在登录时勾选“记住密码”。"));
            return;
        }
        logins.autoLogin = logins.logins.first().username;
    } else {
        logins.autoLogin.clear();
    }
    if (!logins.save())
        Logger::instance().write(QStringLiteral("login list not saved: ") + logins.path());
}

void SettingDialog::OnClickedStartup(bool on) {
    if (AutoStart::setEnabled(on, program_)) return;
    const QSignalBlocker quiet(utility_->startWithSystem);
    utility_->startWithSystem->setChecked(AutoStart::isEnabled());
    notify_(QStringLiteral("无法更改开机启动设置。"));
}

void SettingDialog::OnClickedCloseQuit(bool quits) {
    store_.settings().setCloseQuit(quits);
    if (!store_.settings().save())
        Logger::instance().write(QStringLiteral("settings not saved: ") + store_.settings().path());
}

void SettingDialog::OnClickedBrowse() {
    const QString current = store_.folderPath(ConfigStore::Download);
    const QString chosen = chooseFolder_(current);
    if (chosen.isEmpty()) return;
    const QString dir = QDir::cleanPath(QDir(chosen).absolutePath());
    if (dir == QDir::cleanPath(current)) return;
    if (!QDir().mkpath(dir) || !QFileInfo(dir).isWritable()) {
        Logger::instance().write(QStringLiteral("download folder refused (not writable): ") + dir);
        notify_(QStringLiteral("无法写入该目录，请选择其他位置。"));
        return;
    }
    // Files received from now on go there; those already saved stay where they are.
    store_.settings().setDownloadDir(dir);
    if (!store_.settings().save())
        Logger::instance().write(QStringLiteral("settings not saved: ") + store_.settings().path());
    showDownloadDir();
    emit downloadDirChanged(dir);
}

void SettingDialog::OnCLickedExit() { emit exitSignal(); }

void SettingDialog::showAbout() {
    if (!about_) {
        about_ = new AboutQuelix(this);
        connect(about_, &AboutQuelix::checkUpdateSignal, this, &SettingDialog::checkUpdateSignal);
        connect(about_, &AboutQuelix::feedBackSignal, this, &SettingDialog::feedBackSignal);
    }
    about_->show();
    about_->raise();
}
