#include "userconfig_t.h"

#include <QJsonArray>
#include <QVariant>
#include <algorithm>

#include "configkeys.h"

namespace quelix {

namespace {
struct FlagField {
    ConfigKey key;
    bool userconfig_t::*field;
    const char* defaultText;
};

const FlagField kFlags[] = {
    {kSound, &userconfig_t::sound, "true"},
    {kPopup, &userconfig_t::popup, "true"},
    {kTrayShining, &userconfig_t::trayShining, "true"},
    {kShotHide, &userconfig_t::shotHide, "false"},
    {kReply, &userconfig_t::reply, "true"},
    {kSuspend, &userconfig_t::suspend, "true"},
    {kDispose, &userconfig_t::dispose, "false"},
    {kComplete, &userconfig_t::complete, "true"},
    {kCreateAndDelete, &userconfig_t::createAndDelete, "true"},
};
}  // namespace

QByteArray userconfig_t::serialize() const {
    QJsonObject o;
    for (const FlagField& f : kFlags)
        o.insert(QLatin1String(configKey(f.key)), flagText(this->*f.field));
    o.insert(QLatin1String(configKey(kThisTime)), int64Value(thisTime));
    if (shownAtThisTimeKnown) {
        QList<quint64> ids = shownAtThisTime.values();
        std::sort(ids.begin(), ids.end());
        QJsonArray shown;
        for (quint64 id : ids) shown.append(int64Value(qint64(id)));
        o.insert(QLatin1String(configKey(kShownAtThisTime)), shown);
    }
    o.insert(QLatin1String(configKey(kLastShownId)), int64Value(qint64(lastShownId)));
    return toBytes(o);
}

bool userconfig_t::parse(const QByteArray& bytes) {
    QJsonObject o;
    if (!parseObject(bytes, &o)) return false;
    for (const FlagField& f : kFlags) this->*f.field = flag(o, configKey(f.key), f.defaultText);
    // Through QVariant so that times beyond 2^53 keep every digit.
    thisTime = o.value(QLatin1String(configKey(kThisTime))).toVariant().toLongLong();
    const QJsonValue shown = o.value(QLatin1String(configKey(kShownAtThisTime)));
    shownAtThisTimeKnown = shown.isArray();
    shownAtThisTime.clear();
    for (const QJsonValue& id : shown.toArray()) {
        const qint64 value = id.toVariant().toLongLong();
        if (value > 0) shownAtThisTime.insert(quint64(value));
    }
    lastShownId = quint64(std::max<qint64>(
        0, o.value(QLatin1String(configKey(kLastShownId))).toVariant().toLongLong()));
    return true;
}

}  // namespace quelix
