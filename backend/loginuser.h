#pragma once

#include <QJsonObject>
#include <QMetaType>
#include <QString>

// The signed-in user as the back end's log-in reply describes them, with what the IM
// session needs (the IM account, its own secret and the server's address).
struct LoginUser {
    QString id;
    QString nick;
    QString username;
    QString userIcon;
    QString workNick;
    QString deptName;
    QString loginType;
    QString companyId;
    QString companyName;
    QString crmSys;
    QString email;
    QString openId;
    QString iosVersion;
    QString androidVersion;
    QString md5Sign;
    QString imAccount;  // the directory id when the back end names none
    QString imSecret;
    QString imHost;
    QString imDomain;
    int imPort = 5222;
    // Every node of a clustered IM service, "host:port,host:port", in the order to try them;
    // empty when the back end names only imHost and imPort.
    QString imHosts;
    // The back end's own IM account: the only one whose tribe notices are believed.
    QString imAuthority;

    // False when the reply lacks what a session cannot do without (the ids).
    static bool fromJson(const QJsonObject& o, LoginUser* out);
};

Q_DECLARE_METATYPE(LoginUser)
