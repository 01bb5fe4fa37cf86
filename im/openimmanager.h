#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <QThread>

#include <map>
#include <vector>

#include "alertcoalescer.h"
#include "base/ref_counted.h"
#include "basemsg.h"
#include "historyloader.h"
#include "loginuser.h"
#include "openim/download_media_result.h"
#include "openim/im_message.h"
#include "openim/im_tribe_id.h"
#include "openim/im_tribe_message.h"
#include "openim/im_user_id.h"
#include "openim/im_user_status.h"
#include "openim/login_params.h"
#include "openim/result_code.h"
#include "openim/xpush_params.h"
#include "prg/prg_string.h"
#include "unreadwatermark.h"

class DisplayBatcher;
class ImSession;
class MessageDelivery;
class MessageSender;
class Requester;
class TribeManager;
class UnreadFetcher;
class UnreadInbox;

// The client's one way to the IM SDK: it registers the SDK's callbacks and routes each to the
// part that deals with it (ImSession, UnreadInbox, DisplayBatcher, MessageDelivery,
// MessageSender, HistoryLoader, TribeManager). SDK callbacks arrive on the SDK's thread,
// bound to the On... members; those only log and hand the work to the GUI thread, where
// everything else runs. Bound callbacks hold a reference, so the manager outlives every one
// of them, and with it the parts it owns.
class OpenIMManager : public QObject, public base::RefCountedThreadSafe<OpenIMManager> {
    Q_OBJECT
public:
    // This client's application key, part of every IM identity it builds.
    static constexpr const char* kAppKey = "23015524";
    // The SDK's result for a refused account or secret.
    static constexpr int kWrongPassword = 8;

    static OpenIMManager* instance();
    OpenIMManager();

    // Host object, SDK root, resource folder and key, then every callback in its order.
    // False when the SDK root cannot be had (0x80004005); the client then runs without IM.
    bool init();
    bool isInitialised() const { return initialised_; }

    // Signs the IM session in with what the back end's log-in reply gave.
    void login(const LoginUser& user);
    void logout();
    // Back-end requests (unknown senders) go through the signed-in requester.
    void setRequester(Requester* requester);

    // Sends. An id is a colleague exactly when the directory knows it; any other id is a
    // tribe. A non-empty summary makes the content a custom message.
    void sendTextOrCustom(const QString& id, const QString& summary, const QString& content);
    void sendPicture(const QString& id, const QString& filePath);
    // The third kind: any other file, uploaded and offered to the peer as a download.
    void sendFile(const QString& id, const QString& filePath);

    // Reads a sender's unread messages now and shows those still new (see UnreadInbox).
    void updateUnreadMsg(const openim::IMUserID& user);
    // Formats one message for the views; history messages mark nothing as new.
    void showChatMsg(bool history, const openim::IMMessage& message);
    void showTribeChatMsg(bool history, const openim::IMTribeMessage& message);
    // Alerts of live messages shown within one slice go out once per conversation.
    AlertCoalescer& alerts();

    // The text the talk list shows for a message text.
    static QString previewOf(const QString& text);
    // The client's message record for an SDK message (conversation id: the peer).
    static BaseMsg::MMessage toMessage(const openim::IMMessage& m, const QString& ownId,
                                       bool history);
    // The same for a tribe's message (conversation id: the tribe).
    static BaseMsg::MMessage toTribeMessage(const openim::IMTribeMessage& m, const QString& ownId,
                                            bool history);

    // Dissolves (the owner) or leaves (any other member) the project of a tribe, after asking.
    void dissolveOrLeave(quint64 tribe);
    // The user has the conversation (a colleague's or a tribe's) in front of it.
    void markSeen(const QString& id);
    TribeManager* tribes() const { return tribes_; }

    bool msgReady() const;
    void setMsgReady(bool ready);
    // Writes a watermark that is waiting to be saved (at logout and exit).
    void flushWatermark() { watermark_.flush(); }
    const QList<openim::IMUserID>& pendingList() const;
    bool isLoggedIn() const;
    bool sessionTimerRunning() const;
    bool retryTimerRunning() const;
    bool presencePending() const;
    QString ownId() const;

    // SDK callbacks (SDK thread).
    void OnLoginStep(openim::LoginStep step);
    void OnLoginOk(openim::LoginOkParam param);
    void OnLoginFail(openim::LoginFailParam param);
    void OnKicked(openim::KickedParam param);
    void OnReLoginFail(openim::ReLoginFailParam param);
    void OnReLoginOk(openim::ReLoginOkParam param);
    void OnNetDisConnect(openim::NetDisConnectParam param);
    void OnLogouted(openim::LogoutedParam param);
    void OnIMNotifyMsgsOfSingle(openim::IMUserID sender);
    void OnDownloadMedia(openim::ResultCode result, openim::DownloadMediaResult media);
    void OnDownloadTribeMedia(openim::ResultCode result, openim::DownloadTribeMediaResult media);
    void OnPresence(openim::ResultCode result,
                    std::map<openim::IMUserID, openim::IMUserStatus> status);
    void OnSyncRegistered(prg::PrgStringT<wchar_t> address);
    void OnHistory(QString id, prg::PrgStringT<wchar_t> peer, openim::ResultCode result,
                   std::vector<openim::IMMessage> messages);
    void OnTribeHistory(QString id, prg::PrgStringT<wchar_t> tribe, openim::ResultCode result,
                        std::vector<openim::IMTribeMessage> messages);
    void OnSent(openim::IMMessage message, openim::ResultCode sent, openim::ResultCode uploaded);
    void OnTribeSent(openim::IMTribeMessage message, openim::ResultCode sent,
                     openim::ResultCode uploaded);
    void OnXPushStarted(openim::XPushStartOkParam param);
    void OnXPushKicked(openim::XPushKickedParam param);
    void OnXPushStoped(openim::XPushStopedParam param);
    void OnXPushError(openim::XPushErrorParam param);
    void OnXPushMsgs(std::vector<openim::XPushMsg> messages);
    void OnTribesLoaded();
    void OnTribeMemberJoined(openim::IMTribeID tribe, openim::IMUserID user);
    void OnTribeMemberQuit(openim::IMTribeID tribe, openim::IMUserID user);
    void OnTribeMemberKicked(openim::IMTribeID tribe, openim::IMUserID user);
    void OnTribeRoleChanged(openim::IMTribeID tribe, openim::IMUserID user, openim::IMUserID by);
    void OnTribeNameChanged(openim::IMTribeID tribe, prg::PrgStringT<wchar_t> name);
    void OnTribeNoticeChanged(openim::IMTribeID tribe, prg::PrgStringT<wchar_t> notice);
    void OnTribeDismissed(const openim::IMTribeID& tribe);
    void OnTribeInfoChanged(openim::IMTribeID tribe);
    void OnTribeNewMessage(openim::IMTribeID tribe);

signals:
    void signal_OnlineState(const QString& userId);
    // The connection to the IM server is up (true) or lost (false).
    void signal_Network(bool online);
    // The session signed in (true) or ended (false: logout, kick).
    void signal_Landed(bool landed);
    // Result of an IM log-in asked for by login(): 0, or the SDK's failure code.
    void loginResult(int code);
    // A message for the conversation views (history ones included).
    void chatMessage(const BaseMsg::MMessage& message);
    // A received picture or file reached the disk (or failed: empty path).
    void mediaDownloaded(quint64 msgId, const QString& localPath);
    // A message the user sent (already shown by chatMessage) did not go out.
    void sendFailed(const BaseMsg::MMessage& message, const QString& reason);
    // At sign-in, per conversation with messages the user had not seen when the client
    // last ran, oldest activity first.
    void unseenWaiting(const QString& id, int count);
    // After the last unseenWaiting of a sign-in.
    void unseenComplete();

public slots:
    void OnTimeout();
    void OnHttpGetOthersBack(const QString& userId);
    void sendCustemSlot(const QString& id, const QString& summary, const QString& content);
    // The newest messages of a conversation, for a page opened for the first time: starts
    // from the newest wherever an earlier history request left the cursor.
    void getLatestMsg(const QString& id);
    void getMoreMsg(const QString& id);
    // Sends again a text, picture, file or custom message that was not sent.
    void resend(const BaseMsg::MMessage& message);

private:
    friend class base::RefCountedThreadSafe<OpenIMManager>;
    ~OpenIMManager() override;

    // Badges first: what is shown after them counts on top.
    void announceUnseen();

    bool initialised_ = false;
    // Reads unread messages, one-to-one and tribe, off the GUI thread.
    QThread fetchThread_;
    UnreadFetcher* fetcher_;
    UnreadWatermark watermark_;
    ImSession* session_;
    MessageDelivery* delivery_;
    DisplayBatcher* display_;
    UnreadInbox* inbox_;
    MessageSender* sender_;
    HistoryLoader history_{this};
    TribeManager* tribes_ = nullptr;
};
