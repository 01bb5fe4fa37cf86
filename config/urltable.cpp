#include "urltable.h"

#include "configkeys.h"

namespace UrlTable {

const char* const kProductionHost = "quelix.work";
const char* const kTestHost = "beta.qx.net";
static_assert(sizeof("quelix.work") == 12 && sizeof("beta.qx.net") == 12,
              "the two back-end hosts are swapped in place and must be 11 characters long");

namespace {
const char* const kPaths[Count] = {
    "",
    "/work/checkIn.htm?m=MobileLogin",
    "/work/mobileUserInfo.htm?m=findAllUserAndDept",
    "/work/project.htm?m=myProjectList",
    "/work/gen.htm?m=user",
    "/work/mobileProject.htm?m=queryProjectById",
    "/work/mobileProject.htm?m=projectInfoByOpenimId",
    "/work/mobileUserInfo.htm?m=findSomeOne",
    "/rest/auth/client.htm",
    "/work/checkIn.htm",
    "/work/UserSet.htm",
    "/work/attachment",
    "/work/mobileTopic.htm?m=uploadFromPC",
    "/work/editProj.htm",
    "/work/notifies.htm?m=getTaskReadFlag",
};
}  // namespace

const char* keyName(Key key) {
    return key >= 0 && key < Count ? quelix::configKey(quelix::ConfigKey(quelix::kUrlHome + key))
                                   : "";
}

QString defaultRoot() { return QStringLiteral("http://") + QLatin1String(kProductionHost); }

QString defaultUrl(Key key, const QString& root) {
    if (key < 0 || key >= Count) return QString();
    QString base = root;
    while (base.endsWith(QLatin1Char('/'))) base.chop(1);
    return base + QLatin1String(kPaths[key]);
}

}  // namespace UrlTable
