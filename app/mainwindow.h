#pragma once

#include <QMainWindow>
#include <QTimer>

#include <functional>

#include "closepolicy.h"
#include "mainviewdelegate.h"
#include "screenshotlauncher.h"
#include "windowmotion.h"

class AvatarPixmapCache;
class ConfigStore;
class ConversationView;
class LoginView;
class OrgnizationView;
class QStackedWidget;
class TribeConverView;
class WinStyleButtons;
class WindowChrome;
class WorkSitePage;
namespace screenshot {
class ScreenShotView;
}

// The client's one top-level window and the hub the rest of the client reaches through
// MainViewDelegate: it fills the pages once the user signs in and passes events on to them.
// Its frame, title strip, left column and page stack are WindowChrome's; how it moves is
// WindowMotion's, what closing it does ClosePolicy's, starting a capture
// ScreenshotLauncher's.
class MainWindow : public QMainWindow, public MainViewDelegate {
    Q_OBJECT
public:
    explicit MainWindow(ConfigStore& store, QWidget* parent = nullptr);
    ~MainWindow() override;

    // MainViewDelegate
    void loginSuccess(const QString& ownId) override;
    void prepareFor(const QString& ownId) override;
    void loginFailed(const QString& text) override;
    void kicked(const QString& text) override;
    void setOnline(bool online) override;
    void newMessage(const ConversationRecord& record, const QString& text) override;
    void talkListPreview(const QString& id, const QString& preview) override;
    void newMessageMark(const QString& id, int count) override;
    void totalUnread(int count) override;
    void startScreenshot() override;
    void newMessageAlert(const QString& id, const QString& name, int count) override;
    void trayToggleChanged(int side, bool value, int number) override;
    void showMainWindow() override;
    void hideMainWindow() override;
    bool isMainWindowActive() const override;
    QString currentConversationId() const override;
    void openConversation(const QString& id) override;
    void shakeWindow() override;
    void setTrayAvailable(bool available) override;
    void updateUserIcon(const QString& userId) override;
    void start(bool autoLogin, bool kicked) override;
    void logout() override;
    void showPage(int page) override;
    int currentPage() const override;
    int unreadCount(const QString& id) const override;
    void ignoreAllMessages() override;
    bool quitApplication() override;
    void tribeDismissed(const QString& tribeId) override;
    void tribeMemberQuit(const QString& tribeId, const QString& userId) override;
    void tribeMemberJoined(const QString& tribeId, const QString& userId) override;
    void tribeMemberKicked(const QString& tribeId, const QString& userId) override;
    void userOnlineChanged(const QString& userId, bool online) override;
    void openTaskPage(const QString& url) override;

    // The flags of the last start(), kept for the login view.
    bool startAutoLogin() const { return startAutoLogin_; }
    bool startKicked() const { return startKicked_; }
    bool isOnline() const { return online_; }
    QString ownId() const { return ownId_; }

    // How the window asks for attention; the task-bar flash by default. Tests count calls.
    void setFlasher(std::function<void()> flasher) { flasher_ = std::move(flasher); }
    // Asked once when closing the window quits the client: true to quit, false to keep it
    // in the tray from then on. A message box by default; tests answer themselves.
    void setCloseQuestion(std::function<bool()> question) {
        closePolicy_.setQuestion(std::move(question));
    }
    static QString shellStateFile(const ConfigStore& store);

    QStackedWidget* pages() const { return pages_; }
    // The conversation page, there from the first sign-in on.
    ConversationView* conversationView() const { return conversationView_; }
    // The organisation and tribe pages, there from the first sign-in on.
    OrgnizationView* orgView() const { return orgView_; }
    TribeConverView* tribeView() const { return tribeView_; }
    LoginView* loginView() const { return loginView_; }
    WinStyleButtons* titleButtons() const { return titleButtons_; }
    WorkSitePage* workSitePage() const;
    QTimer* shakeTimer() { return motion_->shakeTimer(); }
    // The capture overlay while one is open.
    screenshot::ScreenShotView* screenShot() const;
    // A window hidden for a capture gets this long to leave the screen before the grab.
    static constexpr int kHideSettleMs = ScreenshotLauncher::kHideSettleMs;
    int shakeCounter() const { return motion_->shakeCounter(); }

    static QString windowSizeFile(const ConfigStore& store);

signals:
    void startSignal(bool autoLogin, bool kicked);
    void loginSuccessSignal(const QString& ownId);
    void loginFailedSignal(const QString& text);
    void kickedSignal(const QString& text);
    void onlineChangedSignal(bool online);
    // Towards the conversation view: a message to show, and the talk-list update.
    void showMessageSignal(const QString& name, const QString& text);
    void talkListUpdateSignal(const ConversationRecord& record, const QString& text);
    void feedBackSignal();
    // The conversation page exists (after the first sign-in).
    void conversationViewCreated(ConversationView* view);
    void tribeViewCreated(TribeConverView* view);
    // A project's task page should open in the sidebar.
    void openTaskPageSignal(const QString& url);
    // Towards the tray: a conversation's unread count rose, the total changed, and a
    // settings-side alert toggle changed (number 0 pop-up, 1 blinking, 2 sound).
    void newMessageAlertSignal(const QString& id, const QString& name, int count);
    void totalUnreadSignal(int count);
    void trayToggleSignal(int number, bool value);

public slots:
    void vibrationWindowTimerOut();
    void funcListDbclickSlot();
    void chatButtonClcked();
    void allMemberTreeButtonClcked();
    void tribeChatButtonClcked();
    void worksycleButtonClcked();
    void setButtonClcked();
    void feedBackSlot();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void changeEvent(QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void showEvent(QShowEvent* event) override;

private:
    // Builds the pages once and fills them for the user.
    void fillPages(const QString& ownId);
    void restoreWindowSize();
    void saveWindowSize();
    void openWorkSite();
    void showOwnUser();
    // event: a TribeTips::Event; an empty user is the user.
    void tribeTip(const QString& tribeId, const QString& userId, int event);
    void buildDirectoryPages();
    // Sends a colleague's card into a conversation the user picks, then shows it there.
    void shareColleague(const QString& userId);

    ConfigStore& store_;
    WindowChrome* chrome_ = nullptr;
    // The chrome's page stack and title buttons.
    QStackedWidget* pages_ = nullptr;
    WinStyleButtons* titleButtons_ = nullptr;
    ConversationView* conversationView_ = nullptr;
    OrgnizationView* orgView_ = nullptr;
    TribeConverView* tribeView_ = nullptr;
    AvatarPixmapCache* avatarCache_ = nullptr;
    LoginView* loginView_ = nullptr;
    WindowMotion* motion_;
    ClosePolicy closePolicy_;
    ScreenshotLauncher* shots_;

    QTimer saveSizeTimer_;

    bool startAutoLogin_ = true;
    bool startKicked_ = false;
    bool online_ = false;
    QString ownId_;
    QString preparedFor_;  // pages built and filled for this user, not shown yet
    std::function<void()> flasher_;
};
