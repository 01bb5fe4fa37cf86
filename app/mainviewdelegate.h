#pragma once

#include <QString>

#include "conversationrecord.h"

// How start-up, the IM core, the conversation views and the tray reach the main window
// without knowing its class. Every operation has an empty default, so an owner implements
// only what it needs. The order is fixed: callers built against one order must keep
// reaching the same operations (the start entry is the 25th, the tray toggles the 15th,
// the four tribe events are consecutive).
class MainViewDelegate {
public:
    // Pages of the main window, for showPage/currentPage.
    enum Page {
        LoginPage = 0,
        ChatPage,
        OrgPage,
        TribePage,
        WorkCirclePage,
        SettingPage,
        PageCount
    };

    virtual void loginSuccess(const QString& ownId) { (void)ownId; }                  // 0
    virtual void loginFailed(const QString& text) { (void)text; }                     // 1
    virtual void kicked(const QString& text) { (void)text; }                          // 2
    virtual void setOnline(bool online) { (void)online; }                             // 3
    virtual void newMessage(const ConversationRecord& record, const QString& text) {  // 4
        (void)record;
        (void)text;
    }
    virtual void talkListPreview(const QString& id, const QString& preview) {  // 5
        (void)id;
        (void)preview;
    }
    virtual void newMessageMark(const QString& id, int count) {  // 6
        (void)id;
        (void)count;
    }
    virtual void newMessageAlert(const QString& id, const QString& name, int count) {  // 7
        (void)id;
        (void)name;
        (void)count;
    }
    virtual void totalUnread(int count) { (void)count; }                 // 8
    virtual void startScreenshot() {}                                    // 9
    virtual void showMainWindow() {}                                     // 10
    virtual void hideMainWindow() {}                                     // 11
    virtual bool isMainWindowActive() const { return false; }            // 12
    virtual QString currentConversationId() const { return QString(); }  // 13
    virtual void trayToggleChanged(int side, bool value, int number) {   // 14
        (void)side;
        (void)value;
        (void)number;
    }
    virtual void openConversation(const QString& id) { (void)id; }        // 15
    virtual void shakeWindow() {}                                         // 16
    virtual void setTrayAvailable(bool available) { (void)available; }    // 17
    virtual void updateUserIcon(const QString& userId) { (void)userId; }  // 18
    virtual void userOnlineChanged(const QString& userId, bool online) {  // 19
        (void)userId;
        (void)online;
    }
    virtual void tribeDismissed(const QString& tribeId) { (void)tribeId; }         // 20
    virtual void tribeMemberQuit(const QString& tribeId, const QString& userId) {  // 21
        (void)tribeId;
        (void)userId;
    }
    virtual void tribeMemberJoined(const QString& tribeId, const QString& userId) {  // 22
        (void)tribeId;
        (void)userId;
    }
    virtual void tribeMemberKicked(const QString& tribeId, const QString& userId) {  // 23
        (void)tribeId;
        (void)userId;
    }
    virtual void start(bool autoLogin, bool kicked) {  // 24
        (void)autoLogin;
        (void)kicked;
    }
    virtual void logout() {}                            // 25
    virtual void showPage(int page) { (void)page; }     // 26
    virtual int currentPage() const { return 0; }       // 27
    virtual int unreadCount(const QString& id) const {  // 28
        (void)id;
        return 0;
    }
    virtual void ignoreAllMessages() {}               // 29
    virtual bool quitApplication() { return false; }  // 30
    // A project's task page should open (the address carries the project).
    virtual void openTaskPage(const QString& url) { (void)url; }  // 31
    // The IM sign-in of this user has begun: pages that do not need it may be built now,
    // unseen, while it runs; loginSuccess() shows them.
    virtual void prepareFor(const QString& ownId) { (void)ownId; }  // 32

    // The process-wide delegate, set by start-up once the main window exists.
    static MainViewDelegate* instance();
    static void setInstance(MainViewDelegate* delegate);

protected:
    // Never deleted through this interface: the main window lives until the process ends.
    ~MainViewDelegate() = default;
};
