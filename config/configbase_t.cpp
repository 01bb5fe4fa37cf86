#include "configbase_t.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QRegularExpression>
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

namespace {
const char kInt64Marker[] = "\x01\x02i64:";
}

QJsonValue configbase_t::int64Value(qint64 value) {
    const qint64 exact = qint64(1) << 53;
    if (value >= -exact && value <= exact) return QJsonValue(value);
    return QJsonValue(QLatin1String(kInt64Marker) + QString::number(value));
}

QByteArray configbase_t::toBytes(const QJsonObject& o) {
    QByteArray bytes = QJsonDocument(o).toJson(QJsonDocument::Indented);
    if (!bytes.contains("\\u0001\\u0002i64:")) return bytes;
    static const QRegularExpression marked(QStringLiteral("\"\\\\u0001\\\\u0002i64:(-?[0-9]+)\""));
    return QString::fromUtf8(bytes).replace(marked, QStringLiteral("\\1")).toUtf8();
}

bool configbase_t::parseObject(const QByteArray& bytes, QJsonObject* out) {
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError) return false;
    *out = doc.object();
    return true;
}

}  // namespace quelix
