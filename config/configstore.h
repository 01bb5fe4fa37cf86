#pragma once

#include <QString>
#include <QStringList>

#include "listlogin_t.h"
#include "listshield_t.h"
#include "listtalk_t.h"
#include "settings_t.h"
#include "urltable.h"
#include "userconfig_t.h"

// The configuration tree under <Documents>/Quelix: folders and files by number, and one
// object per JSON file. Process-wide through instance(); tests build their own on a
// folder of their choosing.
class ConfigStore {
public:
    enum Folder {
        Base = 0,
        UserData = 1,
        AllUsers = 2,
        PerUser = 3,
        Receive = 4,
        UserConfig = 5,
        Cache = 6,
        Record = 7,
        Config = 8,
        Resource = 9,
        ResourceText = 10,
        ResourceHtml = 11,
        ResourceImage = 12,
        Emoji = 13,
        Avatar = 14,
        ScreenShot = 15,
        Log = 16,
        OpenIM = 17,
        Dump = 18,
        Download = 19,  // received files: the folder chosen in the settings, else <base>/Download
        Update = 20,
        FolderCount = 21
    };

    enum File {
        UpdatePackage = 0,
        UpdatePackageMac = 1,
        UpdateIni = 2,
        UpdateContent = 3,
        ExistFile = 4,
        RoleDetail = 5,
        LoginListFile = 6,
        UrlTextFile = 7,
        GlobalSettings = 8,
        TalkListFile = 9,
        ShieldListFile = 10,
        UserSettings = 11,
        DefaultAvatar = 12,
        HtmlListFile = 13,
        StyleHtml = 14,
        OrgIcon = 15,
        OrgIcon2 = 16,
        DefaultUserIcon = 17,
        DefaultUserIconGray = 18,
        TribeIcon = 19,
        FileCount = 20
    };

    static constexpr const char* kVersion = "1.1.9.0";
    static const QStringList& htmlKeys();

    static ConfigStore& instance();

    // baseFolder empty: <first documents location>/Quelix.
    explicit ConfigStore(const QString& baseFolder = QString());
    ConfigStore(const ConfigStore&) = delete;
    ConfigStore& operator=(const ConfigStore&) = delete;

    // Start-up: version, folder tree, then the html table, URL table, global settings
    // and remembered logins.
    void init();
    // After a sign-in: the user's own folders and files.
    void setUser(quint64 firstId, quint64 secondId);
    bool hasUser() const { return hasUser_; }

    QString folderPath(int folderNo) const;
    QString filePath(int fileNo) const;

    // Key-value files. writeValue replaces the whole file with an object of one key.
    QString readValue(int fileNo, const QString& key,
                      const QString& defaultValue = QString()) const;
    bool writeValue(int fileNo, const QString& key, const QString& value) const;
    static QString readValueAt(const QString& path, const QString& key,
                               const QString& defaultValue = QString());

    // The URL table, kept whole in memory and in "UrlText.ini".
    // The host root of the built-in addresses, for keys the file does not name. Set before
    // init(); an empty root leaves the built-in addresses relative.
    void setUrlRoot(const QString& root) { urlRoot_ = root; }
    QString url(UrlTable::Key key) const;
    void setUrl(UrlTable::Key key, const QString& value);
    bool saveUrlTable() const;
    void switchHost(bool toTest);

    QString htmlValue(const QString& key) const;

    quelix::settings_t& settings() { return settings_; }
    quelix::userconfig_t& userConfig() { return userConfig_; }
    quelix::listlogin_t& loginList() { return loginList_; }
    quelix::listtalk_t& talkList() { return talkList_; }
    quelix::listshield_t& shieldList() { return shieldList_; }

private:
    void loadUrlTable();
    void loadHtmlTable();
    QString userDataRoot() const;

    QString base_;
    QString urlRoot_ = UrlTable::defaultRoot();
    bool hasUser_ = false;
    quint64 firstId_ = 0;
    quint64 secondId_ = 0;
    QString urls_[UrlTable::Count];
    QStringList html_;

    quelix::settings_t settings_;
    quelix::userconfig_t userConfig_;
    quelix::listlogin_t loginList_;
    quelix::listtalk_t talkList_;
    quelix::listshield_t shieldList_;
};
