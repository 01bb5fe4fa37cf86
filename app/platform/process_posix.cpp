#include <QByteArray>
#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QThread>
#include <QUrl>

#include <sys/types.h>
#include <unistd.h>
#include <csignal>

#include "platform/process.h"

namespace platform {

namespace {

std::uint32_t packText(const QByteArray& text) {
    const QList<QByteArray> parts = text.trimmed().split('.');
    std::uint32_t v = 0;
    for (int i = 0; i < 4; ++i) {
        const std::uint32_t part = i < parts.size() ? parts[i].toUInt() & 0xffu : 0;
        v |= part << (24 - 8 * i);
    }
    return v;
}

QString exeOf(const QString& pid) {
    QString link = QFile::symLinkTarget(QStringLiteral("/proc/") + pid + QStringLiteral("/exe"));
    // A program file replaced while running shows with this mark.
    if (link.endsWith(QLatin1String(" (deleted)"))) link.chop(10);
    return link;
}

}  // namespace

FileVersion fileVersion(const std::string& path) {
    FileVersion v;
    QFile f(QString::fromStdString(path) + QStringLiteral(".version"));
    if (!QFileInfo(QString::fromStdString(path)).isFile() || !f.open(QIODevice::ReadOnly)) return v;
    v.file = v.product = packText(f.read(64));
    return v;
}

void openWithShell(const std::string& file, const std::string& parameters) {
    (void)parameters;  // the desktop's handler takes the file or address alone
    const QString f = QString::fromStdString(file);
    const QUrl url = QFileInfo::exists(f) ? QUrl::fromLocalFile(f) : QUrl(f);
    QDesktopServices::openUrl(url);
}

int terminateProcessesOf(const std::string& path) {
    const QString target = QFileInfo(QString::fromStdString(path)).absoluteFilePath();
    const QString self = QString::number(getpid());
    QList<pid_t> matched;
    const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs);
    for (const QString& e : entries) {
        bool numeric = false;
        const pid_t pid = pid_t(e.toInt(&numeric));
        if (!numeric || e == self) continue;
        if (exeOf(e) == target && kill(pid, SIGTERM) == 0) matched.append(pid);
    }
    const int ended = matched.size();
    // A copy that does not end within two seconds of being asked is ended for good.
    for (int waited = 0; waited < 2000 && !matched.isEmpty(); waited += 50) {
        QThread::msleep(50);
        for (int i = matched.size() - 1; i >= 0; --i)
            if (kill(matched[i], 0) != 0 || exeOf(QString::number(matched[i])).isEmpty())
                matched.removeAt(i);
    }
    for (pid_t pid : matched) kill(pid, SIGKILL);
    return ended;
}

}  // namespace platform
