#pragma once

#include <QObject>
#include <QString>
#include <QTimer>
#include <map>

#include "loginuser.h"
#include "openim/im_user_id.h"
#include "openim/im_user_status.h"
#include "openim/result_code.h"

class OpenIMManager;

// The IM session: signing in and out, the heartbeat (a presence request every interval,
// which also keeps the colleagues' online marks true) and signing in again, on a timer, after
// the connection dropped. GUI thread; the SDK's reports come in through the core.
class ImSession : public QObject {
    Q_OBJECT
public:
    // The SDK reports presence and sync to `core`, which hands them back here.
    explicit ImSession(OpenIMManager* core);

    void login(const LoginUser& user);
    void logout();

    // The SDK's reports.
    void loginOk(const openim::IMUserID& user);
    void loginFailed(int code);
    void kicked();
    void reloginOk();
    void connectionLost();
    void presenceAnswered(const openim::ResultCode& result,
                          const std::map<openim::IMUserID, openim::IMUserStatus>& status);
    // The relogin timer ran out: another try.
    void retry();

    QString ownId() const;
    bool isLoggedIn() const { return loggedIn_; }
    bool sessionTimerRunning() const { return timerRunning_ && timerId_ != 0; }
    bool retryTimerRunning() const { return retryTimer_.isActive(); }
    bool presencePending() const { return presencePending_; }

signals:
    void onlineState(const QString& userId);
    void network(bool online);
    void landed(bool landed);
    void loginResult(int code);
    // A log-in request is about to go out.
    void signingIn();
    // After everything a sign-in tells the views (the last: landed(true)).
    void signedIn();
    // Signed in again after the connection dropped.
    void reconnected();

protected:
    void timerEvent(QTimerEvent* event) override;

private:
    void requestPresence();
    void registerSync();
    void startSessionTimer();

    OpenIMManager* core_;
    openim::IMUserID ownUser_;
    bool timerRunning_ = false;
    int timerId_ = 0;
    bool presencePending_ = false;
    bool loggedIn_ = false;
    bool loginRequested_ = false;
    QTimer retryTimer_;
};
