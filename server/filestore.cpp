#include "filestore.h"

#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QSaveFile>

FileStore::FileStore(const QString& folder, qint64 maxBytes)
    : folder_(folder), maxBytes_(maxBytes) {
    QDir().mkpath(folder_);
}

bool FileStore::isReady() const { return QDir(folder_).exists(); }

QString FileStore::sanitizeName(const QString& name) {
    // Either separator may come from the other platform's client.
    QString base = name.section(QLatin1Char('/'), -1).section(QLatin1Char('\\'), -1);
    QString out;
    for (const QChar c : qAsConst(base)) {
        if (c.category() == QChar::Other_Control || c.category() == QChar::Other_Format ||
            QStringLiteral("<>:\"|?*").contains(c)) {
            continue;
        }
        out += c;
    }
    out = out.trimmed();
    while (out.startsWith(QLatin1Char('.'))) out.remove(0, 1);
    while (out.endsWith(QLatin1Char('.')) || out.endsWith(QLatin1Char(' '))) out.chop(1);
    // Windows opens a device instead of a file for these names, whatever the extension
    // ("NUL.txt", "aux.tar.gz"); a leading underscore makes them plain names again.
    static const QRegularExpression device(
        QStringLiteral("^(CON|PRN|AUX|NUL|COM[0-9\\x{00B9}\\x{00B2}\\x{00B3}]|LPT[0-9\\x{00B9}\\x{"
                       "00B2}\\x{00B3}])$"),
        QRegularExpression::CaseInsensitiveOption);
    if (device.match(out.section(QLatin1Char('.'), 0, 0).trimmed()).hasMatch())
        out.prepend(QLatin1Char('_'));
    if (out.size() > 200) {
        const int dot = out.lastIndexOf(QLatin1Char('.'));
        const QString ext = dot > 0 && out.size() - dot <= 16 ? out.mid(dot) : QString();
        out = out.left(200 - ext.size()) + ext;
    }
    return out;
}

QString FileStore::store(const QByteArray& data) {
    if (data.size() > maxBytes_) return QString();
    QByteArray raw(16, '\0');
    QRandomGenerator::system()->fillRange(reinterpret_cast<quint32*>(raw.data()), 4);
    const QString storedName = QString::fromLatin1(raw.toHex());
    QSaveFile file(folder_ + QLatin1Char('/') + storedName);
    if (!file.open(QIODevice::WriteOnly) || file.write(data) != data.size() || !file.commit()) {
        return QString();
    }
    return storedName;
}

std::unique_ptr<QSaveFile> FileStore::begin(QString* storedName) {
    QByteArray raw(16, '\0');
    QRandomGenerator::system()->fillRange(reinterpret_cast<quint32*>(raw.data()), 4);
    *storedName = QString::fromLatin1(raw.toHex());
    auto file = std::make_unique<QSaveFile>(folder_ + QLatin1Char('/') + *storedName);
    if (!file->open(QIODevice::WriteOnly)) return nullptr;
    return file;
}

bool FileStore::remove(const QString& storedName) {
    const QString path = pathOf(storedName);
    return !path.isEmpty() && QFile::remove(path);
}

QString FileStore::pathOf(const QString& storedName) const {
    static const QRegularExpression made(QStringLiteral("^[0-9a-f]{32}$"));
    if (!made.match(storedName).hasMatch()) return QString();
    return folder_ + QLatin1Char('/') + storedName;
}
