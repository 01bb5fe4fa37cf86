#pragma once

// The one table of JSON key names shared by the configuration files and the organisation
// parser. The order is part of the format: code refers to keys by position.
namespace quelix {

enum ConfigKey {
    kAllUserList,
    kProjectList,
    kAutoLogin,
    kLoginList,
    kTalkList,
    kSheildList,  // the muted-conversation key has always been spelled so
    kUserList,
    kKey,
    kID,
    kRole,
    kText,
    kTime,
    kLastTime,
    kThisTime,
    kCount,
    kShotHide,
    kPopup,
    kTrayShining,
    kSound,
    kReply,
    kSuspend,
    kDispose,
    kComplete,
    kCreateAndDelete,
    kUserDir,
    kMsgTime,
    kCloseQuit,
    kCheckState,
    kNetConnect,
    kHtmlText,
    kHtmlImage,
    kHtmlTask,
    kHtmlTable,
    kHtmlDownload,
    kHtmlUpload,
    kHtmlHint,
    kUrlHome,
    kUrlLogin,
    kUrlOrg,
    kUrlGroupList,
    kUrlGroupMember,
    kUrlGroupByID,
    kUrlGroupByOpIM,
    kUrlUsers,
    kUrlMD5,
    kUrlOpen,
    kUrlDetail,
    kUrlDownload,
    kUrlUpload,
    kUrlDelTribe,
    kUrlTaskReaded,
    kDownloadDir,
    kShownAtThisTime,
    kLastShownId,
    kConfigKeyCount
};

const char* configKey(ConfigKey key);

}  // namespace quelix
