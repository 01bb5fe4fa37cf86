#include "configstore.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStandardPaths>

#include "configkeys.h"

namespace {

const char* const kFolderNames[ConfigStore::FolderCount] = {
    ".",
    "User Data",
    "All Users",
    "",
    "Receive",
    "Config",
    "Cache",
    "Record",
    "Config",
    "Resource",
    "Resource/Text",
    "Resource/HTML",
    "Resource/Image",
    "Resource/Image/Emoji",
    "Resource/Image/Avatar",
    "Resource/Image/ScreenShot",
    "Log",
    "OpenIM",
    "Dump",
    "Download",
    "Update",
};

struct FileEntry {
    const char* name;
    int folder;  // -1: a built-in resource, returned as it is
};

// "existFile.ini" has no folder of its own in the table; it sits with the global
// configuration files.
const FileEntry kFiles[ConfigStore::FileCount] = {
    {"QX.zip", 20},
    {"QX_mac.zip", 20},
    {"QX_update.ini", 20},
    {"updateContent.txt", 20},
    {"existFile.ini", 8},
    {"RoleDetail.ini", 2},
    {"LoginList.db", 8},
    {"UrlText.ini", 10},
    {"Settings.ini", 8},
    {"TalkList.db", 3},
    {"ShieldList.db", 3},
    {"Settings.ini", 3},
    {"def_user.png", 14},
    {"HtmlList.ini", 11},
    {"style.html", 11},
    {":/resource/style/images/iconfont-zuzhijiagou.png", -1},
    {":/resource/style/images/iconfont-zuzhijiagou.png", -1},
    {":/resource/Chat/default_user_icon.png", -1},
    {":/resource/Chat/default_user_icon_gray.png", -1},
    {":/resource/Chat/tribeIcon_avatar.png", -1},
};

QJsonObject readObject(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return QJsonObject();
    return QJsonDocument::fromJson(file.readAll()).object();
}

}  // namespace

const QStringList& ConfigStore::htmlKeys() {
    static const QStringList keys = [] {
        QStringList k;
        for (int i = quelix::kHtmlText; i <= quelix::kHtmlHint; ++i)
            k << QLatin1String(quelix::configKey(quelix::ConfigKey(i)));
        return k;
    }();
    return keys;
}

ConfigStore& ConfigStore::instance() {
    static ConfigStore store;
    return store;
}

ConfigStore::ConfigStore(const QString& baseFolder) : base_(baseFolder) {
    if (base_.isEmpty()) {
        const QStringList docs =
            QStandardPaths::standardLocations(QStandardPaths::DocumentsLocation);
        base_ = (docs.isEmpty() ? QDir::homePath() : docs.first()) + QStringLiteral("/Quelix");
    }
    for (int i = 0; i < UrlTable::Count; ++i) urls_[i] = UrlTable::defaultUrl(UrlTable::Key(i));
    for (int i = 0; i < htmlKeys().size(); ++i) html_ << QString();
}

void ConfigStore::init() {
    QCoreApplication::setApplicationVersion(QLatin1String(kVersion));
    for (int folder :
         {Config, UserData, AllUsers, ResourceImage, Avatar, ScreenShot, ResourceText, Update})
        QDir().mkpath(folderPath(folder));

    loadHtmlTable();
    loadUrlTable();
    saveUrlTable();

    settings_.setPath(filePath(GlobalSettings));
    if (!settings_.load()) settings_.save();  // first start, or a garbled file replaced
    if (!settings_.userDir().isEmpty()) {
        QDir().mkpath(folderPath(UserData));
        QDir().mkpath(folderPath(AllUsers));
    }

    loginList_.setPath(filePath(LoginListFile));
    loginList_.load();
}

void ConfigStore::setUser(quint64 firstId, quint64 secondId) {
    firstId_ = firstId;
    secondId_ = secondId;
    hasUser_ = true;
    for (int folder : {PerUser, Receive, UserConfig, Cache, Record})
        QDir().mkpath(folderPath(folder));

    // Start from defaults: nothing of the previous user may leak into this one.
    talkList_ = quelix::listtalk_t();
    talkList_.setPath(filePath(TalkListFile));
    talkList_.load();

    shieldList_ = quelix::listshield_t();
    shieldList_.setPath(filePath(ShieldListFile));
    shieldList_.load();

    userConfig_ = quelix::userconfig_t();
    userConfig_.setPath(filePath(UserSettings));
    if (!QFile::exists(userConfig_.path())) userConfig_.save();
    userConfig_.load();
}

QString ConfigStore::userDataRoot() const {
    return settings_.userDir().isEmpty() ? base_ + QStringLiteral("/User Data")
                                         : settings_.userDir();
}

QString ConfigStore::folderPath(int folderNo) const {
    switch (folderNo) {
        case Base:
            return base_;
        case UserData:
            return userDataRoot();
        case AllUsers:
            return userDataRoot() + QLatin1Char('/') + QLatin1String(kFolderNames[AllUsers]);
        case PerUser:
            // No user yet: no per-user path, so nothing lands in a folder of nobody's.
            if (!hasUser_) return QString();
            return userDataRoot() + QLatin1Char('/') + QString::number(firstId_) +
                   QLatin1Char('_') + QString::number(secondId_);
        case Download:
            // The one folder received files go to, and the one the settings page shows.
            if (!settings_.downloadDir().isEmpty()) return settings_.downloadDir();
            return base_ + QLatin1Char('/') + QLatin1String(kFolderNames[Download]);
        case Receive:
        case UserConfig:
        case Cache:
        case Record:
            if (!hasUser_) return QString();
            return folderPath(PerUser) + QLatin1Char('/') + QLatin1String(kFolderNames[folderNo]);
        default:
            if (folderNo > Record && folderNo < FolderCount)
                return base_ + QLatin1Char('/') + QLatin1String(kFolderNames[folderNo]);
            return QString();
    }
}

QString ConfigStore::filePath(int fileNo) const {
    if (fileNo < 0 || fileNo >= FileCount) return QString();
    const FileEntry& f = kFiles[fileNo];
    if (f.folder < 0) return QLatin1String(f.name);
    const QString folder = folderPath(f.folder);
    if (folder.isEmpty()) return QString();
    return folder + QLatin1Char('/') + QLatin1String(f.name);
}

QString ConfigStore::readValueAt(const QString& path, const QString& key,
                                 const QString& defaultValue) {
    const QJsonObject o = readObject(path);
    return o.contains(key) ? o.value(key).toString() : defaultValue;
}

QString ConfigStore::readValue(int fileNo, const QString& key, const QString& defaultValue) const {
    return readValueAt(filePath(fileNo), key, defaultValue);
}

bool ConfigStore::writeValue(int fileNo, const QString& key, const QString& value) const {
    const QString path = filePath(fileNo);
    if (path.isEmpty() || path.startsWith(QLatin1Char(':'))) return false;
    QJsonObject o;
    o.insert(key, value);
    return quelix::configbase_t::writeFileAtomically(path, quelix::configbase_t::toBytes(o));
}

void ConfigStore::loadUrlTable() {
    const QJsonObject o = readObject(filePath(UrlTextFile));
    for (int i = 0; i < UrlTable::Count; ++i) {
        const QString key = QLatin1String(UrlTable::keyName(UrlTable::Key(i)));
        const QJsonValue v = o.value(key);
        urls_[i] = v.isString() ? v.toString() : UrlTable::defaultUrl(UrlTable::Key(i), urlRoot_);
    }
}

bool ConfigStore::saveUrlTable() const {
    QJsonObject o;
    for (int i = 0; i < UrlTable::Count; ++i)
        o.insert(QLatin1String(UrlTable::keyName(UrlTable::Key(i))), urls_[i]);
    return quelix::configbase_t::writeFileAtomically(filePath(UrlTextFile),
                                                     quelix::configbase_t::toBytes(o));
}

QString ConfigStore::url(UrlTable::Key key) const {
    return key >= 0 && key < UrlTable::Count ? urls_[key] : QString();
}

void ConfigStore::setUrl(UrlTable::Key key, const QString& value) {
    if (key >= 0 && key < UrlTable::Count) urls_[key] = value;
}

void ConfigStore::switchHost(bool toTest) {
    const QString from = QLatin1String(toTest ? UrlTable::kProductionHost : UrlTable::kTestHost);
    const QString to = QLatin1String(toTest ? UrlTable::kTestHost : UrlTable::kProductionHost);
    for (QString& u : urls_) u.replace(from, to, Qt::CaseSensitive);
    saveUrlTable();
}

void ConfigStore::loadHtmlTable() {
    const QJsonObject o = readObject(filePath(HtmlListFile));
    for (int i = 0; i < htmlKeys().size(); ++i) html_[i] = o.value(htmlKeys().at(i)).toString();
}

QString ConfigStore::htmlValue(const QString& key) const {
    const int i = htmlKeys().indexOf(key);
    return i >= 0 ? html_.at(i) : QString();
}
