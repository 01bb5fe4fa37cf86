#include "taskstore.h"

#include "database.h"

#include <QDateTime>
#include <QSqlQuery>
#include <QVariant>

namespace {

QString now() { return QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd HH:mm")); }

// The next id of a table. Both databases serialise the insert that follows on the primary
// key, so two pages creating at once cannot share an id: the loser tries again.
qint64 nextId(QSqlDatabase& db, const char* table, qint64 floor) {
    QSqlQuery q(db);
    if (!q.exec(QStringLiteral("SELECT MAX(id) FROM %1").arg(QLatin1String(table))) || !q.next())
        return 0;
    return qMax(floor, q.value(0).toLongLong()) + 1;
}

// A missing field is an empty text, never NULL, in the NOT NULL columns.
QString notNull(const QString& text) { return text.isNull() ? QStringLiteral("") : text; }

}  // namespace

TaskStore::TaskStore(Database* db) : db_(db) {}

qint64 TaskStore::create(qint64 projectId, qint64 creator, qint64 executor, const QString& title,
                         const QString& description, const QString& deadline) {
    QSqlDatabase db = db_->connection();
    for (int attempt = 0; attempt < 5; ++attempt) {
        const qint64 id = nextId(db, "task", 70000);
        if (id == 0) return 0;
        QSqlQuery q(db);
        q.prepare(QStringLiteral(
            "INSERT INTO task (id, project_id, title, description, creator_id, executor_id,"
            " deadline, status) VALUES (?, ?, ?, ?, ?, ?, ?, 0)"));
        q.addBindValue(id);
        q.addBindValue(projectId);
        q.addBindValue(notNull(title));
        q.addBindValue(notNull(description));
        q.addBindValue(creator);
        q.addBindValue(executor);
        q.addBindValue(notNull(deadline));
        if (q.exec()) return id;
    }
    return 0;
}

bool TaskStore::assign(qint64 taskId, qint64 executor) {
    QSqlQuery q(db_->connection());
    q.prepare(QStringLiteral("UPDATE task SET executor_id = ? WHERE id = ?"));
    q.addBindValue(executor);
    q.addBindValue(taskId);
    if (!q.exec() || q.numRowsAffected() != 1) return false;
    // A new executor has not read it yet.
    QSqlQuery unread(db_->connection());
    unread.prepare(QStringLiteral("DELETE FROM task_read WHERE task_id = ? AND user_id = ?"));
    unread.addBindValue(taskId);
    unread.addBindValue(executor);
    return unread.exec();
}

bool TaskStore::setStatus(qint64 taskId, int status) {
    QSqlQuery q(db_->connection());
    q.prepare(QStringLiteral("UPDATE task SET status = ? WHERE id = ?"));
    q.addBindValue(status);
    q.addBindValue(taskId);
    return q.exec() && q.numRowsAffected() == 1;
}

qint64 TaskStore::reply(qint64 taskId, qint64 userId, const QString& text) {
    QSqlDatabase db = db_->connection();
    for (int attempt = 0; attempt < 5; ++attempt) {
        const qint64 id = nextId(db, "task_reply", 0);
        if (id == 0) return 0;
        QSqlQuery q(db);
        q.prepare(
            QStringLiteral("INSERT INTO task_reply (id, task_id, user_id, text, date_created)"
                           " VALUES (?, ?, ?, ?, ?)"));
        q.addBindValue(id);
        q.addBindValue(taskId);
        q.addBindValue(userId);
        q.addBindValue(notNull(text));
        q.addBindValue(now());
        if (q.exec()) return id;
    }
    return 0;
}

QJsonArray TaskStore::replies(qint64 taskId) const {
    QSqlQuery q(db_->connection());
    q.prepare(
        QStringLiteral("SELECT r.id, r.user_id, u.real_name, r.text, r.date_created"
                       " FROM task_reply r LEFT JOIN users u ON u.id = r.user_id"
                       " WHERE r.task_id = ? ORDER BY r.id LIMIT ?"));
    q.addBindValue(taskId);
    q.addBindValue(kMaxRepliesShown);
    QJsonArray out;
    if (!q.exec()) return out;
    while (q.next()) {
        out.append(QJsonObject{{QStringLiteral("replyId"), q.value(0).toString()},
                               {QStringLiteral("userId"), q.value(1).toString()},
                               {QStringLiteral("userName"), q.value(2).toString()},
                               {QStringLiteral("text"), q.value(3).toString()},
                               {QStringLiteral("dateCreated"), q.value(4).toString()}});
    }
    return out;
}

int TaskStore::status(qint64 taskId) const {
    QSqlQuery q(db_->connection());
    q.prepare(QStringLiteral("SELECT status FROM task WHERE id = ?"));
    q.addBindValue(taskId);
    return q.exec() && q.next() ? q.value(0).toInt() : -1;
}

QList<qint64> TaskStore::openTasksOf(qint64 userId, int limit) const {
    QSqlQuery q(db_->connection());
    q.prepare(
        QStringLiteral("SELECT id FROM task WHERE executor_id = ? AND status < 3"
                       " ORDER BY id LIMIT ?"));
    q.addBindValue(userId);
    q.addBindValue(limit);
    QList<qint64> out;
    if (q.exec()) {
        while (q.next()) out << q.value(0).toLongLong();
    }
    return out;
}
