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
    // Names Windows keeps for devices (CON, nul.txt, COM1.log...) open the device there,
    // whatever the extension: such a file gets a leading underscore on every system, so
    // the same message is saved under the same name everywhere.
    static const QStringList reserved{
        "CON",  "PRN",  "AUX",  "NUL",  "COM1", "COM2", "COM3", "COM4", "COM5", "COM6", "COM7",
        "COM8", "COM9", "LPT1", "LPT2", "LPT3", "LPT4", "LPT5", "LPT6", "LPT7", "LPT8", "LPT9"};
    const QString stem = out.section(QLatin1Char('.'), 0, 0).trimmed();
    if (reserved.contains(stem, Qt::CaseInsensitive)) out.prepend(QLatin1Char('_'));
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
