#include "listlogin_t.h"

#include <QJsonArray>

#include "configkeys.h"

namespace quelix {

QByteArray listlogin_t::serialize() const {
    QJsonArray list;
    for (const Entry& e : logins) {
        QJsonObject item;
        item.insert(QStringLiteral("username"), e.username);
        item.insert(QStringLiteral("password"), e.password);
        list.append(item);
    }
    QJsonObject o;
    o.insert(QLatin1String(configKey(kAutoLogin)), autoLogin);
    o.insert(QLatin1String(configKey(kLoginList)), list);
    return toBytes(o);
}

bool listlogin_t::parse(const QByteArray& bytes) {
    QJsonObject o;
    if (!parseObject(bytes, &o)) return false;
    autoLogin = o.value(QLatin1String(configKey(kAutoLogin))).toString();
    logins.clear();
    const QJsonArray list = o.value(QLatin1String(configKey(kLoginList))).toArray();
    for (const QJsonValue& v : list) {
        const QJsonObject item = v.toObject();
        logins.append({item.value(QStringLiteral("username")).toString(),
                       item.value(QStringLiteral("password")).toString()});
    }
    return true;
}

}  // namespace quelix
