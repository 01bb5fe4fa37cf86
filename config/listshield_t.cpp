#include "listshield_t.h"

#include <QJsonArray>

#include <QVariant>
#include <algorithm>

#include "configkeys.h"

namespace quelix {

namespace {
QLatin1String k(ConfigKey key) { return QLatin1String(configKey(key)); }
quint64 unsigned64(const QJsonValue& v) { return quint64(v.toVariant().toLongLong()); }
}  // namespace

QByteArray listshield_t::serialize() const {
    QJsonArray list;
    for (const Entry& e : entries) {
        QJsonObject item;
        item.insert(k(kID), int64Value(qint64(e.id)));
        item.insert(k(kRole), int64Value(qint64(e.role)));
        item.insert(QStringLiteral("companyId"), int64Value(qint64(e.companyId)));
        item.insert(k(kTime), int64Value(qint64(e.time)));
        list.append(item);
    }
    QJsonObject o;
    o.insert(k(kSheildList), list);
    return toBytes(o);
}

bool listshield_t::parse(const QByteArray& bytes) {
    QJsonObject o;
    if (!parseObject(bytes, &o)) return false;
    entries.clear();
    for (const QJsonValue& v : o.value(k(kSheildList)).toArray()) {
        const QJsonObject item = v.toObject();
        entries.append({unsigned64(item.value(k(kID))), unsigned64(item.value(k(kRole))),
                        unsigned64(item.value(QStringLiteral("companyId"))),
                        unsigned64(item.value(k(kTime)))});
    }
    return true;
}

bool listshield_t::isShielded(quint64 id) const {
    return std::any_of(entries.begin(), entries.end(), [id](const Entry& e) { return e.id == id; });
}

bool listshield_t::setShielded(const Entry& entry, bool shielded) {
    if (shielded) {
        if (isShielded(entry.id)) return false;
        entries.append(entry);
        return true;
    }
    const int before = entries.size();
    entries.erase(std::remove_if(entries.begin(), entries.end(),
                                 [&](const Entry& e) { return e.id == entry.id; }),
                  entries.end());
    return entries.size() != before;
}

}  // namespace quelix
