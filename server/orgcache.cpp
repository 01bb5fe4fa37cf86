#include "orgcache.h"

#include "database.h"
#include "directory.h"

#include <QMutexLocker>
#include <QSqlQuery>
#include <QVariant>

#include <algorithm>

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

QSharedPointer<const OrgCache::Entry> OrgCache::entry(qint64 companyId) {
    // Building under the lock means a burst of first requests builds once.
    QMutexLocker lock(&mutex_);
    QSharedPointer<const Entry> e = entries_.value(companyId);
    if (!e) {
        e = build(companyId);
        if (e) entries_.insert(companyId, e);
    }
    return e;
}

void OrgCache::compressPieces(const Entry& e) {
    constexpr int kPieceBytes = 256 * 1024;
    QMutexLocker lock(&e.gzipMutex);
    if (!e.pieces.isEmpty()) return;
    for (int start = 0; start < e.body.size(); start += kPieceBytes) {
        const int size = qMin(kPieceBytes, e.body.size() - start);
        e.pieceStart.append(start);
        e.pieces.append(GzipPieces::compress(e.body.constData() + start, size, false));
    }
}

OrgCache::Parts OrgCache::envelopeParts(qint64 companyId, qint64 userId, const QByteArray& token,
                                        const QByteArray& prefix, const QByteArray& suffix,
                                        bool gzip) {
    Parts out;
    const QSharedPointer<const Entry> e = entry(companyId);
    if (!e) return out;
    out.keep = std::shared_ptr<const void>(nullptr, [e](const void*) {});
    const int at = token.isEmpty() ? -1 : e->signOffset.value(userId, -1);
    if (!gzip) {
        out.parts << prefix;
        if (at < 0) {
            out.parts << e->body;  // shared, not copied
        } else {
            out.parts << QByteArray::fromRawData(e->body.constData(), at) << token
                      << QByteArray::fromRawData(e->body.constData() + at, e->body.size() - at);
        }
        out.parts << suffix;
    } else {
        compressPieces(*e);
        // Made per request, so kept alive by the parts themselves (QByteArray shares them).
        const GzipPieces::Piece head = GzipPieces::compress(prefix, false);
        const GzipPieces::Piece tail = GzipPieces::compress(suffix, true);
        QVector<const GzipPieces::Piece*> all;
        all.reserve(e->pieces.size() + 2);
        all.append(&head);
        for (const GzipPieces::Piece& p : e->pieces) all.append(&p);
        all.append(&tail);
        GzipPieces::Piece own;
        if (at >= 0) {
            // Only the piece holding the caller's entry differs: compress it again with the
            // token.
            const int k = int(std::upper_bound(e->pieceStart.begin(), e->pieceStart.end(), at) -
                              e->pieceStart.begin()) -
                          1;
            const int start = e->pieceStart[k];
            const int end = k + 1 < e->pieceStart.size() ? e->pieceStart[k + 1] : e->body.size();
            const QByteArray text =
                e->body.mid(start, at - start) + token + e->body.mid(at, end - at);
            own = GzipPieces::compress(text, false);
            all[k + 1] = &own;
        }
        out.parts << GzipPieces::header();
        for (const GzipPieces::Piece* p : qAsConst(all)) out.parts << p->deflated;
        out.parts << GzipPieces::trailer(all);
    }
    for (const QByteArray& part : qAsConst(out.parts)) out.size += part.size();
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
    if (!db_->exec(q)) return {};
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
    if (!db_->exec(q)) return {};
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
