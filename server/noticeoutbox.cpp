#include "noticeoutbox.h"

#include "database.h"

#include <QAtomicInteger>
#include <QDateTime>
#include <QSqlQuery>
#include <QStringList>
#include <QVariant>

namespace {

// Ordered ids without a sequence both databases agree on: milliseconds, then a counter.
qint64 nextId() {
    static QAtomicInteger<qint64> counter;
    return QDateTime::currentMSecsSinceEpoch() * 100000 + counter.fetchAndAddRelaxed(1) % 100000;
}

}  // namespace

NoticeOutbox::NoticeOutbox(Database* db) : db_(db) {}

bool NoticeOutbox::add(qint64 projectId, const QString& title, const QString& event,
                       const QList<QPair<qint64, qint64>>& recipientAndUser) {
    if (recipientAndUser.isEmpty()) return true;
    QSqlDatabase db = db_->connection();
    if (!db.transaction()) return false;
    for (const auto& pair : recipientAndUser) {
        QSqlQuery q(db);
        q.prepare(
            QStringLiteral("INSERT INTO room_notice (id, project_id, recipient, event,"
                           " user_id, title) VALUES (?, ?, ?, ?, ?, ?)"));
        q.addBindValue(nextId());
        q.addBindValue(projectId);
        q.addBindValue(pair.first);
        q.addBindValue(event);
        q.addBindValue(pair.second);
        q.addBindValue(title);
        if (!q.exec()) {
            db.rollback();
            return false;
        }
    }
    return db.commit();
}

QList<NoticeOutbox::Notice> NoticeOutbox::pending(qint64 projectId, int limit) const {
    QSqlQuery q(db_->connection());
    q.prepare(
        QStringLiteral("SELECT id, recipient, event, user_id, title FROM room_notice"
                       " WHERE project_id = ? ORDER BY id LIMIT ?"));
    q.addBindValue(projectId);
    q.addBindValue(limit);
    QList<Notice> out;
    if (!q.exec()) return out;
    while (q.next()) {
        out.append({q.value(0).toLongLong(), projectId, q.value(1).toLongLong(),
                    q.value(2).toString(), q.value(3).toLongLong(), q.value(4).toString()});
    }
    return out;
}

bool NoticeOutbox::drop(const QList<qint64>& ids) {
    if (ids.isEmpty()) return true;
    QStringList marks;
    for (int i = 0; i < ids.size(); ++i) marks << QStringLiteral("?");
    QSqlQuery q(db_->connection());
    q.prepare(QStringLiteral("DELETE FROM room_notice WHERE id IN (%1)")
                  .arg(marks.join(QLatin1Char(','))));
    for (qint64 id : ids) q.addBindValue(id);
    return q.exec();
}

QList<qint64> NoticeOutbox::projects() const {
    QSqlQuery q(db_->connection());
    QList<qint64> out;
    if (q.exec(QStringLiteral("SELECT DISTINCT project_id FROM room_notice"))) {
        while (q.next()) out << q.value(0).toLongLong();
    }
    return out;
}
