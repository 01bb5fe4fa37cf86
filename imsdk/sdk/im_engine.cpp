#include "sdk/im_engine.h"

#include <QXmppCarbonManager.h>
#include <QXmppConfiguration.h>
#include <QXmppHttpUploadIq.h>
#include <QXmppLogger.h>
#include <QXmppMessage.h>
#include <QXmppPingIq.h>
#include <QXmppPresence.h>
#include <QXmppRosterManager.h>
#include <QXmppUploadRequestManager.h>
#include <QXmppUtils.h>
#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QMimeDatabase>
#include <QSysInfo>
#include <QTimer>
#include <QUuid>

#include "openim/im_message_content.h"
#include "sdk/archive_extension.h"
#include "sdk/media_transfer.h"
#include "sdk/message_codec.h"
#include "sdk/receive_folder.h"
#include "sdk/room_extension.h"
#include "sdk/socket_guard.h"
#include "sdk/stream_security.h"
#include "sdk/tribe_messages.h"
#include "sdk/tribe_rooms.h"
#include "sdk/wide_text.h"

using wide_text::fromQ;
using wide_text::toQ;

namespace {

constexpr int kPingTimeoutMs = 10000;
constexpr int kCatchUpPage = 100;
constexpr int kMediaWaitMs = 8000;
// A first sign-in that fails for the network is tried again this often, after 2 s, 4 s...
// before the failure is reported; a refused secret is reported at once.
constexpr int kLoginRetries = 3;
const char kLastArchiveId[] = "last_archive_id";

// One resource per desktop, so that signing in on a second desktop ends the first
// session (the server resolves the conflict) while a relogin here replaces our own.
QString desktopResource() {
    QByteArray machine = QSysInfo::machineUniqueId();
    if (machine.isEmpty()) machine = QSysInfo::machineHostName().toUtf8();
    return QStringLiteral("desktop-") +
           QString::fromLatin1(
               QCryptographicHash::hash(machine, QCryptographicHash::Sha1).toHex().left(12));
}

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

bool isMedia(int kind) { return kind == openim::kContentImage || kind == openim::kContentFile; }

}  // namespace

ImEngine::ImEngine(QObject* parent)
    : QObject(parent), transfer_(new MediaTransfer(this)), tribes_(new TribeRooms(this)) {
    createClient();
}

// A new client for every sign-in: QXmpp would otherwise try to resume the old stream,
// which a restarted server no longer knows. What a resumption would have kept comes back
// from the archive catch-up instead.
void ImEngine::createClient() {
    if (client_) {
        client_->disconnect(this);
        client_->disconnectFromServer();
        client_->deleteLater();
    }
    client_ = new QXmppClient(this);
    // Before anything reads the socket: stanzas too deep or too big never reach QXmpp's
    // recursive parser.
    new SocketGuard(client_);
    archive_ = new ArchiveExtension;
    carbons_ = new QXmppCarbonManager;
    upload_ = new QXmppUploadRequestManager;
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
    client_->addExtension(upload_);
    connect(client_, &QXmppClient::stateChanged, this, &ImEngine::onStateChanged);
    connect(client_, &QXmppClient::error, this, &ImEngine::onError);
    connect(client_, &QXmppClient::messageReceived, this, &ImEngine::onMessage);
    connect(client_, &QXmppClient::iqReceived, this, &ImEngine::onIq);
    connect(carbons_, &QXmppCarbonManager::messageReceived, this,
            [this](const QXmppMessage& m) { store(m, QString(), QDateTime(), Source::Live); });
    connect(carbons_, &QXmppCarbonManager::messageSent, this,
            [this](const QXmppMessage& m) { store(m, QString(), QDateTime(), Source::Live); });
    connect(archive_, &ArchiveExtension::archivedMessage, this, &ImEngine::onArchived);
    connect(archive_, &ArchiveExtension::finished, this, &ImEngine::onArchiveFinished);
    connect(upload_, &QXmppUploadRequestManager::slotReceived, this, &ImEngine::onSlot);
    connect(upload_, &QXmppUploadRequestManager::requestFailed, this, &ImEngine::onSlotFailed);
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
    ++loginGeneration_;
    loginAttempt_ = 0;
    if (state_ == State::Online || state_ == State::LoggingIn || state_ == State::ReLoggingIn) {
        // A new login replaces the running session without reporting its end.
        state_ = State::Idle;
        client_->disconnectFromServer();
    }
    param_ = param;
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
    receiveFolder_ = param.receiveFolder.empty()
                         ? QDir(accountFolder).filePath(QStringLiteral("Receive"))
                         : toQ(param.receiveFolder);
    cursors_.clear();
    if (!store_.open(QDir(accountFolder).filePath(QStringLiteral("messages.db")))) {
        if (!callbacks_.loginFail.is_null())
            callbacks_.loginFail.Run({openim::ResultCode(openim::ResultCode::kFailed,
                                                         L"cannot open the message store")});
        return;
    }
    tribes_->setAuthority(toQ(param.authority));
    tribes_->accountOpened();
    connectNow(false);
}

void ImEngine::relogin() {
    if (state_ == State::Online) {
        if (!callbacks_.reloginOk.is_null()) callbacks_.reloginOk.Run({loginUser()});
        return;
    }
    if (account_.isEmpty() || state_ == State::LoggingIn || state_ == State::ReLoggingIn) return;
    connectNow(true);
}

void ImEngine::logout() {
    ++loginGeneration_;
    if (loginTimer_) loginTimer_->stop();
    if (client_->state() != QXmppClient::DisconnectedState) {
        state_ = State::LoggingOut;
        client_->disconnectFromServer();
        return;
    }
    state_ = State::Idle;
    if (!callbacks_.logouted.is_null()) callbacks_.logouted.Run({loginUser()});
}

void ImEngine::connectNow(bool isRelogin) {
    state_ = isRelogin ? State::ReLoggingIn : State::LoggingIn;
    lastError_ = QXmppClient::NoError;
    streamError_ = QXmppStanza::Error::UndefinedCondition;
    if (!callbacks_.loginStep.is_null()) callbacks_.loginStep.Run({openim::LoginStep::kConnecting});
    QXmppConfiguration config;
    config.setUser(account_);
    config.setDomain(domain_);
    config.setPassword(toQ(param_.secret));
    config.setHost(param_.host.empty() ? domain_ : toQ(param_.host));
    config.setPort(param_.port);
    config.setResource(desktopResource());
    // The client decides when to sign in again (NetDisConnectParam, then ReLogin).
    config.setAutoReconnectionEnabled(false);
    // A dead link is noticed within two minutes; the answer to a ping can sit behind a
    // long backlog of messages (a burst, offline delivery), so give it time.
    config.setKeepAliveInterval(60);
    config.setKeepAliveTimeout(60);
    bool tlsRequired = true;
    QString caProblem;
    if (!StreamSecurity::configure(config, toQ(param_.caFile), param_.requireTls, &tlsRequired,
                                   &caProblem))
        qWarning().noquote() << "imsdk: the company's CA file is not used:" << caProblem;
    createClient();
    security_ = new StreamSecurity(client_, tlsRequired);
    transfer_->setAuthorities(StreamSecurity::authorities(toQ(param_.caFile)));
    if (!loginTimer_) {
        loginTimer_ = new QTimer(this);
        loginTimer_->setSingleShot(true);
        connect(loginTimer_, &QTimer::timeout, this, &ImEngine::onLoginTimeout);
    }
    // A sign-in that has not finished by then will not: a server that accepts the
    // connection and then stalls (replacing a dead session of ours, overloaded) would
    // otherwise hold it for ever.
    loginTimer_->start(std::max(1000, int(param_.signInTimeoutMs)));
    client_->connectToServer(config);
}

void ImEngine::onLoginTimeout() {
    if (state_ != State::LoggingIn && state_ != State::ReLoggingIn) return;
    qWarning().noquote() << "imsdk: sign-in to" << domain_ << "not finished within"
                         << loginTimer_->interval() << "ms";
    // A new client drops the stalled connection without hearing from it again.
    createClient();
    loginAttemptFailed(
        openim::ResultCode(openim::ResultCode::kTimeout, L"the server did not finish the sign-in"),
        false);
}

// The end of a sign-in that did not reach the online state.
void ImEngine::loginAttemptFailed(const openim::ResultCode& result, bool refused) {
    if (loginTimer_) loginTimer_->stop();
    if (state_ == State::ReLoggingIn) {
        // The client's heartbeat decides when to try again.
        state_ = State::Offline;
        sessionEnded();
        if (!callbacks_.reloginFail.is_null()) callbacks_.reloginFail.Run({result});
        return;
    }
    sessionEnded();
    if (!refused && ++loginAttempt_ <= kLoginRetries) {
        const int pauseMs = 1000 << loginAttempt_;
        qInfo().noquote() << "imsdk: sign-in attempt" << loginAttempt_ << "failed ("
                          << wide_text::toQ(result.text) << "); again in" << pauseMs / 1000 << "s";
        QTimer::singleShot(pauseMs, this, [this, generation = loginGeneration_] {
            if (generation == loginGeneration_ && state_ == State::LoggingIn) connectNow(false);
        });
        return;
    }
    state_ = State::Idle;
    if (!callbacks_.loginFail.is_null()) callbacks_.loginFail.Run({result});
}

void ImEngine::onError(QXmppClient::Error error) {
    // Over TLS the server's stream error (a kick, a refused secret) is followed by the socket
    // closing under it; the stream error is what happened.
    if (error == QXmppClient::SocketError && lastError_ == QXmppClient::XmppStreamError) return;
    lastError_ = error;
    if (error == QXmppClient::XmppStreamError) streamError_ = client_->xmppStreamError();
}

void ImEngine::onStateChanged(QXmppClient::State state) {
    if (state == QXmppClient::ConnectedState) {
        const bool wasRelogin = state_ == State::ReLoggingIn;
        if (state_ != State::LoggingIn && state_ != State::ReLoggingIn) return;
        if (loginTimer_) loginTimer_->stop();
        loginAttempt_ = 0;
        state_ = State::Online;
        if (wasRelogin) {
            if (!callbacks_.reloginOk.is_null()) callbacks_.reloginOk.Run({loginUser()});
        } else if (!callbacks_.loginOk.is_null()) {
            callbacks_.loginOk.Run({loginUser()});
        }
        if (!callbacks_.pushStarted.is_null()) callbacks_.pushStarted.Run({fromQ(domain_)});
        startCatchUp();
        tribes_->sessionStarted();
        for (const StoredMessage& m : store_.pendingMedia()) startDownload(m.id, true);
        return;
    }
    if (state != QXmppClient::DisconnectedState) return;
    const State was = state_;
    // A refused account or secret is told apart from a server that cannot be reached.
    const QString insecure = security_ && (was == State::LoggingIn || was == State::ReLoggingIn)
                                 ? security_->failure()
                                 : QString();
    // A server that cannot protect the stream will not start to by itself: final, like a
    // refused secret.
    const bool refused = !insecure.isEmpty() || (lastError_ == QXmppClient::XmppStreamError &&
                                                 streamError_ == QXmppStanza::Error::NotAuthorized);
    if (!insecure.isEmpty())
        qWarning().noquote() << "imsdk: sign-in to" << domain_ << "refused:" << insecure;
    const openim::ResultCode result(
        !insecure.isEmpty() ? openim::ResultCode::kInsecure
        : refused           ? openim::ResultCode::kAuthFailed
                            : openim::ResultCode::kNetworkError,
        fromQ(!insecure.isEmpty() ? insecure
                                  : QStringLiteral("connection closed (error %1, stream error %2)")
                                        .arg(int(lastError_))
                                        .arg(int(streamError_))));
    switch (was) {
        case State::LoggingIn:
        case State::ReLoggingIn:
            loginAttemptFailed(result, refused);
            break;
        case State::Online:
            sessionEnded();
            if (lastError_ == QXmppClient::XmppStreamError &&
                streamError_ == QXmppStanza::Error::Conflict) {
                state_ = State::Kicked;
                if (!callbacks_.pushKicked.is_null())
                    callbacks_.pushKicked.Run({L"signed in on another desktop"});
                if (!callbacks_.kicked.is_null())
                    callbacks_.kicked.Run({L"signed in on another desktop"});
            } else {
                state_ = State::Offline;
                if (!callbacks_.pushStopped.is_null()) callbacks_.pushStopped.Run({result});
                if (!callbacks_.disconnected.is_null()) callbacks_.disconnected.Run({result});
            }
            break;
        case State::LoggingOut:
            state_ = State::Idle;
            sessionEnded();
            if (!callbacks_.pushStopped.is_null())
                callbacks_.pushStopped.Run({openim::ResultCode()});
            if (!callbacks_.logouted.is_null()) callbacks_.logouted.Run({loginUser()});
            break;
        default:
            break;
    }
}

// Fails what waits for the server; nothing of it will be answered on this stream.
void ImEngine::sessionEnded() {
    const auto pings = std::exchange(pings_, {});
    for (const PendingPing& p : pings) {
        p.timer->deleteLater();
        if (!p.done.is_null())
            p.done.Run(openim::ResultCode(openim::ResultCode::kNetworkError), {});
    }
    const auto uploads = std::exchange(uploads_, {});
    for (const PendingUpload& u : uploads)
        if (u.done)
            u.done(u.draft, openim::ResultCode(openim::ResultCode::kNetworkError),
                   openim::ResultCode(openim::ResultCode::kNetworkError));
    const auto queries = std::exchange(historyQueries_, {});
    for (auto it = queries.begin(); it != queries.end(); ++it)
        deliverHistory(it->peer, it->count, it->done,
                       openim::ResultCode(openim::ResultCode::kNetworkError));
    catchUpQuery_.clear();
    tribes_->sessionEnded();
}

// ---- presence and sync ----

void ImEngine::requestPresence(const PresenceCallback& done) {
    if (state_ != State::Online) {
        if (!done.is_null()) done.Run(openim::ResultCode(openim::ResultCode::kNotLoggedIn), {});
        return;
    }
    QXmppPingIq ping;
    ping.setTo(domain_);
    auto* timer = new QTimer(this);
    timer->setSingleShot(true);
    const QString id = ping.id();
    connect(timer, &QTimer::timeout, this, [this, id] {
        PendingPing p = pings_.take(id);
        if (p.timer) p.timer->deleteLater();
        if (!p.done.is_null()) p.done.Run(openim::ResultCode(openim::ResultCode::kTimeout), {});
    });
    pings_.insert(id, {done, timer});
    timer->start(kPingTimeoutMs);
    client_->sendPacket(ping);
}

void ImEngine::onIq(const QXmppIq& iq) {
    auto it = pings_.find(iq.id());
    if (it == pings_.end()) return;
    PendingPing p = *it;
    pings_.erase(it);
    p.timer->deleteLater();
    std::map<openim::IMUserID, openim::IMUserStatus> statuses;
    auto* roster = client_->findExtension<QXmppRosterManager>();
    const QStringList jids = roster ? roster->getRosterBareJids() : QStringList();
    for (const QString& jid : jids) {
        openim::IMUserStatus status;
        const auto presences = roster->getAllPresencesForBareJid(jid);
        for (const QXmppPresence& presence : presences) {
            if (presence.type() != QXmppPresence::Available) continue;
            status.state = presence.availableStatusType() == QXmppPresence::Online ||
                                   presence.availableStatusType() == QXmppPresence::Chat
                               ? openim::IMUserStatus::kOnline
                           : presence.availableStatusType() == QXmppPresence::DND
                               ? openim::IMUserStatus::kBusy
                               : openim::IMUserStatus::kAway;
            status.statusText = fromQ(presence.statusText());
        }
        statuses[userId(QXmppUtils::jidToUser(jid))] = status;
    }
    if (!p.done.is_null())
        p.done.Run(
            openim::ResultCode(iq.type() == QXmppIq::Result ? openim::ResultCode::kOk
                                                            : openim::ResultCode::kServerError),
            statuses);
}

void ImEngine::registerSync(int mode, const base::Callback<void(prg::PrgStringT<wchar_t>)>& done) {
    if (state_ != State::Online) {
        if (!done.is_null()) done.Run({});
        return;
    }
    carbons_->setCarbonsEnabled(mode == 1);
    if (!done.is_null()) done.Run(fromQ(client_->configuration().jid()));
}

// ---- receiving ----

// A lone message is committed (and reported) once the socket read that brought it is
// done; under a burst, commits are at least kBatchGapMs apart, so each carries many
// messages and the journal far fewer pages per message. Once a batch was large, the next
// waits kBurstGapMs: the random archive and origin ids spread every batch over most
// pages of their indexes, so a commit costs about the same whatever it carries.
void ImEngine::openBatch() {
    if (batchOpen_ || !store_.isOpen()) return;
    batchOpen_ = true;
    store_.beginBatch();
    const qint64 gap = storedInBatch_ >= kBurstBatch ? kBurstGapMs : kBatchGapMs;
    storedInBatch_ = 0;
    const qint64 since = lastCommit_.isValid() ? lastCommit_.elapsed() : gap;
    if (since >= gap)
        QMetaObject::invokeMethod(this, &ImEngine::closeBatch, Qt::QueuedConnection);
    else
        QTimer::singleShot(int(gap - since), this, &ImEngine::closeBatch);
}

void ImEngine::afterCommit(std::function<void()> report) {
    if (batchOpen_)
        afterCommit_.push_back(std::move(report));
    else
        report();
}

// The archive mark moves with what is stored: within a batch, once, at its commit.
void ImEngine::markArchived(const QString& archiveId) {
    if (batchOpen_)
        archivedInBatch_ = archiveId;
    else
        store_.setMeta(QLatin1String(kLastArchiveId), archiveId);
}

void ImEngine::closeBatch() {
    if (!batchOpen_) return;
    batchOpen_ = false;
    lastCommit_.start();
    if (!archivedInBatch_.isEmpty())
        store_.setMeta(QLatin1String(kLastArchiveId), std::exchange(archivedInBatch_, {}));
    notified_.clear();
    std::vector<std::function<void()>> reports = std::exchange(afterCommit_, {});
    if (!store_.endBatch()) {
        // The last archive id went back with them, so the next catch-up fetches them again.
        qWarning(
            "imsdk: %d received messages could not be stored (commit failed); they are "
            "fetched from the server's archive at the next sign-in",
            int(reports.size()));
        return;
    }
    for (const std::function<void()>& report : reports) report();
}

void ImEngine::notifyNew(const QString& peer) {
    if (batchOpen_ && notified_.contains(peer)) return;
    if (batchOpen_) notified_.insert(peer);
    afterCommit([this, peer] {
        if (!callbacks_.newMessage.is_null()) callbacks_.newMessage.Run(userId(peer));
    });
}

void ImEngine::onMessage(const QXmppMessage& message) {
    if (message.type() == QXmppMessage::Error) return;
    for (const QXmppElement& e : message.extensions()) {
        if (e.tagName() == QLatin1String("refused") &&
            e.attribute(QStringLiteral("xmlns")) == QLatin1String(StanzaGuard::kNamespace)) {
            qWarning().noquote() << "imsdk: refused a message from" << message.from() << "id"
                                 << message.id() << "-" << e.attribute(QStringLiteral("reason"));
            return;
        }
    }
    openBatch();
    const QString fromBare = QXmppUtils::jidToBareJid(message.from());
    if (fromBare == domain_) {
        // The server itself speaks on the push channel.
        if (callbacks_.pushMsgs.is_null()) return;
        openim::XPushMsg push;
        push.msgId = fromQ(message.id());
        push.msgTime =
            (message.stamp().isValid() ? message.stamp() : QDateTime::currentDateTimeUtc())
                .toSecsSinceEpoch();
        push.subject = fromQ(message.subject());
        push.content = fromQ(message.body());
        callbacks_.pushMsgs.Run({push});
        return;
    }
    if (message.type() == QXmppMessage::GroupChat) {
        tribes_->handleGroupMessage(message);
        return;
    }
    if (tribes_->handleInvitation(message)) return;
    if (message.type() == QXmppMessage::Headline) return;
    // The server's archive id, when our own archive stamped it.
    const QString archiveId =
        message.stanzaIdBy() == bareJid(account_) ? message.stanzaId() : QString();
    store(message, archiveId, message.stamp(), Source::Live);
}

void ImEngine::store(const QXmppMessage& message, const QString& archiveId, const QDateTime& stamp,
                     Source source) {
    if (source != Source::History && tribes_->handleNotice(message, archiveId, stamp)) {
        if (!archiveId.isEmpty()) markArchived(archiveId);
        return;
    }
    QString problem;
    std::optional<StoredMessage> decoded = MessageCodec::decode(message, &problem);
    if (!decoded) {
        if (!problem.isEmpty()) logRefused(message, problem);
        return;
    }
    if (!problem.isEmpty()) logRefused(message, problem);
    StoredMessage m = *decoded;
    const QString own = bareJid(account_);
    const bool outgoing = QXmppUtils::jidToBareJid(message.from()) == own ||
                          (message.from().isEmpty() && !message.to().isEmpty());
    const QString other = QXmppUtils::jidToBareJid(outgoing ? message.to() : message.from());
    if (other.isEmpty() || QXmppUtils::jidToDomain(other) != domain_)
        return logRefused(message, QStringLiteral("not of the company's domain ") + domain_);
    m.peer = QXmppUtils::jidToUser(other);
    if (m.peer.isEmpty()) return logRefused(message, QStringLiteral("no account in the address"));
    const QString addressed = m.peer;
    if (!relayedPeer(message, outgoing, m.kind, &m.peer, &problem))
        return logRefused(message, problem);
    if (m.kind == openim::kContentCustom && MessageCodec::speaksForCompany(m.content) &&
        (outgoing || tribes_->authority().isEmpty() || addressed != tribes_->authority())) {
        qWarning().noquote() << "imsdk: message from" << message.from() << "id" << message.id()
                             << "is a card only the company's back end may send; kept as text";
        if (!MessageCodec::keepAsText(m)) return;
    }
    m.outgoing = outgoing;
    m.sender = outgoing ? account_ : m.peer;
    m.time = (stamp.isValid() ? stamp : QDateTime::currentDateTimeUtc()).toSecsSinceEpoch();
    m.stanzaId = archiveId;
    m.originId = message.originId().isEmpty() ? message.id() : message.originId();
    // A relayed message is archived with the relaying account, not with its conversation's
    // peer, so its archive id cannot anchor a page of that peer's archive (the server would
    // not find it there); its origin id keeps it from being stored twice.
    if (m.peer != addressed && !m.originId.isEmpty()) m.stanzaId.clear();
    m.unread = !outgoing && source != Source::History;
    m.pendingMedia = isMedia(m.kind) && !outgoing && source != Source::History;
    std::optional<quint64> id;
    QList<StoredMessage> rows = MessageCodec::rows(m);
    if (rows.size() > 1)
        qInfo().noquote() << "imsdk: long text from" << message.from() << "id" << message.id()
                          << "shown in" << rows.size() << "parts";
    for (StoredMessage& row : rows)
        if (auto rowId = insertReceived(row, message, source); rowId && !id) id = rowId;
    if (!archiveId.isEmpty() && source != Source::History) markArchived(archiveId);
    if (!id || !m.unread) return;
    if (m.pendingMedia) {
        const quint64 stored = *id;
        afterCommit([this, stored] { startDownload(stored, true); });
        return;
    }
    notifyNew(m.peer);
}

// The store keeps one message per sender and origin id. A second stanza under the same
// id is a copy (offline delivery and catch-up both bring it) only when it says the same;
// a client that reuses ids for new messages must not lose them.
std::optional<quint64> ImEngine::insertReceived(StoredMessage& m, const QXmppMessage& message,
                                                Source source) {
    ArchiveOrder* order = source == Source::CatchUp   ? &catchUpOrder_
                          : source == Source::History ? &historyOrder_
                                                      : nullptr;
    if (order) order->place(m);
    std::optional<quint64> id = insertOnce(m, message, source);
    if (id && batchOpen_) ++storedInBatch_;
    if (order) order->placed(m, id.has_value());
    return id;
}

std::optional<quint64> ImEngine::insertOnce(StoredMessage& m, const QXmppMessage& message,
                                            Source source) {
    std::optional<quint64> id = store_.insert(m);
    if (id || m.originId.isEmpty()) return id;
    const std::optional<StoredMessage> earlier = store_.byOrigin(m.sender, m.originId);
    const bool same =
        !earlier || (earlier->kind == m.kind &&
                     (isMedia(m.kind) ? earlier->url == m.url : earlier->content == m.content));
    if (same) {
        if (source == Source::Live && !m.outgoing)
            logRefused(message, QStringLiteral("a copy of a message already received"));
        return std::nullopt;
    }
    const QByteArray digest = QCryptographicHash::hash(
        (QString::number(m.kind) + m.content + m.url).toUtf8(), QCryptographicHash::Sha1);
    m.originId += QLatin1Char('#') + QString::fromLatin1(digest.toHex().left(12));
    qInfo().noquote() << "imsdk: message from" << message.from() << "reuses id" << message.id()
                      << "for other content; kept as a new message";
    return store_.insert(m);
}

// The back end tells a colleague of a task given to them in the name of the company's task
// assistant, a directory entry nobody signs in as: its own account carries the card and
// names the conversation it belongs in. Only that account is believed, and only for
// custom content (the cards); a relay from anyone else would let them speak as another.
bool ImEngine::relayedPeer(const QXmppMessage& message, bool outgoing, int kind, QString* peer,
                           QString* problem) const {
    QXmppElement relay;
    for (const QXmppElement& e : message.extensions())
        if (e.tagName() == QLatin1String("relay") &&
            e.attribute(QStringLiteral("xmlns")) == QLatin1String(MessageCodec::kNamespace)) {
            relay = e;
            break;
        }
    if (relay.isNull()) return true;
    const QString authority = tribes_->authority();
    if (outgoing || authority.isEmpty() || *peer != authority) {
        *problem = QStringLiteral("relayed by someone other than the company's back end");
        return false;
    }
    const QString account = relay.attribute(QStringLiteral("for"));
    bool numeric = false;
    account.toULongLong(&numeric);
    // Directory ids only: the client knows colleagues by them.
    if (!numeric || account.size() > 20 || account == account_) {
        *problem = QStringLiteral("relayed for an unusable account");
        return false;
    }
    if (kind != openim::kContentCustom) {
        *problem = QStringLiteral("relayed content that is not a card");
        return false;
    }
    *peer = account;
    return true;
}

void ImEngine::logRefused(const QXmppMessage& message, const QString& why) {
    qWarning().noquote() << "imsdk: message from" << message.from() << "id" << message.id()
                         << "not shown:" << why;
}

// Fetches what the archive holds after the last message we saw, in case the server
// dropped a queue while we were away; the store drops what we already have.
void ImEngine::startCatchUp() {
    const QString last = store_.meta(QLatin1String(kLastArchiveId));
    if (last.isEmpty()) return;
    catchUpOrder_.start(ArchiveOrder::Direction::Forward);
    catchUpQuery_ = archive_->query(QString(), QString(), last, kCatchUpPage);
}

void ImEngine::onArchived(const QString& queryId, const QString& archiveId,
                          const QXmppMessage& message, const QDateTime& stamp) {
    openBatch();
    if (tribes_->messages()->handleArchived(queryId, archiveId, message, stamp)) return;
    if (queryId == catchUpQuery_)
        store(message, archiveId, stamp, Source::CatchUp);
    else if (historyQueries_.contains(queryId))
        store(message, archiveId, stamp, Source::History);
}

void ImEngine::onArchiveFinished(const QString& queryId, bool ok, bool complete,
                                 const QString& first, const QString& last) {
    if (tribes_->messages()->handleArchiveFinished(queryId, ok, complete, first, last)) return;
    if (queryId == catchUpQuery_) {
        catchUpQuery_.clear();
        if (ok && !complete && !last.isEmpty())
            catchUpQuery_ = archive_->query(QString(), QString(), last, kCatchUpPage);
        return;
    }
    auto it = historyQueries_.find(queryId);
    if (it == historyQueries_.end()) return;
    HistoryQuery q = *it;
    historyQueries_.erase(it);
    Cursor& cursor = cursors_[q.peer];
    if (!ok) {
        if (q.fromStoredId) {
            qInfo().noquote() << "imsdk: the archive refused to page before a stored id with"
                              << q.peer << "; asking by time";
            askArchiveBefore(q, QString());
            return;
        }
        deliverHistory(q.peer, q.count, q.done,
                       openim::ResultCode(openim::ResultCode::kServerError));
        return;
    }
    if (complete || first.isEmpty()) cursor.archiveDone = true;
    const auto rows = store_.page(q.peer, cursor.time, cursor.seq, q.count);
    if (rows.size() >= q.count || cursor.archiveDone) {
        deliverHistory(q.peer, q.count, q.done, openim::ResultCode());
        return;
    }
    // The page held only what we had; go further back.
    historyOrder_.start(ArchiveOrder::Direction::Backward, q.peer);
    const QString next = archive_->query(bareJid(q.peer), first, QString(), std::max(q.count, 20));
    q.fromStoredId = false;
    if (next.isEmpty())
        deliverHistory(q.peer, q.count, q.done,
                       openim::ResultCode(openim::ResultCode::kNetworkError));
    else
        historyQueries_.insert(next, q);
}

// ---- media ----

void ImEngine::startDownload(quint64 id, bool notify) {
    std::optional<StoredMessage> m = store_.message(id);
    if (!m) return;
    const QString target = ReceiveFolder(receiveFolder_).freePath(m->summary);
    // Later messages of the sender wait for the picture, but only so long: then they are
    // shown, and the picture fills its row when it arrives.
    QPointer<QTimer> wait;
    if (notify && m->unread && !TribeRooms::isKey(m->peer)) {
        wait = new QTimer(this);
        wait->setSingleShot(true);
        connect(wait, &QTimer::timeout, this, [this, id, peer = m->peer] {
            if (!store_.releaseMedia(id)) return;
            qInfo().noquote() << "imsdk: message" << id << "from" << peer
                              << "still downloading after" << kMediaWaitMs / 1000
                              << "s; what came after it is shown";
            notifyNew(peer);
        });
        wait->start(kMediaWaitMs);
    }
    transfer_->download(
        QUrl(m->url), target, [this, id, notify, m, wait](bool ok, const QString& result) {
            const bool released = !wait || !wait->isActive();
            if (wait) wait->deleteLater();
            store_.finishMedia(id, ok ? result : QString());
            if (TribeRooms::isKey(m->peer)) {
                tribes_->messages()->mediaFinished(*m, ok, result);
                return;
            }
            if (!callbacks_.download.is_null()) {
                openim::DownloadMediaResult r;
                r.msgId = id;
                r.sender = userId(m->sender);
                r.url = fromQ(m->url);
                r.localPath = ok ? fromQ(result) : prg::PrgStringT<wchar_t>();
                callbacks_.download.Run(
                    ok ? openim::ResultCode()
                       : openim::ResultCode(openim::ResultCode::kNetworkError, fromQ(result)),
                    r);
            }
            // After the commit of a batch that may be open around this write.
            if (notify && m->unread && !(wait && released)) notifyNew(m->peer);
        });
}

void ImEngine::downloadMedia(quint64 msgId) {
    std::optional<StoredMessage> m = store_.message(msgId);
    if (!m || !isMedia(m->kind) || m->outgoing) {
        if (!callbacks_.download.is_null()) {
            openim::DownloadMediaResult r;
            r.msgId = msgId;
            callbacks_.download.Run(openim::ResultCode(openim::ResultCode::kNotFound), r);
        }
        return;
    }
    startDownload(msgId, false);
}

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
    draft.peer = peer;
    draft.sender = account_;
    draft.outgoing = true;
    draft.unread = false;
    draft.time = QDateTime::currentDateTimeUtc().toSecsSinceEpoch();
    draft.originId = QUuid::createUuid().toString(QUuid::WithoutBraces);
    auto fail = [&](int code, const wchar_t* why) {
        if (done) done(draft, openim::ResultCode(code, why), openim::ResultCode());
    };
    if (state_ != State::Online) return fail(openim::ResultCode::kNotLoggedIn, L"not logged in");
    if (peer.isEmpty()) return fail(openim::ResultCode::kInvalidArgument, L"no peer");
    if (TribeRooms::isKey(peer) && !tribes_->isJoined(TribeRooms::idOfKey(peer))) {
        // The room is still being joined (just after sign-in): the send waits for it.
        tribes_->whenJoined(TribeRooms::idOfKey(peer), [this, peer, draft, file, done](bool in) {
            if (in) {
                send(peer, draft, file, done);
            } else if (done) {
                done(draft,
                     openim::ResultCode(openim::ResultCode::kNotFound, L"not in the tribe's room"),
                     openim::ResultCode());
            }
        });
        return;
    }
    if (!isMedia(draft.kind)) {
        // What the sender keeps is what the receiver gets.
        draft.content = MessageCodec::wireText(draft.content);
        draft.summary = MessageCodec::wireText(draft.summary);
        if (draft.kind == openim::kContentText && draft.content.trimmed().isEmpty())
            return fail(openim::ResultCode::kInvalidArgument, L"empty text");
    }
    if (draft.content.size() > MessageCodec::kMaxBodyChars ||
        draft.summary.size() > MessageCodec::kMaxBodyChars)
        return fail(openim::ResultCode::kInvalidArgument, L"message too long");
    if (!isMedia(draft.kind)) {
        sendStored(draft, done);
        return;
    }
    QFileInfo info(file);
    if (!info.isFile() || !info.isReadable())
        return fail(openim::ResultCode::kInvalidArgument, L"cannot read the file");
    draft.summary = info.fileName();
    draft.fileSize = info.size();
    draft.content = info.absoluteFilePath();
    requestSlot({draft, info.absoluteFilePath(), done});
}

void ImEngine::requestSlot(const PendingUpload& upload) {
    // Servers announce their upload service through discovery; until it is known (or if
    // the server does not list it) try the customary "upload.<domain>".
    const QString service =
        upload_->serviceFound() ? QString() : QStringLiteral("upload.") + domain_;
    const QString id = upload_->requestUploadSlot(QFileInfo(upload.file),
                                                  QFileInfo(upload.file).fileName(), service);
    if (id.isEmpty()) {
        if (upload.done)
            upload.done(upload.draft, openim::ResultCode(),
                        openim::ResultCode(openim::ResultCode::kServerError, L"no upload slot"));
        return;
    }
    uploads_.insert(id, upload);
}

void ImEngine::onSlot(const QXmppHttpUploadSlotIq& slot) {
    if (!uploads_.contains(slot.id())) return;
    PendingUpload u = uploads_.take(slot.id());
    const QString mime = QMimeDatabase().mimeTypeForFile(u.file).name();
    transfer_->upload(
        slot.putUrl(), slot.putHeaders(), u.file, mime,
        [this, u, url = slot.getUrl()](bool ok, const QString& error) {
            if (!ok) {
                if (u.done)
                    u.done(u.draft, openim::ResultCode(),
                           openim::ResultCode(openim::ResultCode::kNetworkError, fromQ(error)));
                return;
            }
            StoredMessage draft = u.draft;
            draft.url = url.toString();
            sendStored(draft, u.done);
        });
}

void ImEngine::onSlotFailed(const QXmppHttpUploadRequestIq& request) {
    if (!uploads_.contains(request.id())) return;
    PendingUpload u = uploads_.take(request.id());
    if (u.done)
        u.done(u.draft, openim::ResultCode(),
               openim::ResultCode(openim::ResultCode::kServerError, L"upload refused"));
}

void ImEngine::sendStored(StoredMessage draft, const Sent& done) {
    if (state_ != State::Online) {
        if (done)
            done(draft, openim::ResultCode(openim::ResultCode::kNotLoggedIn), openim::ResultCode());
        return;
    }
    const bool toTribe = TribeRooms::isKey(draft.peer);
    QXmppMessage stanza = MessageCodec::encode(
        draft, toTribe ? tribes_->roomJid(TribeRooms::idOfKey(draft.peer)) : bareJid(draft.peer));
    if (toTribe) stanza.setType(QXmppMessage::GroupChat);
    const bool sent = client_->sendPacket(stanza);
    if (sent) {
        draft.seq = store_.nextSeq();
        if (std::optional<quint64> id = store_.insert(draft)) draft.id = *id;
    }
    if (done)
        done(draft,
             openim::ResultCode(sent ? openim::ResultCode::kOk : openim::ResultCode::kNetworkError),
             openim::ResultCode());
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

void ImEngine::resetHistory(const QString& peer) { cursors_.remove(peer); }

void ImEngine::history(const QString& peer, int count, const HistoryCallback& done) {
    count = std::max(1, count);
    Cursor& cursor = cursors_[peer];
    const auto rows = store_.page(peer, cursor.time, cursor.seq, count);
    if (rows.size() >= count || cursor.archiveDone || state_ != State::Online) {
        deliverHistory(peer, count, done, openim::ResultCode());
        return;
    }
    askArchiveBefore({peer, count, done}, store_.oldestStanzaId(peer));
}

// The archive is asked only for what is older than everything stored: before the oldest
// archive id the store keeps or, without one (or when the server no longer knows it: a new
// server, an emptied archive), up to the second of the oldest stored message. The store
// drops what it already has.
void ImEngine::askArchiveBefore(HistoryQuery q, const QString& storedId) {
    historyOrder_.start(ArchiveOrder::Direction::Backward, q.peer);
    q.fromStoredId = !storedId.isEmpty();
    const qint64 oldest = q.fromStoredId ? 0 : store_.oldestTime(q.peer);
    const QString id = archive_->query(
        bareJid(q.peer), storedId, QString(), std::max(q.count, 20), QString(), QDateTime(),
        oldest > 0 ? QDateTime::fromSecsSinceEpoch(oldest, Qt::UTC) : QDateTime());
    if (id.isEmpty()) {
        deliverHistory(q.peer, q.count, q.done,
                       openim::ResultCode(openim::ResultCode::kNetworkError));
        return;
    }
    historyQueries_.insert(id, q);
}

// What the store holds goes out whatever the archive said: a failing archive only ends the
// paging once nothing older is stored.
void ImEngine::deliverHistory(const QString& peer, int count, const HistoryCallback& done,
                              openim::ResultCode result) {
    Cursor& cursor = cursors_[peer];
    const auto rows = store_.page(peer, cursor.time, cursor.seq, count);
    if (!rows.isEmpty()) {
        cursor.time = rows.first().time;
        cursor.seq = rows.first().seq;
        result = openim::ResultCode();
    }
    std::vector<openim::IMMessage> page;
    for (const StoredMessage& m : rows) page.push_back(toIM(m));
    if (!done.is_null()) done.Run(fromQ(peer), result, page);
}
