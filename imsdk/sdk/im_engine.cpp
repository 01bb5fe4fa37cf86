// The SDK's session as a coordinator: one client per sign-in wired to the parts, the
// account opened at login, every service call handed to the part that does the work.
#include "sdk/im_engine.h"

#include <QXmppCarbonManager.h>
#include <QXmppLogger.h>
#include <QXmppUploadRequestManager.h>
#include <QDir>

#include "sdk/archive_catch_up.h"
#include "sdk/archive_extension.h"
#include "sdk/delivery_receipts.h"
#include "sdk/engine_sign_in.h"
#include "sdk/history_pager.h"
#include "sdk/incoming_messages.h"
#include "sdk/media_downloads.h"
#include "sdk/media_transfer.h"
#include "sdk/outgoing_messages.h"
#include "sdk/presence_requests.h"
#include "sdk/room_extension.h"
#include "sdk/room_health.h"
#include "sdk/socket_guard.h"
#include "sdk/stanza_router.h"
#include "sdk/store_batcher.h"
#include "sdk/stream_acks.h"
#include "sdk/tribe_rooms.h"
#include "sdk/upload_slots.h"
#include "sdk/wide_text.h"

using wide_text::fromQ;
using wide_text::toQ;

namespace {

// Account and domain as one folder name that no file system chokes on.
QString folderName(const QString& account, const QString& domain) {
    QString raw = account + QLatin1Char('@') + domain, out;
    for (QChar c : raw) {
        if (c.isLetterOrNumber() || c == QLatin1Char('.') || c == QLatin1Char('-') ||
            c == QLatin1Char('_') || c == QLatin1Char('@'))
            out.append(c);
        else
            out.append(QStringLiteral("%%1").arg(c.unicode(), 4, 16, QLatin1Char('0')));
    }
    return out;
}

}  // namespace

ImEngine::ImEngine(QObject* parent)
    : QObject(parent),
      transfer_(new MediaTransfer(this)),
      tribes_(new TribeRooms(this)),
      batcher_(new StoreBatcher(store_, this)),
      catchUp_(new ArchiveCatchUp(this, batcher_)),
      history_(new HistoryPager(this)),
      presence_(new PresenceRequests(this)),
      downloads_(new MediaDownloads(this, transfer_)),
      incoming_(new IncomingMessages(this, batcher_, catchUp_)),
      uploads_(new UploadSlots(this, transfer_)),
      outgoing_(new OutgoingMessages(this, uploads_)),
      router_(new StanzaRouter(this, batcher_, incoming_, catchUp_, history_, presence_)),
      signIn_(new EngineSignIn(this, transfer_, [this] { return createClient(); })),
      roomHealth_(new RoomHealth(this)),
      receipts_(new DeliveryReceipts(
          this, [this](const StoredMessage& m) { return outgoing_->writeAgain(m); })) {
    connect(signIn_, &EngineSignIn::sessionStarted, this, &ImEngine::sessionStarted);
    connect(signIn_, &EngineSignIn::sessionEnded, this, &ImEngine::sessionEnded);
    connect(catchUp_, &ArchiveCatchUp::finished, incoming_, &IncomingMessages::releaseDelayed);
    createClient();
}

// A new client for every sign-in: QXmpp would otherwise try to resume the old stream,
// which a restarted server no longer knows. What a resumption would have kept comes back
// from the archive catch-up instead. Every signal is taken in the engine's name, so the
// old client falls silent at once.
QXmppClient* ImEngine::createClient() {
    if (client_) {
        client_->disconnect(this);
        client_->disconnectFromServer();
        client_->deleteLater();
    }
    client_ = new QXmppClient(this);
    // Before anything reads the socket: stanzas too deep or too big never reach QXmpp's
    // recursive parser.
    auto* guard = new SocketGuard(client_);
    // What the server confirmed of ours decides "sent"; what a stream left unconfirmed goes
    // back to the send path to go again on the next one.
    acks_ = new StreamAcks(client_, guard, client_);
    connect(acks_, &StreamAcks::confirmed, outgoing_, &OutgoingMessages::confirmed);
    connect(acks_, &StreamAcks::unconfirmed, outgoing_, &OutgoingMessages::unconfirmed);
    archive_ = new ArchiveExtension;
    carbons_ = new QXmppCarbonManager;
    auto* upload = new QXmppUploadRequestManager;
    // Set QUELIX_XMPP_LOG to see the XML stream when a session misbehaves.
    if (qEnvironmentVariableIsSet("QUELIX_XMPP_LOG")) {
        auto* logger = new QXmppLogger(client_);
        logger->setLoggingType(QXmppLogger::StdoutLogging);
        client_->setLogger(logger);
    }
    // Room presence goes to the tribes before QXmpp's own handling sees it.
    client_->addExtension(new RoomExtension(tribes_));
    client_->addExtension(archive_);
    client_->addExtension(carbons_);
    client_->addExtension(upload);
    EngineSignIn* signIn = signIn_;
    StanzaRouter* router = router_;
    UploadSlots* uploads = uploads_;
    connect(client_, &QXmppClient::stateChanged, this,
            [signIn](QXmppClient::State state) { signIn->onStateChanged(state); });
    connect(client_, &QXmppClient::error, this,
            [signIn](QXmppClient::Error error) { signIn->onError(error); });
    connect(client_, &QXmppClient::messageReceived, this,
            [router](const QXmppMessage& m) { router->onMessage(m); });
    connect(client_, &QXmppClient::iqReceived, this,
            [router](const QXmppIq& iq) { router->onIq(iq); });
    connect(carbons_, &QXmppCarbonManager::messageReceived, this,
            [router](const QXmppMessage& m) { router->onCarbon(m); });
    connect(carbons_, &QXmppCarbonManager::messageSent, this,
            [router](const QXmppMessage& m) { router->onCarbon(m); });
    connect(archive_, &ArchiveExtension::archivedMessage, this,
            [router](const QString& query, const QString& id, const QXmppMessage& m,
                     const QDateTime& stamp) { router->onArchived(query, id, m, stamp); });
    connect(archive_, &ArchiveExtension::finished, this,
            [router](const QString& query, bool ok, bool complete, const QString& first,
                     const QString& last) {
                router->onArchiveFinished(query, ok, complete, first, last);
            });
    connect(upload, &QXmppUploadRequestManager::slotReceived, this,
            [uploads](const QXmppHttpUploadSlotIq& slot) { uploads->onSlot(slot); });
    connect(upload, &QXmppUploadRequestManager::requestFailed, this,
            [uploads](const QXmppHttpUploadRequestIq& request) { uploads->onSlotFailed(request); });
    return client_;
}

ImEngine::~ImEngine() {
    client_->disconnect(this);
    client_->disconnectFromServer();
}

void ImEngine::post(std::function<void()> task) {
    QMetaObject::invokeMethod(this, std::move(task), Qt::QueuedConnection);
}

openim::IMUserID ImEngine::userId(const QString& account) const {
    return openim::IMUserID(fromQ(appKey_), fromQ(account));
}

openim::IMUserID ImEngine::loginUser() const { return userId(account_); }

QString ImEngine::bareJid(const QString& account) const {
    return account + QLatin1Char('@') + domain_;
}

// ---- session ----

void ImEngine::login(const openim::LoginParam& param, const QString& dataFolder) {
    signIn_->begin(param);
    if (toQ(param.user.account) != account_) outgoing_->accountChanged();
    account_ = toQ(param.user.account);
    domain_ = toQ(param.domain);
    if (account_.isEmpty() || domain_.isEmpty()) {
        if (!callbacks_.loginFail.is_null())
            callbacks_.loginFail.Run({openim::ResultCode(openim::ResultCode::kInvalidArgument,
                                                         L"account and domain are required")});
        return;
    }
    if (!callbacks_.loginStep.is_null())
        callbacks_.loginStep.Run({openim::LoginStep::kLoadingStore});
    const QString accountFolder = QDir(dataFolder).filePath(folderName(account_, domain_));
    downloads_->setReceiveFolder(param.receiveFolder.empty()
                                     ? QDir(accountFolder).filePath(QStringLiteral("Receive"))
                                     : toQ(param.receiveFolder));
    history_->clear();
    if (!store_.open(QDir(accountFolder).filePath(QStringLiteral("messages.db")))) {
        if (!callbacks_.loginFail.is_null())
            callbacks_.loginFail.Run({openim::ResultCode(openim::ResultCode::kFailed,
                                                         L"cannot open the message store")});
        return;
    }
    tribes_->setAuthority(toQ(param.authority));
    tribes_->accountOpened();
    signIn_->signIn();
}

void ImEngine::relogin() { signIn_->relogin(); }

// What the server has not confirmed yet gets a moment to be: a message written just before
// the log-out is not lost with the stream.
void ImEngine::logout() {
    outgoing_->whenConfirmed([this] { signIn_->logout(); });
}

bool ImEngine::isOnline() const { return signIn_->isOnline(); }

void ImEngine::sessionStarted() {
    catchUp_->start();
    tribes_->sessionStarted();
    downloads_->resumePending();
    outgoing_->sessionStarted();
    roomHealth_->sessionStarted();
}

void ImEngine::roomRefused(const QString& originId) { outgoing_->roomRefused(originId); }

void ImEngine::roomRejoining(quint64 tribe) { outgoing_->roomRejoining(tribe); }

void ImEngine::roomReflected(const QString& originId) { outgoing_->roomReflected(originId); }

// Fails what waits for the server; nothing of it will be answered on this stream.
void ImEngine::sessionEnded() {
    presence_->sessionEnded();
    outgoing_->sessionEnded();
    history_->sessionEnded();
    catchUp_->sessionEnded();
    incoming_->releaseDelayed();
    tribes_->sessionEnded();
    roomHealth_->sessionEnded();
    receipts_->sessionEnded();
}

// ---- presence and sync ----

void ImEngine::requestPresence(const PresenceCallback& done) { presence_->request(done); }

void ImEngine::registerSync(int mode, const base::Callback<void(prg::PrgStringT<wchar_t>)>& done) {
    if (!isOnline()) {
        if (!done.is_null()) done.Run({});
        return;
    }
    carbons_->setCarbonsEnabled(mode == 1);
    if (!done.is_null()) done.Run(fromQ(client_->configuration().jid()));
}

// ---- receiving ----

void ImEngine::openBatch() { batcher_->open(); }

void ImEngine::afterCommit(std::function<void()> report) {
    batcher_->afterCommit(std::move(report));
}

void ImEngine::notifyNew(const QString& peer) {
    batcher_->afterCommitOnce(peer, [this, peer] {
        if (!callbacks_.newMessage.is_null()) callbacks_.newMessage.Run(userId(peer));
    });
}

void ImEngine::downloadStored(quint64 id) { downloads_->start(id, true); }

void ImEngine::downloadMedia(quint64 msgId) { downloads_->download(msgId); }

// ---- sending ----

void ImEngine::send(const QString& peer, StoredMessage draft, const QString& file,
                    const SendCallback& done) {
    send(peer, std::move(draft), file,
         Sent([this, done](const StoredMessage& m, openim::ResultCode sent,
                           openim::ResultCode uploaded) {
             if (!done.is_null()) done.Run(toIM(m), sent, uploaded);
         }));
}

void ImEngine::send(const QString& peer, StoredMessage draft, const QString& file, Sent done) {
    outgoing_->send(peer, std::move(draft), file, std::move(done));
}

// ---- store queries ----

openim::IMMessage ImEngine::toIM(const StoredMessage& m) const {
    openim::IMMessage im;
    im.msgId = m.id;
    im.msgTime = m.time;
    im.msgSeq = m.seq;
    im.sender = userId(m.sender);
    im.receiver = userId(m.outgoing ? m.peer : account_);
    im.content.type = m.kind;
    im.content.content = fromQ(m.content);
    im.content.summary = fromQ(m.summary);
    im.content.url = fromQ(m.url);
    im.content.fileSize = quint64(m.fileSize);
    im.content.width = m.width;
    im.content.height = m.height;
    im.hasRead = !m.unread;
    return im;
}

int ImEngine::unreadCount(const QString& peer) { return store_.unreadCount(peer); }

std::vector<openim::IMMessage> ImEngine::unread(const QString& peer) {
    std::vector<openim::IMMessage> out;
    for (const StoredMessage& m : store_.unread(peer)) out.push_back(toIM(m));
    return out;
}

QStringList ImEngine::unreadPeers() {
    QStringList peers = store_.unreadPeers();
    peers.erase(std::remove_if(peers.begin(), peers.end(), TribeRooms::isKey), peers.end());
    return peers;
}

void ImEngine::markRead(const QString& peer) { store_.markRead(peer); }

// Read marks of shown messages come a slice at a time during a burst: they ride with the
// batch of received messages instead of a commit of their own.
void ImEngine::markRead(const QList<quint64>& ids) {
    openBatch();
    store_.markRead(ids);
}

// Both read and write on the store's one connection, so rows of a batch not yet committed
// count, and a mark made during a batch is committed with it.
QList<MessageStore::Unseen> ImEngine::unseen() { return store_.unseen(); }

bool ImEngine::markSeen(const QString& peer) { return store_.markSeen(peer); }

void ImEngine::resetHistory(const QString& peer) { history_->reset(peer); }

void ImEngine::history(const QString& peer, int count, const HistoryCallback& done) {
    history_->history(peer, count, done);
}
