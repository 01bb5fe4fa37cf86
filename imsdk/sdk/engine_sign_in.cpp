// The session's sign-in state machine: connect, deadline, retries, relogin, logout, kicks.
#include "sdk/engine_sign_in.h"

#include <QXmppConfiguration.h>
#include <QCryptographicHash>
#include <QSysInfo>
#include <QTimer>

#include "sdk/im_engine.h"
#include "sdk/media_transfer.h"
#include "sdk/stream_security.h"
#include "sdk/wide_text.h"

using wide_text::fromQ;
using wide_text::toQ;

namespace {

// One resource per desktop, so that signing in on a second desktop ends the first
// session (the server resolves the conflict) while a relogin here replaces our own.
QString desktopResource() {
    QByteArray machine = QSysInfo::machineUniqueId();
    if (machine.isEmpty()) machine = QSysInfo::machineHostName().toUtf8();
    return QStringLiteral("desktop-") +
           QString::fromLatin1(
               QCryptographicHash::hash(machine, QCryptographicHash::Sha1).toHex().left(12));
}

}  // namespace

EngineSignIn::EngineSignIn(ImEngine* engine, MediaTransfer* transfer,
                           std::function<QXmppClient*()> newClient)
    : QObject(engine), engine_(engine), transfer_(transfer), newClient_(std::move(newClient)) {}

void EngineSignIn::begin(const openim::LoginParam& param) {
    ++loginGeneration_;
    loginAttempt_ = 0;
    if (state_ == State::Online || state_ == State::LoggingIn || state_ == State::ReLoggingIn) {
        state_ = State::Idle;
        engine_->xmppClient()->disconnectFromServer();
    }
    param_ = param;
    QString problem;
    endpoints_ = param.endpoints.empty()
                     ? EndpointList()
                     : EndpointList::parse(toQ(param.endpoints), param.port, &problem);
    if (!param.endpoints.empty() && endpoints_.isEmpty())
        qWarning().noquote() << "imsdk: the server list is not usable (" << problem
                             << "); using the one server";
}

void EngineSignIn::relogin() {
    if (state_ == State::Online) {
        ImEngine::Callbacks& callbacks = engine_->callbacks();
        if (!callbacks.reloginOk.is_null()) callbacks.reloginOk.Run({engine_->loginUser()});
        return;
    }
    if (engine_->account().isEmpty() || state_ == State::LoggingIn || state_ == State::ReLoggingIn)
        return;
    connectNow(true);
}

void EngineSignIn::logout() {
    ++loginGeneration_;
    if (loginTimer_) loginTimer_->stop();
    QXmppClient* client = engine_->xmppClient();
    if (client->state() != QXmppClient::DisconnectedState) {
        state_ = State::LoggingOut;
        client->disconnectFromServer();
        return;
    }
    state_ = State::Idle;
    ImEngine::Callbacks& callbacks = engine_->callbacks();
    if (!callbacks.logouted.is_null()) callbacks.logouted.Run({engine_->loginUser()});
}

void EngineSignIn::connectNow(bool isRelogin) {
    state_ = isRelogin ? State::ReLoggingIn : State::LoggingIn;
    lastError_ = QXmppClient::NoError;
    streamError_ = QXmppStanza::Error::UndefinedCondition;
    ImEngine::Callbacks& callbacks = engine_->callbacks();
    if (!callbacks.loginStep.is_null()) callbacks.loginStep.Run({openim::LoginStep::kConnecting});
    const QString& domain = engine_->domain();
    QXmppConfiguration config;
    config.setUser(engine_->account());
    config.setDomain(domain);
    config.setPassword(toQ(param_.secret));
    if (endpoints_.isEmpty()) {
        config.setHost(param_.host.empty() ? domain : toQ(param_.host));
        config.setPort(param_.port);
    } else {
        config.setHost(endpoints_.current().host);
        config.setPort(quint16(endpoints_.current().port));
    }
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
    QXmppClient* client = newClient_();
    security_ = new StreamSecurity(client, tlsRequired);
    transfer_->setAuthorities(StreamSecurity::authorities(toQ(param_.caFile)));
    if (!loginTimer_) {
        loginTimer_ = new QTimer(this);
        loginTimer_->setSingleShot(true);
        connect(loginTimer_, &QTimer::timeout, this, &EngineSignIn::onLoginTimeout);
    }
    // A sign-in that has not finished by then will not: a server that accepts the
    // connection and then stalls (replacing a dead session of ours, overloaded) would
    // otherwise hold it for ever.
    loginTimer_->start(std::max(1000, int(param_.signInTimeoutMs)));
    client->connectToServer(config);
}

void EngineSignIn::onLoginTimeout() {
    if (state_ != State::LoggingIn && state_ != State::ReLoggingIn) return;
    qWarning().noquote() << "imsdk: sign-in to" << engine_->domain() << "not finished within"
                         << loginTimer_->interval() << "ms";
    // A new client drops the stalled connection without hearing from it again.
    newClient_();
    loginAttemptFailed(
        openim::ResultCode(openim::ResultCode::kTimeout, L"the server did not finish the sign-in"),
        false);
}

// The end of a sign-in that did not reach the online state.
void EngineSignIn::loginAttemptFailed(const openim::ResultCode& result, bool refused) {
    if (loginTimer_) loginTimer_->stop();
    ImEngine::Callbacks& callbacks = engine_->callbacks();
    if (state_ == State::ReLoggingIn) {
        // The client's heartbeat decides when to try again.
        state_ = State::Offline;
        emit sessionEnded();
        if (!callbacks.reloginFail.is_null()) callbacks.reloginFail.Run({result});
        return;
    }
    emit sessionEnded();
    if (!refused && !newRound_) {
        // Another node of the cluster may well be up: it is tried at once.
        QTimer::singleShot(0, this, [this, generation = loginGeneration_] {
            if (generation == loginGeneration_ && state_ == State::LoggingIn) connectNow(false);
        });
        return;
    }
    if (!refused && ++loginAttempt_ <= kRetries) {
        const int pauseMs = 1000 << loginAttempt_;
        qInfo().noquote() << "imsdk: sign-in attempt" << loginAttempt_ << "failed ("
                          << toQ(result.text) << "); again in" << pauseMs / 1000 << "s";
        QTimer::singleShot(pauseMs, this, [this, generation = loginGeneration_] {
            if (generation == loginGeneration_ && state_ == State::LoggingIn) connectNow(false);
        });
        return;
    }
    state_ = State::Idle;
    if (!callbacks.loginFail.is_null()) callbacks.loginFail.Run({result});
}

void EngineSignIn::onError(QXmppClient::Error error) {
    // Over TLS the server's stream error (a kick, a refused secret) is followed by the socket
    // closing under it; the stream error is what happened.
    if (error == QXmppClient::SocketError && lastError_ == QXmppClient::XmppStreamError) return;
    lastError_ = error;
    if (error == QXmppClient::XmppStreamError)
        streamError_ = engine_->xmppClient()->xmppStreamError();
}

void EngineSignIn::onStateChanged(QXmppClient::State state) {
    ImEngine::Callbacks& callbacks = engine_->callbacks();
    if (state == QXmppClient::ConnectedState) {
        const bool wasRelogin = state_ == State::ReLoggingIn;
        if (state_ != State::LoggingIn && state_ != State::ReLoggingIn) return;
        if (loginTimer_) loginTimer_->stop();
        loginAttempt_ = 0;
        state_ = State::Online;
        if (wasRelogin) {
            if (!callbacks.reloginOk.is_null()) callbacks.reloginOk.Run({engine_->loginUser()});
        } else if (!callbacks.loginOk.is_null()) {
            callbacks.loginOk.Run({engine_->loginUser()});
        }
        if (!callbacks.pushStarted.is_null()) callbacks.pushStarted.Run({fromQ(engine_->domain())});
        emit sessionStarted();
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
        qWarning().noquote() << "imsdk: sign-in to" << engine_->domain() << "refused:" << insecure;
    const openim::ResultCode result(
        !insecure.isEmpty() ? openim::ResultCode::kInsecure
        : refused           ? openim::ResultCode::kAuthFailed
                            : openim::ResultCode::kNetworkError,
        fromQ(!insecure.isEmpty() ? insecure
                                  : QStringLiteral("connection closed (error %1, stream error %2)")
                                        .arg(int(lastError_))
                                        .arg(int(streamError_))));
    // The next connection goes to the next node: this one is unreachable or let us go.
    // (Once per connection: a closing client can report the end more than once.)
    newRound_ = true;
    const bool ended = was == State::LoggingIn || was == State::ReLoggingIn || was == State::Online;
    if (ended && !refused && endpoints_.size() > 1) {
        newRound_ = endpoints_.advance();
        qInfo().noquote() << "imsdk: next connection to" << endpoints_.current().host
                          << endpoints_.current().port;
    }
    switch (was) {
        case State::LoggingIn:
        case State::ReLoggingIn:
            loginAttemptFailed(result, refused);
            break;
        case State::Online:
            emit sessionEnded();
            if (lastError_ == QXmppClient::XmppStreamError &&
                streamError_ == QXmppStanza::Error::Conflict) {
                state_ = State::Kicked;
                if (!callbacks.pushKicked.is_null())
                    callbacks.pushKicked.Run({L"signed in on another desktop"});
                if (!callbacks.kicked.is_null())
                    callbacks.kicked.Run({L"signed in on another desktop"});
            } else {
                state_ = State::Offline;
                if (!callbacks.pushStopped.is_null()) callbacks.pushStopped.Run({result});
                if (!callbacks.disconnected.is_null()) callbacks.disconnected.Run({result});
            }
            break;
        case State::LoggingOut:
            state_ = State::Idle;
            emit sessionEnded();
            if (!callbacks.pushStopped.is_null()) callbacks.pushStopped.Run({openim::ResultCode()});
            if (!callbacks.logouted.is_null()) callbacks.logouted.Run({engine_->loginUser()});
            break;
        default:
            break;
    }
}
