#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

namespace quelix {

// Base of the objects that each own one small JSON file of the configuration tree.
// Loading never throws away what is in memory unless the file is a valid document;
// saving replaces the file atomically, so a crash mid-save leaves the previous file whole.
class configbase_t {
public:
    virtual ~configbase_t();
    virtual QByteArray serialize() const = 0;
    virtual bool parse(const QByteArray& bytes) = 0;

    void setPath(const QString& path) { path_ = path; }
    const QString& path() const { return path_; }

    // Reads the file and parses it. A file that exists but cannot be parsed is kept
    // beside it as "<name>.bad" before the next save replaces it, so nothing the user
    // had is destroyed silently.
    bool load();
    bool save() const;

    // Helpers shared by the file objects.
    static bool flag(const QJsonObject& o, const char* key, const char* defaultText);
    static QString flagText(bool value);
    // Qt writes JSON numbers through a double, which loses 64-bit ids above 2^53. Such
    // values are stored as a marked string and turned back into exact digits by toBytes.
    static QJsonValue int64Value(qint64 value);
    static QByteArray toBytes(const QJsonObject& o);
    static bool parseObject(const QByteArray& bytes, QJsonObject* out);
    static bool writeFileAtomically(const QString& path, const QByteArray& bytes);

private:
    QString path_;
};

}  // namespace quelix
