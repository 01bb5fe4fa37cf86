#include "userconfig_t.h"

#include <QVariant>

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
    return toBytes(o);
}

bool userconfig_t::parse(const QByteArray& bytes) {
    QJsonObject o;
    if (!parseObject(bytes, &o)) return false;
    for (const FlagField& f : kFlags) this->*f.field = flag(o, configKey(f.key), f.defaultText);
    // Through QVariant so that times beyond 2^53 keep every digit.
    thisTime = o.value(QLatin1String(configKey(kThisTime))).toVariant().toLongLong();
    return true;
}

}  // namespace quelix
