#include "orgcache.h"

#include "database.h"
#include "directory.h"

#include <QMutexLocker>
#include <QSqlQuery>
#include <QVariant>

namespace {

// Writes a JSON string: only quote, backslash and control characters need escaping; UTF-8
// passes through as it is.
void appendString(QByteArray& out, const QString& value) {
    const QByteArray utf8 = value.toUtf8();
    out += '"';
    for (char c : utf8) {
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (static_cast<unsigned char>(c) < 0x20) {
                    out += "\\u00";
                    out += QByteArray::number(static_cast<unsigned char>(c), 16)
                               .rightJustified(2, '0');
                } else {
                    out += c;
                }
        }
    }
    out += '"';
}

void appendMember(QByteArray& out, const char* key, const QString& value, bool first = false) {
    if (!first) out += ',';
    out += '"';
    out += key;
    out += "\":";
    appendString(out, value);
}

}  // namespace

OrgCache::OrgCache(Database* db, const Directory* directory) : db_(db), directory_(directory) {}

void OrgCache::invalidate() {
    QMutexLocker lock(&mutex_);
    entries_.clear();
}

QByteArray OrgCache::results(qint64 companyId, qint64 userId, const QByteArray& token) {
    QSharedPointer<const Entry> entry;
    {
        // Building under the lock means a burst of first requests builds once.
        QMutexLocker lock(&mutex_);
        entry = entries_.value(companyId);
        if (!entry) {
            entry = build(companyId);
            if (entry) entries_.insert(companyId, entry);
        }
    }
    if (!entry) return QByteArray();
    const int at = entry->signOffset.value(userId, -1);
    if (at < 0 || token.isEmpty()) return entry->body;
    QByteArray out;
    out.reserve(entry->body.size() + token.size());
    out.append(entry->body.constData(), at);
    out.append(token);
    out.append(entry->body.constData() + at, entry->body.size() - at);
    return out;
}

QSharedPointer<const OrgCache::Entry> OrgCache::build(qint64 companyId) const {
    if (!directory_->companyExists(companyId)) return {};
    auto entry = QSharedPointer<Entry>::create();
    QByteArray& out = entry->body;
    QSqlQuery q(db_->connection());
    q.setForwardOnly(true);

    out += "{\"allDeptList\":[";
    q.prepare(
        QStringLiteral("SELECT id, org_name, parent_id, full_pinyin, short_pinyin FROM dept"
                       " WHERE company_id = ? ORDER BY sort_order, id"));
    q.addBindValue(companyId);
    if (!q.exec()) return {};
    bool first = true;
    while (q.next()) {
        if (!first) out += ',';
        out += '{';
        appendMember(out, "id", q.value(0).toString(), true);
        appendMember(out, "orgName", q.value(1).toString());
        appendMember(out, "parentId", q.value(2).toString());
        appendMember(out, "fullNamePinyin", q.value(3).toString());
        appendMember(out, "shortNamePinyin", q.value(4).toString());
        out += '}';
        first = false;
    }

    out += "],\"allUserList\":[";
    q.prepare(QStringLiteral(
        "SELECT u.id, u.user_name, u.real_name, u.work_nick, d.org_name, u.dept_id, u.mobile,"
        " u.email, u.date_created, u.full_pinyin, u.short_pinyin FROM users u"
        " LEFT JOIN dept d ON d.id = u.dept_id WHERE u.company_id = ? ORDER BY u.id"));
    q.addBindValue(companyId);
    if (!q.exec()) return {};
    first = true;
    while (q.next()) {
        const qint64 id = q.value(0).toLongLong();
        if (!first) out += ',';
        out += '{';
        appendMember(out, "id", QString::number(id), true);
        appendMember(out, "userName", q.value(1).toString());
        appendMember(out, "realName", q.value(2).toString());
        appendMember(out, "workNick", q.value(3).toString());
        appendMember(out, "userIcon", directory_->avatarUrl(id));
        appendMember(out, "deptName", q.value(4).toString());
        appendMember(out, "section", q.value(5).toString());
        appendMember(out, "mobile", q.value(6).toString());
        appendMember(out, "email", q.value(7).toString());
        appendMember(out, "dateCreated", q.value(8).toString());
        appendMember(out, "fullNamePinyin", q.value(9).toString());
        appendMember(out, "shortNamePinyin", q.value(10).toString());
        out += ",\"md5Sign\":\"";
        entry->signOffset.insert(id, out.size());
        out += "\"}";
        first = false;
    }
    out += "]}";
    out.squeeze();
    return entry;
}
