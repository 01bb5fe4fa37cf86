#include "mainwindow.h"

#include <QAction>
#include <QApplication>
#include <QButtonGroup>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QFrame>
#include <QHBoxLayout>
#include <QJsonObject>
#include <QLabel>
#include <QMessageBox>
#include <QMouseEvent>
#include <QPushButton>
#include <QStackedWidget>
#include <QUrl>
#include <QVBoxLayout>

#include "avatarmanager.h"
#include "avatarpixmapcache.h"
#include "configbase_t.h"
#include "configstore.h"
#include "conversationview.h"
#include "desktopgrabber.h"
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
#include "winstylebuttons.h"
#include "worksitepage.h"

namespace {
const char* const kWidthKey = "mainWinWidth";
const char* const kHeightKey = "mainWinHeight";
const char* const kFeedbackAddress = "support@quelix.work";

QWidget* placeholderPage(const QString& picture, const QString& text, QWidget* parent) {
    auto* page = new QWidget(parent);
    page->setObjectName(QStringLiteral("placeholderPage"));
    page->setStyleSheet(QStringLiteral("QWidget#placeholderPage{background-color:#fafafa;}"));
    auto* layout = new QVBoxLayout(page);
    layout->addStretch();
    if (!picture.isEmpty()) {
        auto* image = new QLabel(page);
        image->setPixmap(QPixmap(picture));
        image->setAlignment(Qt::AlignCenter);
        layout->addWidget(image);
    }
    auto* label = new QLabel(text, page);
    label->setAlignment(Qt::AlignCenter);
    label->setStyleSheet(QStringLiteral("QLabel{color:#9aa5b1;font-size:%1px;}")
                             .arg(ScreenMetrics::instance().value(ScreenMetrics::FontSizeNormal)));
    layout->addWidget(label);
    layout->addStretch();
    return page;
}
}  // namespace

MainWindow::MainWindow(ConfigStore& store, QWidget* parent)
    : QMainWindow(parent),
      store_(store),
      shakeCounter_(20),
      shakeSteps_(20),
      shakeAmplitude_(ScreenMetrics::instance().value(ScreenMetrics::ShakeAmplitude)),
      shakeInterval_(30) {
    const ScreenMetrics& m = ScreenMetrics::instance();
    setWindowFlags(Qt::FramelessWindowHint | Qt::Window);
    setWindowIcon(QIcon(QStringLiteral(":/resource/240x240.ico")));
    setWindowTitle(QStringLiteral("Quelix"));
    setMinimumSize(m.value(ScreenMetrics::MainWinMinWidth),
                   m.value(ScreenMetrics::MainWinMinHeight));

    frame_ = new QFrame(this);
    frame_->setStyleSheet(QStringLiteral(".QFrame{border:%1px solid gray;}")
                              .arg(m.value(ScreenMetrics::BorderWidth)));
    auto* outer = new QHBoxLayout(frame_);
    const int border = m.value(ScreenMetrics::BorderWidth);
    outer->setContentsMargins(border, border, border, border);
    outer->setSpacing(0);
    outer->addWidget(buildLeftColumn());

    auto* right = new QWidget(frame_);
    auto* rightLayout = new QVBoxLayout(right);
    rightLayout->setContentsMargins(0, 0, 0, 0);
    rightLayout->setSpacing(0);
    rightLayout->addWidget(buildTitleStrip());
    pages_ = new QStackedWidget(right);
    rightLayout->addWidget(pages_, 1);
    outer->addWidget(right, 1);
    setCentralWidget(frame_);
    buildPages();

    connect(functionList_, SIGNAL(funcListDbclickSignal()), this, SLOT(funcListDbclickSlot()));
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

    shakeTimer_.setInterval(shakeInterval_);
    connect(&shakeTimer_, SIGNAL(timeout()), this, SLOT(vibrationWindowTimerOut()));

    // Sizes are saved once the user stops resizing, not on every step of the drag.
    saveSizeTimer_.setSingleShot(true);
    saveSizeTimer_.setInterval(500);
    connect(&saveSizeTimer_, &QTimer::timeout, this, &MainWindow::saveWindowSize);

    flasher_ = [this] { platform::flashWindow(std::uintptr_t(winId())); };
    closeQuestion_ = [this] {
        return QMessageBox::question(
                   this, QStringLiteral("提示"),
                   QStringLiteral("关闭主窗口将退出 Quelix，之后不再收到新消息。\n"
                                  "确定退出吗？选择“否”则关闭时最小化到托盘。"),
                   QMessageBox::Yes | QMessageBox::No, QMessageBox::Yes) == QMessageBox::Yes;
    };
    connect(qApp, &QCoreApplication::aboutToQuit, this, &MainWindow::saveWindowSize);

    loginView_ = new LoginView;
    connect(loginView_, &LoginView::LoginSeccess, this, &MainWindow::showMainWindow);
    // Closing the log-in window before signing in ends the program.
    connect(loginView_, &LoginView::closeLogineView, this, [this] {
        if (ownId_.isEmpty()) quitApplication();
    });
    restoreWindowSize();
    setPageButtonsEnabled(false);
}

MainWindow::~MainWindow() {
    if (saveSizeTimer_.isActive()) saveWindowSize();
    delete loginView_;
}

QWidget* MainWindow::buildLeftColumn() {
    const ScreenMetrics& m = ScreenMetrics::instance();
    leftColumn_ = new QWidget(frame_);
    leftColumn_->setObjectName(QStringLiteral("leftColumn"));
    leftColumn_->setFixedWidth(m.value(ScreenMetrics::LeftColumnWidth));
    leftColumn_->setStyleSheet(QStringLiteral("QWidget#leftColumn{background-color:#243447;}"));
    leftColumn_->installEventFilter(this);

    auto* layout = new QVBoxLayout(leftColumn_);
    layout->setContentsMargins(0, 0, 0, 8);
    layout->setSpacing(6);
    functionList_ = new FunctionListView(leftColumn_);
    layout->addWidget(functionList_);

    pageButtons_ = new QButtonGroup(this);
    pageButtons_->setExclusive(true);
    const struct {
        const char* icon;
        QString tip;
        int page;
        const char* slot;
    } buttons[] = {
        {"chat", tr("Conversations"), ChatPage, SLOT(chatButtonClcked())},
        {"org", tr("Organization"), OrgPage, SLOT(allMemberTreeButtonClcked())},
        {"tribe", tr("Tribes"), TribePage, SLOT(tribeChatButtonClcked())},
        {"worksycle", tr("Work circle"), WorkCirclePage, SLOT(worksycleButtonClcked())},
        {"set", tr("Settings"), SettingPage, SLOT(setButtonClcked())},
    };
    for (const auto& b : buttons) {
        QAbstractButton* button = addPageButton(QLatin1String(b.icon), b.tip, b.page);
        connect(button, SIGNAL(pressed()), this, b.slot);
        if (b.page == ChatPage) {
            // The count of unread messages on the chat button, seen from every page.
            chatBadge_ = new QLabel(button);
            chatBadge_->setObjectName(QStringLiteral("chatBadge"));
            chatBadge_->setTextFormat(Qt::PlainText);
            chatBadge_->setAlignment(Qt::AlignCenter);
            chatBadge_->setStyleSheet(QStringLiteral(
                "QLabel#chatBadge{background-color:#f5455c;color:white;border-radius:8px;"
                "font-size:10px;padding:0 3px;}"));
            chatBadge_->setMinimumSize(16, 16);
            chatBadge_->hide();
        }
        // The settings button sits at the bottom of the column, apart from the pages.
        if (b.page == SettingPage) layout->addStretch();
        layout->addWidget(button, 0, Qt::AlignHCenter);
    }
    return leftColumn_;
}

QAbstractButton* MainWindow::addPageButton(const QString& icon, const QString& tip, int page) {
    const int size = ScreenMetrics::instance().value(ScreenMetrics::PageButtonSize);
    auto* button = new QPushButton(leftColumn_);
    button->setObjectName(icon + QStringLiteral("Button"));
    button->setCheckable(true);
    button->setFixedSize(size, size);
    button->setToolTip(tip);
    button->setFocusPolicy(Qt::NoFocus);
    button->setStyleSheet(
        QStringLiteral("QPushButton{image:url(:/resource/MainWindow/%1_normal.png);border:none;"
                       "border-radius:6px;background:transparent;padding:8px;}"
                       "QPushButton:hover{background-color:rgba(255,255,255,0.08);}"
                       "QPushButton:checked{image:url(:/resource/MainWindow/%1_checked.png);"
                       "background-color:#2d8cf0;}")
            .arg(icon));
    pageButtons_->addButton(button, page);
    return button;
}

QWidget* MainWindow::buildTitleStrip() {
    const ScreenMetrics& m = ScreenMetrics::instance();
    titleStrip_ = new QWidget(frame_);
    titleStrip_->setObjectName(QStringLiteral("titleStrip"));
    titleStrip_->setFixedHeight(m.value(ScreenMetrics::TitleHeight));
    titleStrip_->setStyleSheet(QStringLiteral("QWidget#titleStrip{background-color:#f5f7fa;}"));
    titleStrip_->installEventFilter(this);
    auto* layout = new QHBoxLayout(titleStrip_);
    layout->setContentsMargins(8, 0, 4, 0);
    layout->addStretch();
    titleButtons_ = new WinStyleButtons(titleStrip_);
    layout->addWidget(titleButtons_);
    return titleStrip_;
}

void MainWindow::buildPages() {
    // The login, conversation, organisation and tribe views take these places as they
    // are built; until then each page says what will be there.
    pages_->insertWidget(LoginPage, placeholderPage(QStringLiteral(":/resource/app_icon.png"),
                                                    tr("Sign in to start chatting."), pages_));
    pages_->insertWidget(ChatPage,
                         placeholderPage(QStringLiteral(":/resource/Chat/default_chat.png"),
                                         QStringLiteral("请选择联系人，开始聊天"), pages_));
    pages_->insertWidget(
        OrgPage,
        placeholderPage(QStringLiteral(":/resource/style/images/iconfont-zuzhijiagou.png"),
                        tr("The organisation appears here once you are signed in."), pages_));
    pages_->insertWidget(
        TribePage,
        placeholderPage(QStringLiteral(":/resource/Chat/tribeIcon_avatar.png"),
                        tr("Your project tribes appear here once you are signed in."), pages_));
    // The company's home page in place; the web engine loads when the page first shows.
    workSite_ = new WorkSitePage(pages_);
    connect(workSite_, &WorkSitePage::openInBrowser, this, &MainWindow::openWorkSite);
    pages_->insertWidget(WorkCirclePage, workSite_);
    pages_->insertWidget(
        SettingPage,
        placeholderPage(QString(), tr("Settings open here once you are signed in."), pages_));
    pages_->setCurrentIndex(LoginPage);
}

void MainWindow::setPageButtonsEnabled(bool enabled) {
    for (QAbstractButton* b : pageButtons_->buttons()) b->setEnabled(enabled);
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

void MainWindow::loginSuccess(const QString& ownId) {
    ownId_ = ownId;
    if (!conversationView_) {
        // Built once the user is known: the talk list is theirs.
        conversationView_ = new ConversationView(pages_);
        QWidget* placeholder = pages_->widget(ChatPage);
        pages_->removeWidget(placeholder);
        placeholder->deleteLater();
        pages_->insertWidget(ChatPage, conversationView_);
        conversationView_->setOnline(online_);
        emit conversationViewCreated(conversationView_);
        buildDirectoryPages();
    }
    // The directory was loaded for this sign-in; the tribes are on their way.
    orgView_->reload();
    tribeView_->setLoadingTribes(true);
    conversationView_->loadTalkList();
    showOwnUser();
    setPageButtonsEnabled(true);
    showPage(ChatPage);
    emit loginSuccessSignal(ownId);
}

void MainWindow::loginFailed(const QString& text) { emit loginFailedSignal(text); }

void MainWindow::buildDirectoryPages() {
    avatarCache_ = new AvatarPixmapCache(nullptr, nullptr, this);
    orgView_ = new OrgnizationView(pages_, nullptr, avatarCache_);
    tribeView_ = new TribeConverView(pages_, nullptr, avatarCache_);
    for (QPair<int, QWidget*> page :
         {qMakePair(int(OrgPage), static_cast<QWidget*>(orgView_)),
          qMakePair(int(TribePage), static_cast<QWidget*>(tribeView_))}) {
        QWidget* placeholder = pages_->widget(page.first);
        pages_->removeWidget(placeholder);
        placeholder->deleteLater();
        pages_->insertWidget(page.first, page.second);
    }
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
    functionList_->setUser(name, QPixmap(avatars.displayPath(ownId_, true)));
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
    if (chatBadge_) {
        chatBadge_->setText(count > 99 ? QStringLiteral("99+") : QString::number(count));
        chatBadge_->adjustSize();
        const QWidget* button = chatBadge_->parentWidget();
        chatBadge_->move(button->width() - chatBadge_->width(), 0);
        chatBadge_->setVisible(count > 0);
    }
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

screenshot::ScreenShotView* MainWindow::screenShot() const { return shot_.data(); }

void MainWindow::startScreenshot() {
    if (shot_) {  // the hot key again while capturing: keep the capture under way
        shot_->raise();
        shot_->activateWindow();
        return;
    }
    if (shotPending_) return;
    shotPending_ = true;
    // Hidden a moment ago, the window may still be on screen until the desktop repaints.
    QTimer::singleShot(isVisible() ? 0 : kHideSettleMs, this, &MainWindow::openScreenshot);
}

void MainWindow::openScreenshot() {
    shotPending_ = false;
    const screenshot::DesktopImage desktop = screenshot::DesktopGrabber::grab();
    if (!desktop.isValid()) {
        // Never a black overlay: the user is told why, and the window comes back.
        QMessageBox::information(this, QStringLiteral("提示"), desktop.refusal);
        if (conversationView_) showMainWindow();
        return;
    }
    shot_ = new screenshot::ScreenShotView(desktop);
    shot_->setAttribute(Qt::WA_DeleteOnClose);
    if (conversationView_) conversationView_->attachScreenShot(shot_);
    shot_->showOverlay();
}

bool MainWindow::isMainWindowActive() const { return isActiveWindow(); }

void MainWindow::shakeWindow() {
    if (shakeTimer_.isActive()) return;
    shakeOrigin_ = pos();
    shakeCounter_ = shakeSteps_;
    shakeTimer_.start();
}

void MainWindow::setTrayAvailable(bool available) { trayAvailable_ = available; }

void MainWindow::logout() {
    ownId_.clear();
    setPageButtonsEnabled(false);
    showPage(LoginPage);
}

void MainWindow::showPage(int page) {
    if (page < 0 || page >= pages_->count()) return;
    pages_->setCurrentIndex(page);
    if (QAbstractButton* b = pageButtons_->button(page)) b->setChecked(true);
}

int MainWindow::currentPage() const { return pages_->currentIndex(); }

bool MainWindow::quitApplication() {
    saveWindowSize();
    QCoreApplication::quit();
    return true;
}

// --- slots ------------------------------------------------------------------------------

void MainWindow::vibrationWindowTimerOut() {
    if (shakeCounter_ <= 0) {
        shakeTimer_.stop();
        move(shakeOrigin_);
        shakeCounter_ = shakeSteps_;
        return;
    }
    // Round the four sides, with the swing fading as the counter runs down.
    const int a = qMax(1, shakeAmplitude_ * shakeCounter_ / shakeSteps_);
    static const QPoint kSides[4] = {QPoint(1, 0), QPoint(0, 1), QPoint(-1, 0), QPoint(0, -1)};
    move(shakeOrigin_ + kSides[shakeCounter_ % 4] * a);
    --shakeCounter_;
}

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
    // The frameless window is dragged by its title strip and its left column.
    if (watched == titleStrip_ || watched == leftColumn_) {
        switch (event->type()) {
            case QEvent::MouseButtonPress: {
                emit qx_output::Manager::instance()->mainWinPressedSignal();
                auto* e = static_cast<QMouseEvent*>(event);
                if (e->button() == Qt::LeftButton && !isMaximized()) {
                    dragging_ = true;
                    dragOffset_ = e->globalPos() - frameGeometry().topLeft();
                }
                break;
            }
            case QEvent::MouseMove: {
                auto* e = static_cast<QMouseEvent*>(event);
                if (dragging_ && (e->buttons() & Qt::LeftButton))
                    move(e->globalPos() - dragOffset_);
                break;
            }
            case QEvent::MouseButtonRelease:
                dragging_ = false;
                break;
            case QEvent::MouseButtonDblClick:
                if (watched == titleStrip_) {
                    if (isMaximized())
                        titleButtons_->windowNormalSlot();
                    else
                        titleButtons_->windowMaxSlot();
                }
                break;
            default:
                break;
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
    quelix::settings_t& settings = store_.settings();
    if (settings.closeQuit()) {
        // Quitting ends the alerts too, so the first time it is asked; the answer is
        // remembered either way ("no" keeps the client in the tray from then on).
        if (ShellState::value(store_, QStringLiteral("CloseAsked")) != QLatin1String("true")) {
            const bool quit = closeQuestion_ ? closeQuestion_() : true;
            ShellState::setValue(store_, QStringLiteral("CloseAsked"), QStringLiteral("true"));
            if (!quit) {
                settings.setCloseQuit(false);
                settings.save();
            }
        }
    }
    if (!settings.closeQuit()) {
        event->ignore();
        // Without a tray icon a hidden window could never be brought back.
        if (trayAvailable_)
            hide();
        else
            showMinimized();
        return;
    }
    event->accept();
    quitApplication();
}

QString MainWindow::shellStateFile(const ConfigStore& store) { return ShellState::path(store); }

void MainWindow::resizeEvent(QResizeEvent* event) {
    QMainWindow::resizeEvent(event);
    if (isVisible() && !isMaximized() && !isMinimized()) saveSizeTimer_.start();
}

// A frameless window that is hidden and mapped again is placed anew by the window
// system, which may put it where it would put a decorated one (a title bar's height
// higher or lower). The position it had when hidden is the one it comes back to.
void MainWindow::hideEvent(QHideEvent* event) {
    QMainWindow::hideEvent(event);
    if (event->spontaneous() || isMinimized() || isMaximized()) return;
    hiddenAt_ = pos();
    hasHiddenAt_ = true;
}

void MainWindow::showEvent(QShowEvent* event) {
    QMainWindow::showEvent(event);
    if (event->spontaneous() || !hasHiddenAt_) return;
    hasHiddenAt_ = false;
    if (isMaximized() || isMinimized()) return;
    const QPoint at = hiddenAt_;
    if (pos() != at) move(at);
    // The window system answers the mapping afterwards and may place it once more.
    QTimer::singleShot(0, this, [this, at] {
        if (isVisible() && !isMaximized() && !isMinimized() && !dragging_ && pos() != at) move(at);
    });
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
