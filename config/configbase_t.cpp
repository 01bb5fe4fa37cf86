#include "configbase_t.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QSaveFile>

namespace quelix {

configbase_t::~configbase_t() = default;

bool configbase_t::load() {
    if (path_.isEmpty()) return false;
    QFile file(path_);
    if (!file.open(QIODevice::ReadOnly)) return false;
    const QByteArray bytes = file.readAll();
    file.close();
    if (parse(bytes)) return true;
    if (!bytes.trimmed().isEmpty()) {
        const QString keep = path_ + QStringLiteral(".bad");
        QFile::remove(keep);
        QFile::copy(path_, keep);
    }
    return false;
}

bool configbase_t::save() const {
    if (path_.isEmpty()) return false;
    return writeFileAtomically(path_, serialize());
}

bool configbase_t::writeFileAtomically(const QString& path, const QByteArray& bytes) {
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) return false;
    if (file.write(bytes) != bytes.size()) {
        file.cancelWriting();
        return false;
    }
    return file.commit();
}

bool configbase_t::flag(const QJsonObject& o, const char* key, const char* defaultText) {
    return o.value(QLatin1String(key)).toString(QLatin1String(defaultText)) ==
           QLatin1String("true");
}

QString configbase_t::flagText(bool value) {
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

QByteArray configbase_t::toBytes(const QJsonObject& o) {
    return QJsonDocument(o).toJson(QJsonDocument::Indented);
}

bool configbase_t::parseObject(const QByteArray& bytes, QJsonObject* out) {
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError) return false;
    *out = doc.object();
    return true;
}

}  // namespace quelix
