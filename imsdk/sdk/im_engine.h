#pragma once

#include <QObject>
#include <QThread>
#include <functional>
#include <map>
#include <vector>

#include <QXmppClient.h>

#include "base/callback.h"
#include "openim/download_media_result.h"
#include "openim/im_message.h"
#include "openim/im_user_id.h"
#include "openim/im_user_status.h"
#include "openim/login_params.h"
#include "openim/result_code.h"
#include "openim/xpush_params.h"
#include "store/message_store.h"

class ArchiveCatchUp;
class ArchiveExtension;
class EngineSignIn;
class HistoryPager;
class IncomingMessages;
class MediaDownloads;
class MediaTransfer;
class OutgoingMessages;
class PresenceRequests;
class QXmppCarbonManager;
class RoomHealth;
class DeliveryReceipts;
class StanzaRouter;
class StreamAcks;
class StoreBatcher;
class TribeRooms;
class UploadSlots;

// The SDK's session and the coordinator of its parts: one XMPP client, the account's
// message store and the media transfers, all on the SDK thread. Every callback runs on
// that thread. The services call in through post() and call(), from any thread.
//
// Each concern is a part of its own beside the engine: the sign-in (EngineSignIn), where
// received stanzas go (StanzaRouter), one-to-one messages received (IncomingMessages) and
// sent (OutgoingMessages, with UploadSlots), batched commits (StoreBatcher), the catch-up
// on the account's archive (ArchiveCatchUp), history pages (HistoryPager), received files
// (MediaDownloads) and the heartbeat (PresenceRequests).
class ImEngine : public QObject {
    Q_OBJECT
public:
    // What the client registered through the services.
    struct Callbacks {
        base::Callback<void(openim::LoginStep)> loginStep;
        base::Callback<void(openim::LoginOkParam)> loginOk;
        base::Callback<void(openim::KickedParam)> kicked;
        base::Callback<void(openim::LoginFailParam)> loginFail;
        base::Callback<void(openim::ReLoginFailParam)> reloginFail;
        base::Callback<void(openim::ReLoginOkParam)> reloginOk;
        base::Callback<void(openim::NetDisConnectParam)> disconnected;
        base::Callback<void(openim::LogoutedParam)> logouted;
        base::Callback<void(openim::IMUserID)> newMessage;
        base::Callback<void(openim::ResultCode, openim::DownloadMediaResult)> download;
        base::Callback<void(openim::XPushStartOkParam)> pushStarted;
        base::Callback<void(openim::XPushKickedParam)> pushKicked;
        base::Callback<void(openim::XPushStopedParam)> pushStopped;
        base::Callback<void(openim::XPushErrorParam)> pushError;
        base::Callback<void(std::vector<openim::XPushMsg>)> pushMsgs;
    };
    using SendCallback =
        base::Callback<void(openim::IMMessage, openim::ResultCode, openim::ResultCode)>;
    using HistoryCallback = base::Callback<void(prg::PrgStringT<wchar_t>, openim::ResultCode,
                                                std::vector<openim::IMMessage>)>;
    // How a send ended, with the message as stored: (message, send result, upload result).
    using Sent = std::function<void(const StoredMessage&, openim::ResultCode, openim::ResultCode)>;
    using PresenceCallback =
        base::Callback<void(openim::ResultCode, std::map<openim::IMUserID, openim::IMUserStatus>)>;

    explicit ImEngine(QObject* parent = nullptr);
    ~ImEngine() override;

    // Runs `task` on the SDK thread, later.
    void post(std::function<void()> task);
    // Runs `task` on the SDK thread and waits for its result.
    template <class F>
    auto call(F task) -> decltype(task()) {
        if (QThread::currentThread() == thread()) return task();
        decltype(task()) result{};
        QMetaObject::invokeMethod(
            this, [&] { result = task(); }, Qt::BlockingQueuedConnection);
        return result;
    }

    // Everything below runs on the SDK thread.
    Callbacks& callbacks() { return callbacks_; }
    void setAppKey(const QString& appKey) { appKey_ = appKey; }
    const QString& appKey() const { return appKey_; }

    void login(const openim::LoginParam& param, const QString& dataFolder);
    void relogin();
    void logout();
    bool isOnline() const;
    openim::IMUserID loginUser() const;

    void requestPresence(const PresenceCallback& done);
    void registerSync(int mode, const base::Callback<void(prg::PrgStringT<wchar_t>)>& done);

    // `draft` carries kind, content, summary and, for media, the size fields; `file` is
    // the picture or file to upload.
    void send(const QString& peer, StoredMessage draft, const QString& file,
              const SendCallback& done);
    // The same for any peer key, a tribe's included.
    void send(const QString& peer, StoredMessage draft, const QString& file, Sent done);
    int unreadCount(const QString& peer);
    std::vector<openim::IMMessage> unread(const QString& peer);
    QStringList unreadPeers();
    void markRead(const QString& peer);
    void markRead(const QList<quint64>& ids);
    QList<MessageStore::Unseen> unseen();
    bool markSeen(const QString& peer);
    void history(const QString& peer, int count, const HistoryCallback& done);
    void resetHistory(const QString& peer);
    void downloadMedia(quint64 msgId);

    openim::IMMessage toIM(const StoredMessage& m) const;
    openim::IMUserID userId(const QString& account) const;

    // For the tribe rooms and the parts beside the engine (SDK thread).
    TribeRooms* tribes() { return tribes_; }
    MessageStore& messageStore() { return store_; }
    QXmppClient* xmppClient() { return client_; }
    // The current client's stream-management acknowledgements.
    StreamAcks* streamAcks() { return acks_; }
    RoomHealth* roomHealth() { return roomHealth_; }
    DeliveryReceipts* receipts() { return receipts_; }
    // A room refused one of our messages because it no longer had us: it goes again once
    // the room has let us back in.
    void roomRefused(const QString& originId);
    // We join a tribe's room again (it forgot us): what we sent it lately and it never
    // reflected goes again once we are back in.
    void roomRejoining(quint64 tribe);
    // A room reflected one of our messages (live or in its archive): it got there.
    void roomReflected(const QString& originId);
    ArchiveExtension* archive() { return archive_; }
    const QString& domain() const { return domain_; }
    const QString& account() const { return account_; }
    QString bareJid(const QString& account) const;
    // Fetches a received picture or file of the store and reports it when done.
    void downloadStored(quint64 id);
    // Messages received in one turn of the event loop (one read from the socket holds many
    // in a burst) are stored in one transaction, committed at the start of the next turn.
    // What reports them waits for that commit: a message is stored before it is reported.
    void openBatch();
    void afterCommit(std::function<void()> report);
    // Reports new messages of `peer` once per batch: the reader takes all that are unread.
    void notifyNew(const QString& peer);

private:
    // A new client for every sign-in, wired to the parts.
    QXmppClient* createClient();
    void sessionStarted();
    void sessionEnded();

    Callbacks callbacks_;
    QString appKey_;
    QString account_;
    QString domain_;

    QXmppClient* client_ = nullptr;

    StreamAcks* acks_ = nullptr;  // the current client's
    ArchiveExtension* archive_ = nullptr;
    QXmppCarbonManager* carbons_ = nullptr;
    MediaTransfer* transfer_;
    MessageStore store_;  // before the parts, which keep a reference to it
    TribeRooms* tribes_;
    StoreBatcher* batcher_;
    ArchiveCatchUp* catchUp_;
    HistoryPager* history_;
    PresenceRequests* presence_;
    MediaDownloads* downloads_;
    IncomingMessages* incoming_;
    UploadSlots* uploads_;
    OutgoingMessages* outgoing_;
    StanzaRouter* router_;
    EngineSignIn* signIn_;
    RoomHealth* roomHealth_;
    DeliveryReceipts* receipts_;
};
