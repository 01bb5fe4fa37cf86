#include "configkeys.h"

namespace quelix {

namespace {
const char* const kNames[kConfigKeyCount] = {
    "allUserList",
    "projectList",
    "AutoLogin",
    "LoginList",
    "TalkList",
    "SheildList",
    "userList",
    "Key",
    "ID",
    "Role",
    "Text",
    "Time",
    "LastTime",
    "ThisTime",
    "Count",
    "ShotHide",
    "Popup",
    "TrayShining",
    "Sound",
    "Reply",
    "Suspend",
    "Dispose",
    "Complete",
    "CreateAndDelete",
    "UserDir",
    "MsgTime",
    "CloseQuit",
    "CheckState",
    "NetConnect",
    "HtmlText",
    "HtmlImage",
    "HtmlTask",
    "HtmlTable",
    "HtmlDownload",
    "HtmlUpload",
    "HtmlHint",
    "UrlHome",
    "UrlLogin",
    "UrlOrg",
    "UrlGroupList",
    "UrlGroupMember",
    "UrlGroupByID",
    "UrlGroupByOpIM",
    "UrlUsers",
    "UrlMD5",
    "UrlOpen",
    "UrlDetail",
    "UrlDownload",
    "UrlUpload",
    "UrlDelTribe",
    "UrlTaskReaded",
    "DownloadDir",
    "ShownAtThisTime",
    "LastShownId",
};
}  // namespace

const char* configKey(ConfigKey key) {
    return key >= 0 && key < kConfigKeyCount ? kNames[key] : "";
}

}  // namespace quelix
