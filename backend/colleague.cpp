#include "colleague.h"

#include <QJsonObject>
#include <QVariant>

namespace {
const char* const kKeys[Colleague::FieldCount] = {
    "id",     "userName", "realName",    "workNick",       "userIcon",        "deptName", "section",
    "mobile", "email",    "dateCreated", "fullNamePinyin", "shortNamePinyin", "md5Sign",
};
}  // namespace

const char* Colleague::key(Field field) {
    return field >= 0 && field < FieldCount ? kKeys[field] : "";
}

Colleague::Field Colleague::fieldOf(const char* key, int length) {
    for (int f = 0; f < FieldCount; ++f)
        if (int(qstrlen(kKeys[f])) == length && memcmp(kKeys[f], key, size_t(length)) == 0)
            return Field(f);
    return FieldCount;
}

Colleague::Field Colleague::fieldOf(QStringView key) {
    const QByteArray latin = key.toLatin1();
    return fieldOf(latin.constData(), latin.size());
}

Colleague::Colleague(const QStringView* values) {
    int total = 0;
    for (int f = 0; f < FieldCount; ++f) total += values[f].size();
    data_.reserve(total);
    for (int f = 0; f < FieldCount; ++f) {
        data_.append(values[f]);
        ends_[f] = quint32(data_.size());
    }
}

Colleague Colleague::fromJson(const QJsonObject& o) {
    QString texts[FieldCount];
    QStringView views[FieldCount];
    for (int f = 0; f < FieldCount; ++f) {
        const QJsonValue v = o.value(QLatin1String(kKeys[f]));
        if (v.isString())
            texts[f] = v.toString();
        else if (v.isDouble())
            texts[f] = QString::number(v.toVariant().toLongLong());
        views[f] = texts[f];
    }
    return Colleague(views);
}
