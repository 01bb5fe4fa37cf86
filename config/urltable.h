#pragma once

#include <QString>

// The fifteen back-end addresses, in their fixed order, with the built-in defaults used
// when "UrlText.ini" holds no value.
namespace UrlTable {

enum Key {
    UrlHome,
    UrlLogin,
    UrlOrg,
    UrlGroupList,
    UrlGroupMember,
    UrlGroupByID,
    UrlGroupByOpIM,
    UrlUsers,
    UrlMD5,
    UrlOpen,
    UrlDetail,
    UrlDownload,
    UrlUpload,
    UrlDelTribe,
    UrlTaskReaded,
    Count
};

// The company's production and test back-end hosts. switchHost swaps one for the other
// inside every address, so both have the same length.
extern const char* const kProductionHost;
extern const char* const kTestHost;

const char* keyName(Key key);
// "http://" + the production host: where the built-in addresses point.
QString defaultRoot();
// The built-in address of a key under a host root; an empty root leaves it relative.
QString defaultUrl(Key key, const QString& root = defaultRoot());

}  // namespace UrlTable
