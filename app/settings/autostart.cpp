#include "autostart.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QStandardPaths>

#include "configbase_t.h"
#include "logger.h"

namespace {
#ifdef Q_OS_WIN
const char* const kRunKey = "HKEY_CURRENT_USER\\Software\\Microsoft\\Windows\\CurrentVersion\\Run";
#endif
}  // namespace

QString AutoStart::entryPath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/autostart/quelix.desktop");
}

bool AutoStart::isEnabled() {
#ifdef Q_OS_WIN
    return QSettings(QLatin1String(kRunKey), QSettings::NativeFormat)
        .contains(QStringLiteral("Quelix"));
#else
    return QFileInfo::exists(entryPath());
#endif
}

bool AutoStart::setEnabled(bool enabled, const QString& program) {
#ifdef Q_OS_WIN
    QSettings run(QLatin1String(kRunKey), QSettings::NativeFormat);
    if (enabled)
        run.setValue(
            QStringLiteral("Quelix"),
            QLatin1Char('"') + QDir::toNativeSeparators(program) + QStringLiteral("\" autostart"));
    else
        run.remove(QStringLiteral("Quelix"));
    run.sync();
    return run.status() == QSettings::NoError;
#else
    const QString path = entryPath();
    if (!enabled) {
        if (!QFileInfo::exists(path) || QFile::remove(path)) return true;
        Logger::instance().write(QStringLiteral("autostart entry not removed: ") + path);
        return false;
    }
    QDir().mkpath(QFileInfo(path).absolutePath());
    // The program path is quoted as the desktop entry format asks; the first argument is
    // the loader's place, so switches would follow it.
    QString exec = program;
    exec.replace(QLatin1Char('\\'), QLatin1String("\\\\"))
        .replace(QLatin1Char('"'), QLatin1String("\\\""));
    const QString entry = QStringLiteral(
                              "[Desktop Entry]\nType=Application\nName=Quelix\n"
                              "Exec=\"%1\" autostart\nIcon=quelix\nTerminal=false\n"
                              "X-GNOME-Autostart-enabled=true\n")
                              .arg(exec);
    if (quelix::configbase_t::writeFileAtomically(path, entry.toUtf8())) return true;
    Logger::instance().write(QStringLiteral("autostart entry not written: ") + path);
    return false;
#endif
}
