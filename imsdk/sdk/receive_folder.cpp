#include "sdk/receive_folder.h"

#include <QDir>
#include <QFileInfo>

ReceiveFolder::ReceiveFolder(QString folder) : folder_(QDir::cleanPath(std::move(folder))) {}

QString ReceiveFolder::cleanName(const QString& senderName) {
    QString name = senderName;
    name.replace(QLatin1Char('\\'), QLatin1Char('/'));
    name = name.mid(name.lastIndexOf(QLatin1Char('/')) + 1);
    QString out;
    for (QChar c : name) {
        if (c.unicode() < 0x20 || QStringLiteral("<>:\"|?*").contains(c)) continue;
        out.append(c);
    }
    // Leading dots would hide the file or make "..", trailing dots and blanks trouble Windows.
    while (out.startsWith(QLatin1Char('.')) || out.startsWith(QLatin1Char(' '))) out.remove(0, 1);
    while (out.endsWith(QLatin1Char('.')) || out.endsWith(QLatin1Char(' '))) out.chop(1);
    if (out.size() > 120) {
        const QString suffix = QFileInfo(out).suffix().left(16);
        out = out.left(100) + (suffix.isEmpty() ? QString() : QLatin1Char('.') + suffix);
    }
    return out.isEmpty() ? QStringLiteral("file") : out;
}

QString ReceiveFolder::freePath(const QString& senderName) const {
    QDir dir(folder_);
    if (folder_.isEmpty() || !dir.mkpath(QStringLiteral("."))) return QString();
    const QString name = cleanName(senderName);
    const QFileInfo info(name);
    const QString base = info.completeBaseName().isEmpty() ? name : info.completeBaseName();
    const QString suffix = info.completeBaseName().isEmpty() || info.suffix().isEmpty()
                               ? QString()
                               : QLatin1Char('.') + info.suffix();
    QString candidate = dir.absoluteFilePath(name);
    for (int n = 1; QFileInfo::exists(candidate); ++n)
        candidate = dir.absoluteFilePath(QStringLiteral("%1 (%2)%3").arg(base).arg(n).arg(suffix));
    // The cleaned name has no separators, but make sure nothing lands outside the folder.
    if (QFileInfo(candidate).absolutePath() != dir.absolutePath()) return QString();
    return candidate;
}
