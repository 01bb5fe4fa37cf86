#pragma once

#include <QMainWindow>
#include <QPoint>
#include <QPointer>
#include <QTimer>

#include <functional>

#include "mainviewdelegate.h"

class AvatarPixmapCache;
class ConfigStore;
class ConversationView;
class FunctionListView;
class LoginView;
class OrgnizationView;
class QAbstractButton;
class QButtonGroup;
class QLabel;
class QFrame;
class QStackedWidget;
class TribeConverView;
class WinStyleButtons;
class WorkSitePage;
namespace screenshot {
class ScreenShotView;
}

// The client's one top-level window: a frameless frame with its own title strip, the
// left column (user, page buttons) and the page stack. It is also the hub the rest of the
// client reaches through MainViewDelegate.
class MainWindow : public QMainWindow, public MainViewDelegate {
    Q_OBJECT
public:
    explicit MainWindow(ConfigStore& store, QWidget* parent = nullptr);
    ~MainWindow() override;

    // MainViewDelegate
    void loginSuccess(const QString& ownId) override;
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
    void setCloseQuestion(std::function<bool()> question) { closeQuestion_ = std::move(question); }
    static QString shellStateFile(const ConfigStore& store);

    QStackedWidget* pages() const { return pages_; }
    // The conversation page, there from the first sign-in on.
    ConversationView* conversationView() const { return conversationView_; }
    // The organisation and tribe pages, there from the first sign-in on.
    OrgnizationView* orgView() const { return orgView_; }
    TribeConverView* tribeView() const { return tribeView_; }
    LoginView* loginView() const { return loginView_; }
    WinStyleButtons* titleButtons() const { return titleButtons_; }
    WorkSitePage* workSitePage() const { return workSite_; }
    QTimer* shakeTimer() { return &shakeTimer_; }
    // The capture overlay while one is open.
    screenshot::ScreenShotView* screenShot() const;
    // A window hidden for a capture gets this long to leave the screen before the grab.
    static constexpr int kHideSettleMs = 250;
    int shakeCounter() const { return shakeCounter_; }

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
    QWidget* buildLeftColumn();
    QWidget* buildTitleStrip();
    void buildPages();
    QAbstractButton* addPageButton(const QString& icon, const QString& tip, int page);
    void setPageButtonsEnabled(bool enabled);
    void restoreWindowSize();
    void saveWindowSize();
    void openWorkSite();
    void showOwnUser();
    // event: a TribeTips::Event; an empty user is the user.
    void tribeTip(const QString& tribeId, const QString& userId, int event);
    void openScreenshot();
    void buildDirectoryPages();
    // Sends a colleague's card into a conversation the user picks, then shows it there.
    void shareColleague(const QString& userId);

    ConfigStore& store_;
    QFrame* frame_ = nullptr;
    FunctionListView* functionList_ = nullptr;
    WinStyleButtons* titleButtons_ = nullptr;
    WorkSitePage* workSite_ = nullptr;
    QWidget* titleStrip_ = nullptr;
    QWidget* leftColumn_ = nullptr;
    QStackedWidget* pages_ = nullptr;
    QButtonGroup* pageButtons_ = nullptr;
    QLabel* chatBadge_ = nullptr;  // unread count on the chat button
    ConversationView* conversationView_ = nullptr;
    OrgnizationView* orgView_ = nullptr;
    TribeConverView* tribeView_ = nullptr;
    AvatarPixmapCache* avatarCache_ = nullptr;
    LoginView* loginView_ = nullptr;
    QPointer<screenshot::ScreenShotView> shot_;
    bool shotPending_ = false;

    // Shake: steps per shake, offset in pixels, interval in milliseconds.
    QTimer shakeTimer_;
    int shakeCounter_;
    const int shakeSteps_;
    const int shakeAmplitude_;
    const int shakeInterval_;
    QPoint shakeOrigin_;
    // Where the window was when it went to the tray (its frame's top-left, as pos()).
    QPoint hiddenAt_;
    bool hasHiddenAt_ = false;

    QTimer saveSizeTimer_;
    bool dragging_ = false;
    QPoint dragOffset_;

    bool startAutoLogin_ = true;
    bool startKicked_ = false;
    bool online_ = false;
    bool trayAvailable_ = false;
    QString ownId_;
    std::function<void()> flasher_;
    std::function<bool()> closeQuestion_;
};
