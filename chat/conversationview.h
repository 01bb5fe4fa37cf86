#pragma once

#include <QAbstractNativeEventFilter>
#include <QMap>
#include <QMutex>
#include <QSplitter>
#include <QTimer>

#include <functional>

#include "talklistledger.h"

class ChatListItemWidget;
class ColleageNameSearchEdit;
class ConversationContentView;
class QLabel;
class QListWidget;
class QListWidgetItem;
class QStackedWidget;
namespace screenshot {
class ScreenShotView;
}

// The conversation area: the talk list (recent conversations, newest activity first,
// with unread badges) beside a stack of conversation pages. It also shows the
// reconnecting tip and owns the screenshot hot key.
class ConversationView : public QSplitter, public QAbstractNativeEventFilter {
    Q_OBJECT
public:
    static constexpr int kHotKeyId = 1;

    explicit ConversationView(QWidget* parent = nullptr);
    ~ConversationView() override;

    // A message arrived (count > 0), or the user opens the conversation (count 0).
    // `id` is taken by value: moving rows raises alerts whose handlers may drop the very
    // record a caller's reference points into (the tray's unread card, for one).
    void showConversation(QString id, int count);
    // Rows from the saved talk list, with nothing unread.
    void loadTalkList();
    // Adds the saved rows that could not be named when the list was loaded (tribes arrive
    // with the project list, after the directory), each where the saved order puts it.
    void restoreTalkList();
    // What the user had not seen when the client last ran: the rows come first, newest
    // activity on top, with their counts, and nothing alerts again. Called in order of
    // activity, oldest first; applyUnseen() then shows them all at once (rows that cannot
    // be named yet wait for the tribes).
    void restoreUnseen(const QString& id, int count);
    void applyUnseen();
    // The rows top to bottom as "id:unread".
    QStringList talkListState() const;
    // The page of a conversation, created on first use.
    ConversationContentView* page(const QString& id);
    // The page of a conversation the user has opened in this session, or null. A page never
    // opened shows its latest messages from the store when it first is, so live messages
    // need not be laid out for it before.
    ConversationContentView* openedPage(const QString& id);
    void setOnline(bool online);
    // A tribe's membership changed: the tip goes into its page, and the tribe comes to the
    // top of the talk list when the user is the one concerned.
    void showTribeTip(const QString& tribeId, const QString& text, bool concernsUser);

    QString currentConversationId() const;
    int rowOf(const QString& id) const;
    int unreadCount(const QString& id) const;
    int totalUnread() const;
    QListWidget* talkList() const { return talkList_; }
    QStackedWidget* pages() const { return stack_; }
    QLabel* netTip() const { return netTip_; }
    bool hotKeyRegistered() const { return hotKeyRegistered_; }
    // Brings the window back when a capture ends, and takes a finished one into the
    // open conversation's input.
    void attachScreenShot(screenshot::ScreenShotView* shot);

    // Where a shared card goes: given the recent conversations (id, name) and the shared
    // colleague, returns the chosen conversation id, empty when the user cancels. A dialog
    // by default; tests answer themselves.
    using ShareQuestion = std::function<QString(const QVector<QPair<QString, QString>>& recent,
                                                const QString& userId)>;
    void setShareQuestion(ShareQuestion ask) { askShare_ = std::move(ask); }
    // Sends a colleague's card into a conversation the user chooses. Returns the chosen
    // conversation, empty when nothing was sent.
    QString shareColleague(const QString& userId);
    // A colleague came on line or went off: their row's picture follows.
    void setUserOnline(const QString& userId, bool online);

    bool nativeEventFilter(const QByteArray& eventType, void* message, long* result) override;

signals:
    // A new page exists: the IM core and the output attach to it.
    void pageCreated(ConversationContentView* page);
    // The user opened a conversation for the first time since start.
    void pageOpenedFirstTime(ConversationContentView* page);
    // The user has the conversation in front of it: what waited there counts as seen.
    void conversationSeen(const QString& id);

public slots:
    void showSearchList(QListWidget* list);
    void setCurrentList();
    void currentRowChangedSlot(int row);
    void selectedOnSearchList(const QString& id);
    void netTipTimeout();
    void chatViewActive();
    void deleteMemberFromMemberList(QString id);
    // Mutes or unmutes a conversation: kept in the mute list at once, marked on its row.
    // A muted conversation still counts its unread messages, without sound, pop-up or
    // blinking.
    void setMuted(const QString& id, bool muted);
    void UpdateUserIcon(const QString& userId, const QString& path);
    void conversationViewScreenShots(bool isVisible);
    void showWinSlot();
    void screenShortFinished();
    void ignoreAllMsgsSlot();

private:
    QString displayName(const QString& id) const;
    ChatListItemWidget* rowWidget(int row) const;
    QString pageTitle(const QString& id) const;
    // With `alert`, a row that has unread messages raises the new-message alert.
    void addRow(const QString& id, const QString& name, int count, int at = 0, bool alert = true);
    // Puts the row of `id` first with `count` unread, without alerting; false for a
    // conversation that cannot be named yet.
    bool raiseQuietly(const QString& id, int count);
    void markSeen(const QString& id);
    void openPage(const QString& id);
    void alertUnlessMuted(const QString& id, const QString& name, int count);
    void reportTotal();

    ColleageNameSearchEdit* search_;
    QWidget* listArea_;
    QListWidget* talkList_;
    QListWidget* searchList_ = nullptr;
    QStackedWidget* stack_;
    QLabel* netTip_;
    QTimer netTimer_;
    QMap<QString, ConversationContentView*> pageMap_;
    // Unseen counts from the last session, in order of activity, waiting for rows that
    // cannot be named yet (tribes before the projects are loaded).
    QVector<QPair<QString, int>> pendingUnseen_;
    TalkListLedger ledger_;
    QMutex mutex_;  // guards the page map; pages are looked up from slots of several views
    bool hotKeyRegistered_ = false;
    ShareQuestion askShare_;
};
