#pragma once

#include <QElapsedTimer>
#include <QHash>
#include <QMap>
#include <QObject>
#include <QPointer>
#include <QSet>
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
#include "store/archive_order.h"
#include "store/message_store.h"

class ArchiveExtension;
class MediaTransfer;
class StreamSecurity;
class TribeRooms;
class QXmppCarbonManager;
class QXmppHttpUploadRequestIq;
class QXmppHttpUploadSlotIq;
class QXmppUploadRequestManager;
class QTimer;

// The SDK's session: one XMPP client, the account's message store and the media
// transfers, all on the SDK thread. Every callback runs on that thread. The services call
// in through post() and call(), from any thread.
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
    bool isOnline() const { return state_ == State::Online; }
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

    // For the tribe rooms beside the engine (SDK thread).
    TribeRooms* tribes() { return tribes_; }
    MessageStore& messageStore() { return store_; }
    QXmppClient* xmppClient() { return client_; }
    ArchiveExtension* archive() { return archive_; }
    const QString& domain() const { return domain_; }
    const QString& account() const { return account_; }
    // Fetches a received picture or file of the store and reports it when done.
    void downloadStored(quint64 id) { startDownload(id, true); }
    // Messages received in one turn of the event loop (one read from the socket holds many
    // in a burst) are stored in one transaction, committed at the start of the next turn.
    // What reports them waits for that commit: a message is stored before it is reported.
    void openBatch();
    void afterCommit(std::function<void()> report);

private:
    enum class State { Idle, LoggingIn, Online, ReLoggingIn, Offline, LoggingOut, Kicked };
    enum class Source { Live, CatchUp, History };
    struct PendingPing {
        PresenceCallback done;
        QTimer* timer;
    };
    struct PendingUpload {
        StoredMessage draft;
        QString file;
        Sent done;
    };
    struct HistoryQuery {
        QString peer;
        int count;
        HistoryCallback done;
        // Asked before an archive id kept in the store, which the server may no longer know
        // (its archive emptied or replaced): a refusal then asks again by time.
        bool fromStoredId = false;
    };
    struct Cursor {
        qint64 time = 0;
        qint64 seq = 0;
        bool archiveDone = false;
    };

    void createClient();
    void connectNow(bool isRelogin);
    void onLoginTimeout();
    void loginAttemptFailed(const openim::ResultCode& result, bool refused);
    void onStateChanged(QXmppClient::State state);
    void onError(QXmppClient::Error error);
    void onMessage(const QXmppMessage& message);
    void onIq(const QXmppIq& iq);
    void onArchived(const QString& queryId, const QString& archiveId, const QXmppMessage& message,
                    const QDateTime& stamp);
    void onArchiveFinished(const QString& queryId, bool ok, bool complete, const QString& first,
                           const QString& last);
    void onSlot(const QXmppHttpUploadSlotIq& slot);
    void onSlotFailed(const QXmppHttpUploadRequestIq& request);
    void store(const QXmppMessage& message, const QString& archiveId, const QDateTime& stamp,
               Source source);
    std::optional<quint64> insertReceived(StoredMessage& m, const QXmppMessage& message,
                                          Source source);
    // Whether a stored message may go into its conversation; `peer` becomes the
    // conversation a relaying back end names. False with the reason in `problem`.
    bool relayedPeer(const QXmppMessage& message, bool outgoing, int kind, QString* peer,
                     QString* problem) const;
    std::optional<quint64> insertOnce(StoredMessage& m, const QXmppMessage& message, Source source);
    void logRefused(const QXmppMessage& message, const QString& why);
    void startCatchUp();
    void startDownload(quint64 id, bool notify);
    void requestSlot(const PendingUpload& upload);
    void sendStored(StoredMessage draft, const Sent& done);
    void askArchiveBefore(HistoryQuery q, const QString& storedId);
    void deliverHistory(const QString& peer, int count, const HistoryCallback& done,
                        openim::ResultCode result);
    void sessionEnded();
    void closeBatch();
    // Reports new messages of `peer` once per batch: the reader takes all that are unread.
    void notifyNew(const QString& peer);
    QString bareJid(const QString& account) const;

    Callbacks callbacks_;
    QString appKey_;
    openim::LoginParam param_;
    QString account_;
    QString domain_;
    QString receiveFolder_;
    State state_ = State::Idle;
    QPointer<StreamSecurity> security_;  // of the current client
    QXmppClient::Error lastError_ = QXmppClient::NoError;
    QXmppStanza::Error::Condition streamError_ = QXmppStanza::Error::UndefinedCondition;

    QXmppClient* client_ = nullptr;
    ArchiveExtension* archive_ = nullptr;
    QXmppCarbonManager* carbons_ = nullptr;
    QXmppUploadRequestManager* upload_ = nullptr;
    MediaTransfer* transfer_;
    MessageStore store_;
    ArchiveOrder catchUpOrder_{store_};
    ArchiveOrder historyOrder_{store_};
    TribeRooms* tribes_;

    QTimer* loginTimer_ = nullptr;
    int loginAttempt_ = 0;         // failed attempts of the current first sign-in
    quint64 loginGeneration_ = 0;  // a retry belongs to the login() that started it

    QHash<QString, PendingPing> pings_;
    QHash<QString, PendingUpload> uploads_;
    QHash<QString, HistoryQuery> historyQueries_;
    QString catchUpQuery_;
    QHash<QString, Cursor> cursors_;
    bool batchOpen_ = false;
    std::vector<std::function<void()>> afterCommit_;
    QSet<QString> notified_;
    static constexpr qint64 kBatchGapMs = 100;
    static constexpr qint64 kBurstGapMs = 250;
    static constexpr int kBurstBatch = 100;
    int storedInBatch_ = 0;  // messages the open batch (or the last one) stored
    QElapsedTimer lastCommit_;
    QString archivedInBatch_;  // the archive mark, written once when the batch commits
    void markArchived(const QString& archiveId);
};
