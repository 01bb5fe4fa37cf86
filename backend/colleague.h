#pragma once

#include <QString>
#include <QStringView>

class QJsonObject;

// One colleague of the directory. All fields sit in one buffer (one allocation per
// colleague rather than one per field: a company may have 100,000 of them).
class Colleague {
public:
    enum Field {
        Id,
        UserName,
        RealName,
        WorkNick,
        UserIcon,
        DeptName,
        Section,
        Mobile,
        Email,
        DateCreated,
        FullNamePinyin,
        ShortNamePinyin,
        Md5Sign,
        FieldCount
    };
    static constexpr const char* kKind = "user";  // tells colleague nodes from departments

    // The JSON key of a field, and the field of a key (FieldCount when none).
    static const char* key(Field field);
    static Field fieldOf(QStringView key);
    static Field fieldOf(const char* key, int length);

    Colleague() = default;
    // values[f] for every field, in field order.
    explicit Colleague(const QStringView* values);
    static Colleague fromJson(const QJsonObject& o);

    QStringView view(Field f) const {
        const int begin = f == 0 ? 0 : int(ends_[f - 1]);
        return QStringView(data_).mid(begin, int(ends_[f]) - begin);
    }
    QString text(Field f) const { return view(f).toString(); }

    QString id() const { return text(Id); }
    QString userName() const { return text(UserName); }
    QString realName() const { return text(RealName); }
    QString workNick() const { return text(WorkNick); }
    QString userIcon() const { return text(UserIcon); }
    QString deptName() const { return text(DeptName); }
    QString section() const { return text(Section); }
    QString mobile() const { return text(Mobile); }
    QString email() const { return text(Email); }
    QString dateCreated() const { return text(DateCreated); }
    QString fullNamePinyin() const { return text(FullNamePinyin); }
    QString shortNamePinyin() const { return text(ShortNamePinyin); }
    QString md5Sign() const { return text(Md5Sign); }
    // The name to show: the real name, else the account name.
    QString displayName() const { return view(RealName).isEmpty() ? userName() : realName(); }

private:
    QString data_;
    quint32 ends_[FieldCount] = {};
};
