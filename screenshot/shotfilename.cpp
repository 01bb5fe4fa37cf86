#include "shotfilename.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

namespace screenshot {

QString ShotFileName::propose(const QString& folder, const QDateTime& now) {
    const QString stem = prefix() + now.toString(QStringLiteral("yyyyMMddhhmmsszzz"));
    const QDir dir(folder);
    QString path = dir.filePath(stem + QStringLiteral(".png"));
    for (int n = 2; QFileInfo::exists(path) && n < 10000; ++n)
        path = dir.filePath(QStringLiteral("%1_%2.png").arg(stem).arg(n));
    return path;
}

QString ShotFileName::desktopFolder() {
    const QStringList desktops = QStandardPaths::standardLocations(QStandardPaths::DesktopLocation);
    return desktops.isEmpty() ? QDir::homePath() : desktops.first();
}

}  // namespace screenshot
