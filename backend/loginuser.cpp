#include "loginuser.h"

#include <QVariant>

namespace {
QString text(const QJsonObject& o, const char* key) {
    const QJsonValue v = o.value(QLatin1String(key));
    if (v.isString()) return v.toString();
    if (v.isDouble()) return QString::number(v.toVariant().toLongLong());
    return QString();
}
}  // namespace

bool LoginUser::fromJson(const QJsonObject& o, LoginUser* out) {
    LoginUser u;
    u.id = text(o, "id");
    u.nick = text(o, "nick");
    u.username = text(o, "username");
    u.userIcon = text(o, "userIcon");
    u.workNick = text(o, "workNick");
    u.deptName = text(o, "deptName");
    u.loginType = text(o, "loginType");
    u.companyId = text(o, "companyId");
    u.companyName = text(o, "companyName");
    u.crmSys = text(o, "crmSys");
    u.email = text(o, "email");
    u.openId = text(o, "openId");
    u.iosVersion = text(o, "iosVersion");
    u.androidVersion = text(o, "androidVersion");
    u.md5Sign = text(o, "md5Sign");
    u.imAccount = text(o, "imAccount");
    if (u.imAccount.isEmpty()) u.imAccount = u.id;
    u.imSecret = text(o, "imSecret");
    u.imHost = text(o, "imHost");
    u.imDomain = text(o, "imDomain");
    u.imAuthority = text(o, "imAuthority");
    u.imHosts = text(o, "imHosts");
    bool portOk = false;
    const int port = text(o, "imPort").toInt(&portOk);
    if (portOk && port > 0 && port < 65536) u.imPort = port;
    bool idOk = false;
    bool companyOk = false;
    u.id.toULongLong(&idOk);
    u.companyId.toULongLong(&companyOk);
    if (!idOk || !companyOk) return false;
    *out = u;
    return true;
}
