#pragma once

#include <QObject>

#include "loginuser.h"

class DirectoryClient;
class DirectoryStore;
class Requester;

// The back-end half of signing in: the log-in form, the signature token, the
// organisation, then the user's own folders. The IM half follows once this succeeds.
class LoginRequestManager : public QObject {
    Q_OBJECT
public:
    // Results reported through httpBack.
    enum Result { Success = 0, NetworkFailed = 1, BadReply = 2, Refused = 3, Insecure = 4 };

    LoginRequestManager(Requester* requester, DirectoryStore* store, QObject* parent = nullptr);

    const LoginUser& user() const { return user_; }
    bool isBusy() const { return busy_; }

    // Texts the log-in window shows.
    static QString textFor(Result result, const QString& serverText = QString());

public slots:
    // isCheckBeta: the request already goes to the beta service; a second redirect there
    // is not followed.
    void onLoginRequest(const QString& userName, const QString& password, bool isCheckBeta);

signals:
    void httpBack(int retcode, const QString& text);
    void loggedIn(const LoginUser& user);

private:
    void fail(Result result, const QString& serverText = QString());
    void fetchToken();
    void fetchOrganisation();

    Requester* requester_;
    DirectoryStore* store_;
    DirectoryClient* directory_;
    LoginUser user_;
    bool busy_ = false;
};
