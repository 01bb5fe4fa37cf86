#include "triggermanager.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QMessageBox>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QProcess>
#include <QSettings>
#include <QUrl>

#include "configbase_t.h"
#include "configstore.h"
#include "logger.h"
#include "platform/process.h"

namespace quelix {

namespace {
// The description is a few hundred bytes; anything far larger is not one.
constexpr qint64 kMaxDescription = 64 * 1024;
}  // namespace

TriggerManager::TriggerManager(QObject* parent, const QString& appDir)
    : QObject(parent),
      network_(new QNetworkAccessManager(this)),
      appDir_(appDir.isEmpty() ? QCoreApplication::applicationDirPath() : appDir) {
    ConfigStore& store = ConfigStore::instance();
    const QUrl home(store.url(UrlTable::UrlHome));
    QUrl ini = home.adjusted(QUrl::RemovePath | QUrl::RemoveQuery | QUrl::RemoveFragment);
    ini.setPath(QStringLiteral("/update/QX_update.ini"));
    updateUrl_ = ini.toString();
    iniPath_ = store.filePath(ConfigStore::UpdateIni);

    if (QFileInfo(appDir_).isDir()) {
        const platform::FileVersion program =
            platform::fileVersion(QDir(appDir_).filePath(programName()).toStdString());
        localVersion_ = program.file;
        localProductVersion_ = program.product;
#ifdef Q_OS_WIN
        const platform::FileVersion core = platform::fileVersion(
            QDir(appDir_).filePath(QStringLiteral("Qt5Core.dll")).toStdString());
        localCoreVersion_ = core.file;
        localCoreProductVersion_ = core.product;
#else
        // Here the framework is the system's shared one: its version is the one running.
        localCoreVersion_ = localCoreProductVersion_ = packVersion(QLatin1String(qVersion()));
#endif
    }
    ask_ = [](QWidget* parent, const QString& text) {
        return QMessageBox::question(parent, QStringLiteral("提示"), text,
                                     QMessageBox::Yes | QMessageBox::No,
                                     QMessageBox::Yes) == QMessageBox::Yes;
    };
    inform_ = [](QWidget* parent, const QString& text) {
        QMessageBox::information(parent, QStringLiteral("提示"), text, QMessageBox::Ok);
    };
    startLoader_ = [this](const QString& key) { return startLoader(key); };
    quit_ = [] { QCoreApplication::quit(); };
}

quint32 TriggerManager::packVersion(const QString& text) {
    const QStringList parts = text.trimmed().split(QLatin1Char('.'));
    quint32 v = 0;
    for (int i = 0; i < 4; ++i) {
        const quint32 part = i < parts.size() ? parts[i].toUInt() & 0xffu : 0;
        v |= part << (24 - 8 * i);
    }
    return v;
}

QString TriggerManager::versionText(quint32 version) {
    return QStringLiteral("%1.%2.%3.%4")
        .arg(version >> 24)
        .arg((version >> 16) & 0xffu)
        .arg((version >> 8) & 0xffu)
        .arg(version & 0xffu);
}

QString TriggerManager::updateQuestion(quint32 offered, quint32 installed) {
    const QString found =
        installed ? QStringLiteral("发现新版本 %1（当前版本 %2），是否现在更新？")
                        .arg(versionText(offered), versionText(installed))
                  : QStringLiteral("发现新版本 %1，是否现在更新？").arg(versionText(offered));
    return found + QStringLiteral("\n更新时 Quelix 会先退出，完成后自动启动。");
}

QString TriggerManager::programName() {
#ifdef Q_OS_WIN
    return QStringLiteral("Quelix.exe");
#else
    return QStringLiteral("Quelix");
#endif
}

QString TriggerManager::loaderName() {
#ifdef Q_OS_WIN
    return QStringLiteral("QxLoad.exe");
#else
    return QStringLiteral("qxload");
#endif
}

void TriggerManager::setDialogParent(QWidget* parent) { dialogParent_ = parent; }

void TriggerManager::setLocalVersions(quint32 program, quint32 core) {
    localVersion_ = localProductVersion_ = program;
    localCoreVersion_ = localCoreProductVersion_ = core;
}

void TriggerManager::checkUpdate() {
    // One check at a time: a second click while one is under way adds nothing.
    if (busy_) return;
    busy_ = true;
    QNetworkRequest request{QUrl(updateUrl_)};
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::NoLessSafeRedirectPolicy);
    request.setTransferTimeout(15000);
    QNetworkReply* reply = network_->get(request);
    connect(reply, &QNetworkReply::finished, this, [this, reply] { onUpdateIniDownloaded(reply); });
}

void TriggerManager::onUpdateIniDownloaded(QNetworkReply* reply) {
    busy_ = false;
    reply->deleteLater();
    if (reply->error() != QNetworkReply::NoError) {
        Logger::instance().write(QStringLiteral("update check failed: ") + reply->errorString());
        emit checkFinished(UpToDate, false);
        return;
    }
    const QByteArray body = reply->read(kMaxDescription + 1);
    if (body.size() > kMaxDescription) {
        Logger::instance().write(QStringLiteral("update description refused: too large"));
        emit checkFinished(UpToDate, false);
        return;
    }
    QDir().mkpath(QFileInfo(iniPath_).absolutePath());
    if (!configbase_t::writeFileAtomically(iniPath_, body)) {
        Logger::instance().write(QStringLiteral("update description not saved: ") + iniPath_);
        emit checkFinished(UpToDate, false);
        return;
    }
    const Decision d = decide(iniPath_);
    if (d != UpToDate) {
        if (ask_(dialogParent_, updateQuestion(remoteVersion_, localProductVersion_))) {
            const QString key =
                d == UpdateMaximum ? QStringLiteral("url_maximum") : QStringLiteral("url_minimum");
            if (startLoader_(key)) {
                quit_();
            } else {
                Logger::instance().write(QStringLiteral("update loader could not start"));
                inform_(dialogParent_, QStringLiteral("无法启动更新程序，请稍后再试。"));
            }
        }
    } else if (!silent_) {
        inform_(dialogParent_, QStringLiteral("当前已是最新版本。"));
    }
    emit checkFinished(d, true);
}

TriggerManager::Decision TriggerManager::decide(const QString& iniPath) {
    QSettings ini(iniPath, QSettings::IniFormat);
    remoteVersion_ = packVersion(ini.value(QStringLiteral("info/ExeVersion")).toString());
    remoteCoreVersion_ = packVersion(ini.value(QStringLiteral("info/QtVersion")).toString());
    if (!(localProductVersion_ < remoteVersion_)) return UpToDate;
    return localCoreProductVersion_ < remoteCoreVersion_ ? UpdateMaximum : UpdateMinimum;
}

bool TriggerManager::startLoader(const QString& key) {
    const QString loader = QDir(appDir_).filePath(loaderName());
    if (!QFileInfo(loader).isExecutable()) return false;
    // The loader works on a copy of itself outside the folder it replaces.
    return QProcess::startDetached(loader, QStringList{key, QStringLiteral("--ini"), iniPath_,
                                                       QStringLiteral("--install-dir"), appDir_} +
                                               loaderArgs_);
}

bool TriggerManager::openWithShell(const QString& file, const QString& parameters) {
    platform::openWithShell(file.toStdString(), parameters.toStdString());
    return false;
}

int TriggerManager::terminateProcessesOf(const QString& path) {
    return platform::terminateProcessesOf(QFileInfo(path).absoluteFilePath().toStdString());
}

}  // namespace quelix
