#include "taskcardoutbox.h"

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

TaskCardOutbox::TaskCardOutbox(Database* db) : db_(db) {}

bool TaskCardOutbox::add(qint64 projectId, const QByteArray& payload) {
    QSqlQuery q(db_->connection());
    q.prepare(QStringLiteral("INSERT INTO task_card (id, project_id, payload) VALUES (?, ?, ?)"));
    q.addBindValue(nextId());
    q.addBindValue(projectId);
    q.addBindValue(QString::fromUtf8(payload));
    return q.exec();
}

QList<TaskCardOutbox::Card> TaskCardOutbox::pending(qint64 projectId, int limit) const {
    QSqlQuery q(db_->connection());
    q.prepare(QStringLiteral(
        "SELECT id, payload FROM task_card WHERE project_id = ? ORDER BY id LIMIT ?"));
    q.addBindValue(projectId);
    q.addBindValue(limit);
    QList<Card> out;
    if (!q.exec()) return out;
    while (q.next())
        out.append({q.value(0).toLongLong(), projectId, q.value(1).toString().toUtf8()});
    return out;
}

bool TaskCardOutbox::drop(const QList<qint64>& ids) { return dropFrom("task_card", ids); }

bool TaskCardOutbox::addDirect(qint64 projectId, qint64 recipient, qint64 sender,
                               const QByteArray& payload) {
    QSqlQuery q(db_->connection());
    q.prepare(
        QStringLiteral("INSERT INTO task_direct_card (id, project_id, recipient, sender,"
                       " payload) VALUES (?, ?, ?, ?, ?)"));
    q.addBindValue(nextId());
    q.addBindValue(projectId);
    q.addBindValue(recipient);
    q.addBindValue(sender);
    q.addBindValue(QString::fromUtf8(payload));
    return q.exec();
}

QList<TaskCardOutbox::Card> TaskCardOutbox::pendingDirect(qint64 projectId, int limit) const {
    QSqlQuery q(db_->connection());
    q.prepare(
        QStringLiteral("SELECT id, payload, recipient, sender FROM task_direct_card"
                       " WHERE project_id = ? ORDER BY id LIMIT ?"));
    q.addBindValue(projectId);
    q.addBindValue(limit);
    QList<Card> out;
    if (!q.exec()) return out;
    while (q.next())
        out.append({q.value(0).toLongLong(), projectId, q.value(1).toString().toUtf8(),
                    q.value(2).toLongLong(), q.value(3).toLongLong()});
    return out;
}

bool TaskCardOutbox::dropDirect(const QList<qint64>& ids) {
    return dropFrom("task_direct_card", ids);
}

bool TaskCardOutbox::dropFrom(const char* table, const QList<qint64>& ids) {
    if (ids.isEmpty()) return true;
    QStringList marks;
    for (int i = 0; i < ids.size(); ++i) marks << QStringLiteral("?");
    QSqlQuery q(db_->connection());
    q.prepare(QStringLiteral("DELETE FROM %1 WHERE id IN (%2)")
                  .arg(QLatin1String(table), marks.join(QLatin1Char(','))));
    for (qint64 id : ids) q.addBindValue(id);
    return q.exec();
}
