// The main window as the client's hub: signing in fills its pages, the delegate's calls
// reach them.
#include "mainwindow.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QJsonObject>
#include <QMessageBox>
#include <QStackedWidget>
#include <QUrl>

#include "avatarmanager.h"
#include "avatarpixmapcache.h"
#include "configbase_t.h"
#include "configstore.h"
#include "conversationview.h"
#include "directorystore.h"
#include "functionlistview.h"
#include "logger.h"
#include "loginview.h"
#include "manager.h"
#include "orgnizationview.h"
#include "platform/platform.h"
#include "screenmetrics.h"
#include "screenshotview.h"
#include "shellstate.h"
#include "tribeconverview.h"
#include "tribetips.h"
#include "unreadprobe.h"
#include "windowchrome.h"
#include "winstylebuttons.h"
#include "worksitepage.h"

namespace {
const char* const kWidthKey = "mainWinWidth";
const char* const kHeightKey = "mainWinHeight";
const char* const kFeedbackAddress = "support@quelix.work";
}  // namespace

MainWindow::MainWindow(ConfigStore& store, QWidget* parent)
    : QMainWindow(parent),
      store_(store),
      motion_(
          new WindowMotion(this, ScreenMetrics::instance().value(ScreenMetrics::ShakeAmplitude))),
      closePolicy_(store),
      shots_(new ScreenshotLauncher(this)) {
    const ScreenMetrics& m = ScreenMetrics::instance();
    setWindowFlags(Qt::FramelessWindowHint | Qt::Window);
    setWindowIcon(QIcon(QStringLiteral(":/resource/240x240.ico")));
    setWindowTitle(QStringLiteral("Quelix"));
    setMinimumSize(m.value(ScreenMetrics::MainWinMinWidth),
                   m.value(ScreenMetrics::MainWinMinHeight));

    chrome_ = new WindowChrome(this);
    pages_ = chrome_->pages();
    titleButtons_ = chrome_->titleButtons();
    for (QWidget* handle : {chrome_->leftColumn(), chrome_->titleStrip()}) {
        handle->installEventFilter(this);
        // The frameless window is dragged by its title strip and its left column.
        motion_->addHandle(handle);
    }
    connect(chrome_, &WindowChrome::pageRequested, this, &MainWindow::showPage);
    connect(chrome_->workSite(), &WorkSitePage::openInBrowser, this, &MainWindow::openWorkSite);
    connect(chrome_->userView(), SIGNAL(funcListDbclickSignal()), this,
            SLOT(funcListDbclickSlot()));
    // The title strip's close button closes like the system's: to the tray or out,
    // as the user chose (closeEvent).
    connect(titleButtons_, SIGNAL(hideSignal()), this, SLOT(close()));
    connect(titleButtons_, SIGNAL(windowMiniSignal()), this, SLOT(showMinimized()));
    connect(titleButtons_, SIGNAL(windowMaxSignal()), this, SLOT(showMaximized()));
    connect(titleButtons_, SIGNAL(windowNormalSignal()), this, SLOT(showNormal()));
    connect(this, SIGNAL(feedBackSignal()), this, SLOT(feedBackSlot()));

    auto* exitAction = new QAction(tr("Exit"), this);
    exitAction->setShortcut(QKeySequence::Quit);
    exitAction->setObjectName(QStringLiteral("exitAction"));
    addAction(exitAction);
    connect(exitAction, SIGNAL(triggered()), qApp, SLOT(quit()));

    // Sizes are saved once the user stops resizing, not on every step of the drag.
    saveSizeTimer_.setSingleShot(true);
    saveSizeTimer_.setInterval(500);
    connect(&saveSizeTimer_, &QTimer::timeout, this, &MainWindow::saveWindowSize);

    flasher_ = [this] { platform::flashWindow(std::uintptr_t(winId())); };
    closePolicy_.setQuestion([this] {
        return QMessageBox::question(
                   this, QStringLiteral("提示"),
                   QStringLiteral("关闭主窗口将退出 Quelix，之后不再收到新消息。\n"
                                  "确定退出吗？选择“否”则关闭时最小化到托盘。"),
                   QMessageBox::Yes | QMessageBox::No, QMessageBox::Yes) == QMessageBox::Yes;
    });
    connect(shots_, &ScreenshotLauncher::opened, this, [this](screenshot::ScreenShotView* shot) {
        if (conversationView_) conversationView_->attachScreenShot(shot);
    });
    // Never a black overlay: the user was told why, and the window comes back.
    connect(shots_, &ScreenshotLauncher::refused, this, [this] {
        if (conversationView_) showMainWindow();
    });
    connect(qApp, &QCoreApplication::aboutToQuit, this, &MainWindow::saveWindowSize);

    loginView_ = new LoginView;
    connect(loginView_, &LoginView::LoginSeccess, this, &MainWindow::showMainWindow);
    // Closing the log-in window before signing in ends the program.
    connect(loginView_, &LoginView::closeLogineView, this, [this] {
        if (ownId_.isEmpty()) quitApplication();
    });
    restoreWindowSize();
    chrome_->setPageButtonsEnabled(false);
}

MainWindow::~MainWindow() {
    if (saveSizeTimer_.isActive()) saveWindowSize();
    delete loginView_;
}

// --- MainViewDelegate -------------------------------------------------------------------

void MainWindow::start(bool autoLogin, bool kicked) {
    startAutoLogin_ = autoLogin;
    startKicked_ = kicked;
    showPage(LoginPage);
    emit startSignal(autoLogin, kicked);
    // The log-in window comes first; this window shows once the user is signed in.
    loginView_->start(autoLogin, kicked);
}

// The pages are built and filled while the IM service signs the user in: at a restart that
// is most of the wait for the talk list, and none of it needs the service.
void MainWindow::prepareFor(const QString& ownId) {
    if (ownId.isEmpty() || preparedFor_ == ownId) return;
    fillPages(ownId);
    preparedFor_ = ownId;
}

void MainWindow::fillPages(const QString& ownId) {
    ownId_ = ownId;
    if (!conversationView_) {
        // Built once the user is known: the talk list is theirs.
        conversationView_ = new ConversationView(pages_);
        chrome_->replacePage(ChatPage, conversationView_);
        conversationView_->setOnline(online_);
        emit conversationViewCreated(conversationView_);
        buildDirectoryPages();
    }
    // The directory was loaded for this sign-in; the tribes are on their way.
    orgView_->reload();
    tribeView_->setLoadingTribes(true);
    conversationView_->loadTalkList();
}

void MainWindow::loginSuccess(const QString& ownId) {
    if (preparedFor_ != ownId) fillPages(ownId);
    preparedFor_.clear();
    showOwnUser();
    chrome_->setPageButtonsEnabled(true);
    showPage(ChatPage);
    emit loginSuccessSignal(ownId);
}

void MainWindow::loginFailed(const QString& text) { emit loginFailedSignal(text); }

void MainWindow::buildDirectoryPages() {
    avatarCache_ = new AvatarPixmapCache(nullptr, nullptr, this);
    orgView_ = new OrgnizationView(pages_, nullptr, avatarCache_);
    tribeView_ = new TribeConverView(pages_, nullptr, avatarCache_);
    chrome_->replacePage(OrgPage, orgView_);
    chrome_->replacePage(TribePage, tribeView_);
    connect(orgView_, &OrgnizationView::chatButtonClicked, this, &MainWindow::openConversation);
    connect(orgView_, &OrgnizationView::shareColleague, this, &MainWindow::shareColleague);
    connect(tribeView_, &TribeConverView::chatButtonClicked, this, &MainWindow::openConversation);
    connect(tribeView_, &TribeConverView::shareColleague, this, &MainWindow::shareColleague);
    connect(tribeView_, &TribeConverView::openTaskPage, this, &MainWindow::openTaskPage);
    emit tribeViewCreated(tribeView_);
}

void MainWindow::shareColleague(const QString& userId) {
    if (!conversationView_) return;
    const QString target = conversationView_->shareColleague(userId);
    if (!target.isEmpty()) openConversation(target);
}

void MainWindow::userOnlineChanged(const QString& userId, bool online) {
    if (conversationView_) conversationView_->setUserOnline(userId, online);
    if (orgView_) orgView_->setOnline(userId, online);
    if (tribeView_) tribeView_->setOnline(userId, online);
}

void MainWindow::openTaskPage(const QString& url) {
    Logger::instance().write(QStringLiteral("open task page: ") + url);
    emit openTaskPageSignal(url);
}

void MainWindow::showOwnUser() {
    const DirectoryStore::Colleague* me = DirectoryStore::instance().colleague(ownId_);
    const QString name = me ? me->displayName() : ownId_;
    quelix::AvatarManager& avatars = quelix::AvatarManager::instance();
    avatars.setSelfId(ownId_);
    chrome_->userView()->setUser(name, QPixmap(avatars.displayPath(ownId_, true)));
    if (me) avatars.requestAvatar(ownId_, me->userIcon(), quelix::AvatarManager::Self);
}

void MainWindow::updateUserIcon(const QString& userId) {
    if (userId == ownId_) showOwnUser();
}

void MainWindow::kicked(const QString& text) {
    online_ = false;
    logout();
    hide();
    emit kickedSignal(text);
    loginView_->showKicked();
}

void MainWindow::setOnline(bool online) {
    if (conversationView_) conversationView_->setOnline(online);
    if (online_ == online) return;
    online_ = online;
    emit onlineChangedSignal(online);
}

void MainWindow::newMessage(const ConversationRecord& record, const QString& text) {
    if (!text.isEmpty()) emit showMessageSignal(record.displayName(), text);
    emit talkListUpdateSignal(record, text);
    if (!record.fromSelf && !record.muted && flasher_) flasher_();
}

void MainWindow::talkListPreview(const QString& id, const QString& preview) {
    Q_UNUSED(id);
    Q_UNUSED(preview);  // rows show name and count only
}

void MainWindow::newMessageMark(const QString& id, int count) {
    if (conversationView_) conversationView_->showConversation(id, count);
}

QString MainWindow::currentConversationId() const {
    // Only a conversation the user is looking at counts as open.
    if (!conversationView_ || !isVisible() || currentPage() != ChatPage) return QString();
    return conversationView_->currentConversationId();
}

void MainWindow::openConversation(const QString& id) {
    if (!conversationView_) return;
    showPage(ChatPage);
    conversationView_->showConversation(id, 0);
    showMainWindow();
}

int MainWindow::unreadCount(const QString& id) const {
    return conversationView_ ? conversationView_->unreadCount(id) : 0;
}

void MainWindow::ignoreAllMessages() {
    if (conversationView_) conversationView_->ignoreAllMsgsSlot();
}

// ---- tribes: a tip in the tribe's page for every change of its members ----

namespace {
QString memberName(const QString& userId) {
    if (const DirectoryStore::Colleague* c = DirectoryStore::instance().colleague(userId))
        return c->displayName();
    return userId;
}
}  // namespace

void MainWindow::tribeTip(const QString& tribeId, const QString& userId, int event) {
    if (!conversationView_) return;
    const bool self = userId.isEmpty() || userId == DirectoryStore::instance().selfId();
    conversationView_->showTribeTip(
        tribeId, TribeTips::text(TribeTips::Event(event), self, memberName(userId)), self);
}

void MainWindow::tribeDismissed(const QString& tribeId) {
    tribeTip(tribeId, QString(), TribeTips::Dismissed);
    if (tribeView_) tribeView_->reloadTribes();
}

void MainWindow::tribeMemberQuit(const QString& tribeId, const QString& userId) {
    tribeTip(tribeId, userId, TribeTips::Quit);
    if (tribeView_) {
        tribeView_->reloadTribes();
        tribeView_->tribeMembersChanged(tribeId);
    }
}

void MainWindow::tribeMemberJoined(const QString& tribeId, const QString& userId) {
    tribeTip(tribeId, userId, TribeTips::Joined);
    if (tribeView_) {
        tribeView_->reloadTribes();
        tribeView_->tribeMembersChanged(tribeId);
    }
}

void MainWindow::tribeMemberKicked(const QString& tribeId, const QString& userId) {
    tribeTip(tribeId, userId, TribeTips::Kicked);
    if (tribeView_) {
        tribeView_->reloadTribes();
        tribeView_->tribeMembersChanged(tribeId);
    }
}

void MainWindow::totalUnread(int count) {
    UnreadProbe::totalChanged(count);
    setWindowTitle(count > 0 ? QStringLiteral("Quelix (%1)").arg(count) : QStringLiteral("Quelix"));
    chrome_->setUnread(count);
    if (UnreadProbe::watchesTalkList() && conversationView_)
        UnreadProbe::talkList(count, windowTitle(), conversationView_->talkListState());
    emit totalUnreadSignal(count);
}

void MainWindow::newMessageAlert(const QString& id, const QString& name, int count) {
    emit newMessageAlertSignal(id, name, count);
}

void MainWindow::trayToggleChanged(int side, bool value, int number) {
    Q_UNUSED(side);
    emit trayToggleSignal(number, value);
}

void MainWindow::showMainWindow() {
    if (isMinimized()) showNormal();
    show();
    raise();
    activateWindow();
}

void MainWindow::hideMainWindow() { hide(); }

screenshot::ScreenShotView* MainWindow::screenShot() const { return shots_->current(); }

void MainWindow::startScreenshot() { shots_->start(); }

bool MainWindow::isMainWindowActive() const { return isActiveWindow(); }

void MainWindow::shakeWindow() { motion_->shake(); }

void MainWindow::setTrayAvailable(bool available) { closePolicy_.setTrayAvailable(available); }

void MainWindow::logout() {
    ownId_.clear();
    chrome_->setPageButtonsEnabled(false);
    showPage(LoginPage);
}

void MainWindow::showPage(int page) { chrome_->showPage(page); }

int MainWindow::currentPage() const { return pages_->currentIndex(); }

WorkSitePage* MainWindow::workSitePage() const { return chrome_->workSite(); }

bool MainWindow::quitApplication() {
    saveWindowSize();
    QCoreApplication::quit();
    return true;
}

// --- slots ------------------------------------------------------------------------------

void MainWindow::vibrationWindowTimerOut() { motion_->shakeStep(); }

void MainWindow::funcListDbclickSlot() { openWorkSite(); }

void MainWindow::chatButtonClcked() { showPage(ChatPage); }

void MainWindow::allMemberTreeButtonClcked() { showPage(OrgPage); }

void MainWindow::tribeChatButtonClcked() { showPage(TribePage); }

void MainWindow::worksycleButtonClcked() { showPage(WorkCirclePage); }

void MainWindow::setButtonClcked() { showPage(SettingPage); }

void MainWindow::feedBackSlot() {
    auto* box = new QMessageBox(QMessageBox::Information, QStringLiteral("提示"),
                                tr("Send your feedback to %1").arg(QLatin1String(kFeedbackAddress)),
                                QMessageBox::Ok, this);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
}

void MainWindow::openWorkSite() { QDesktopServices::openUrl(QUrl(store_.url(UrlTable::UrlHome))); }

// --- window behaviour -------------------------------------------------------------------

bool MainWindow::eventFilter(QObject* watched, QEvent* event) {
    // A press on the window's own title bar closes the outputs' cards (WindowMotion drags
    // the window from the same places); a double click on the title strip maximises.
    if (watched == chrome_->titleStrip() || watched == chrome_->leftColumn()) {
        if (event->type() == QEvent::MouseButtonPress)
            emit qx_output::Manager::instance()->mainWinPressedSignal();
        if (event->type() == QEvent::MouseButtonDblClick && watched == chrome_->titleStrip()) {
            if (isMaximized())
                titleButtons_->windowNormalSlot();
            else
                titleButtons_->windowMaxSlot();
        }
    }
    return QMainWindow::eventFilter(watched, event);
}

void MainWindow::changeEvent(QEvent* event) {
    if (event->type() == QEvent::WindowStateChange) titleButtons_->setMaximized(isMaximized());
    // Conversation outputs close their cards and menus when the window goes to the back.
    if (event->type() == QEvent::ActivationChange) {
        if (isActiveWindow())
            emit qx_output::Manager::instance()->mainWinActiveSignal();
        else
            emit qx_output::Manager::instance()->mainWinDeactiveSignal();
    }
    QMainWindow::changeEvent(event);
}

void MainWindow::closeEvent(QCloseEvent* event) {
    switch (closePolicy_.close()) {
        case ClosePolicy::Quit:
            event->accept();
            quitApplication();
            return;
        case ClosePolicy::HideToTray:
            event->ignore();
            hide();
            return;
        case ClosePolicy::Minimize:
            event->ignore();
            showMinimized();
            return;
    }
}

QString MainWindow::shellStateFile(const ConfigStore& store) { return ShellState::path(store); }

void MainWindow::resizeEvent(QResizeEvent* event) {
    QMainWindow::resizeEvent(event);
    if (isVisible() && !isMaximized() && !isMinimized()) saveSizeTimer_.start();
}

void MainWindow::hideEvent(QHideEvent* event) {
    QMainWindow::hideEvent(event);
    motion_->windowHidden(event);
}

void MainWindow::showEvent(QShowEvent* event) {
    QMainWindow::showEvent(event);
    motion_->windowShown(event);
}

// The window size has no place among the global settings, whose file is rewritten whole
// from a fixed set of fields; it is kept in a small file of its own beside them.
QString MainWindow::windowSizeFile(const ConfigStore& store) {
    return store.folderPath(ConfigStore::Config) + QStringLiteral("/MainWindow.ini");
}

void MainWindow::restoreWindowSize() {
    const ScreenMetrics& m = ScreenMetrics::instance();
    const QString file = windowSizeFile(store_);
    int w = ConfigStore::readValueAt(file, QLatin1String(kWidthKey)).toInt();
    int h = ConfigStore::readValueAt(file, QLatin1String(kHeightKey)).toInt();
    // A size that no longer fits the screen (or was never saved) falls back to the default.
    if (w < minimumWidth() || w > m.screenSize().width()) w = m.value(ScreenMetrics::MainWinWidth);
    if (h < minimumHeight() || h > m.screenSize().height())
        h = m.value(ScreenMetrics::MainWinHeight);
    resize(w, h);
}

void MainWindow::saveWindowSize() {
    saveSizeTimer_.stop();
    if (isMaximized()) return;
    QJsonObject o;
    o.insert(QLatin1String(kWidthKey), QString::number(width()));
    o.insert(QLatin1String(kHeightKey), QString::number(height()));
    quelix::configbase_t::writeFileAtomically(windowSizeFile(store_),
                                              quelix::configbase_t::toBytes(o));
}
