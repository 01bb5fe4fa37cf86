#pragma once

#include <QObject>
#include <QPointer>
#include <functional>

#include <QXmppClient.h>

#include "openim/login_params.h"
#include "openim/result_code.h"
#include "sdk/endpoint_list.h"

class ImEngine;
class MediaTransfer;
class QTimer;
class StreamSecurity;

// The session's sign-in state machine: connecting with the account's secret, the sign-in
// deadline, the retries of a first sign-in, relogin and logout, and what a closed stream
// means (refused, insecure, kicked by another desktop, dropped). Reports each step to the
// client's callbacks; sessionStarted() and sessionEnded() tell the engine. SDK thread only.
class EngineSignIn : public QObject {
    Q_OBJECT
public:
    // A first sign-in that fails for the network is tried again this often, after 2 s,
    // 4 s... before the failure is reported; a refused secret is reported at once.
    static constexpr int kRetries = 3;

    // `newClient` replaces the engine's client by a new one and returns it.
    EngineSignIn(ImEngine* engine, MediaTransfer* transfer,
                 std::function<QXmppClient*()> newClient);

    // A new login replaces the running session without reporting its end; the engine opens
    // the account next, then calls signIn().
    void begin(const openim::LoginParam& param);
    void signIn() { connectNow(false); }
    void relogin();
    void logout();
    bool isOnline() const { return state_ == State::Online; }

    // From the current client.
    void onStateChanged(QXmppClient::State state);
    void onError(QXmppClient::Error error);

Q_SIGNALS:
    // Online, after the client heard of it.
    void sessionStarted();
    // The stream is gone (or never came up): what waits on it fails.
    void sessionEnded();

private:
    enum class State { Idle, LoggingIn, Online, ReLoggingIn, Offline, LoggingOut, Kicked };

    void connectNow(bool isRelogin);
    void onLoginTimeout();
    void loginAttemptFailed(const openim::ResultCode& result, bool refused);

    ImEngine* engine_;
    MediaTransfer* transfer_;
    std::function<QXmppClient*()> newClient_;
    openim::LoginParam param_;
    EndpointList endpoints_;  // where the next connection goes first
    bool newRound_ = true;    // the next connection starts a new round through endpoints_
    State state_ = State::Idle;
    QPointer<StreamSecurity> security_;  // of the current client
    QXmppClient::Error lastError_ = QXmppClient::NoError;
    QXmppStanza::Error::Condition streamError_ = QXmppStanza::Error::UndefinedCondition;
    QTimer* loginTimer_ = nullptr;
    int loginAttempt_ = 0;         // failed attempts of the current first sign-in
    quint64 loginGeneration_ = 0;  // a retry belongs to the login() that started it
};
