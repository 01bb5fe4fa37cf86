#include "listtalk_t.h"

#include <QJsonArray>

#include <QVariant>
#include <algorithm>

#include "configkeys.h"

namespace quelix {

namespace {
QLatin1String k(ConfigKey key) { return QLatin1String(configKey(key)); }

// JSON numbers go through QVariant so 64-bit ids keep every digit (a double would not).
quint64 unsigned64(const QJsonValue& v) { return quint64(v.toVariant().toLongLong()); }
}  // namespace

QByteArray listtalk_t::serialize() const {
    QJsonArray list;
    for (const Entry& e : entries) {
        QJsonObject item;
        item.insert(k(kKey), int64Value(qint64(e.key)));
        item.insert(k(kID), int64Value(qint64(e.id)));
        item.insert(k(kRole), int64Value(qint64(e.role)));
        item.insert(QStringLiteral("companyId"), int64Value(qint64(e.companyId)));
        item.insert(k(kLastTime), int64Value(e.lastTime));
        item.insert(k(kTime), int64Value(qint64(e.time)));
        item.insert(k(kText), e.text);
        list.append(item);
    }
    QJsonObject o;
    o.insert(k(kTalkList), list);
    return toBytes(o);
}

bool listtalk_t::parse(const QByteArray& bytes) {
    QJsonObject o;
    if (!parseObject(bytes, &o)) return false;
    entries.clear();
    for (const QJsonValue& v : o.value(k(kTalkList)).toArray()) {
        const QJsonObject item = v.toObject();
        Entry e;
        e.companyId = unsigned64(item.value(QStringLiteral("companyId")));
        e.role = unsigned64(item.value(k(kRole)));
        e.key = unsigned64(item.value(k(kKey)));
        e.id = unsigned64(item.value(k(kID)));
        e.time = unsigned64(item.value(k(kTime)));
        e.text = item.value(k(kText)).toString();
        e.lastTime = quint32(item.value(k(kLastTime)).toVariant().toLongLong());
        entries.append(e);
    }
    return true;
}

bool listtalk_t::add(const Entry& entry) {
    if (contains(entry.id)) return false;
    entries.append(entry);
    return true;
}

bool listtalk_t::remove(quint64 id) {
    const int before = entries.size();
    entries.erase(
        std::remove_if(entries.begin(), entries.end(), [id](const Entry& e) { return e.id == id; }),
        entries.end());
    return entries.size() != before;
}

bool listtalk_t::raise(quint64 id) {
    const auto it =
        std::find_if(entries.begin(), entries.end(), [id](const Entry& e) { return e.id == id; });
    if (it == entries.end() || it == entries.end() - 1) return false;
    const Entry moved = *it;
    entries.erase(it);
    entries.append(moved);
    return true;
}

bool listtalk_t::contains(quint64 id) const {
    return std::any_of(entries.begin(), entries.end(), [id](const Entry& e) { return e.id == id; });
}

}  // namespace quelix
