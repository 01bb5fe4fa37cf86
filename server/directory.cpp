#include "directory.h"

#include "database.h"

#include <QDateTime>
#include <QRandomGenerator>
#include <QSet>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

namespace {

const char kColleagueColumns[] =
    "SELECT u.id, u.user_name, u.real_name, u.work_nick, d.org_name, u.dept_id, u.mobile,"
    " u.email, u.date_created, u.full_pinyin, u.short_pinyin FROM users u"
    " LEFT JOIN dept d ON d.id = u.dept_id";

QString text(const QSqlQuery& q, int column) { return q.value(column).toString(); }

QString idText(qint64 id) { return QString::number(id); }

// Bound values only: no text from a request is ever pasted into SQL.
QSqlQuery prepared(Database* db, const QString& sql) {
    QSqlQuery q(db->connection());
    q.prepare(sql);
    return q;
}

QString inList(int count) {
    QStringList marks;
    for (int i = 0; i < count; ++i) marks << QStringLiteral("?");
    return marks.join(QLatin1Char(','));
}

}  // namespace

Directory::Directory(Database* db, const QString& publicUrl) : db_(db), publicUrl_(publicUrl) {}

QString Directory::avatarUrl(qint64 userId) const {
    return publicUrl_ + QStringLiteral("/avatar/%1.png").arg(userId);
}

bool Directory::findAccount(const QString& userName, qint64* userId, QString* passwordHash) const {
    QSqlQuery q =
        prepared(db_, QStringLiteral("SELECT id, password_hash FROM users WHERE user_name = ?"));
    q.addBindValue(userName);
    if (!db_->exec(q) || !q.next()) return false;
    *userId = q.value(0).toLongLong();
    *passwordHash = text(q, 1);
    return true;
}

QJsonObject Directory::loginUser(qint64 userId) const {
    QSqlQuery q = prepared(
        db_, QStringLiteral(
                 "SELECT u.id, u.real_name, u.user_name, u.work_nick, d.org_name, u.company_id,"
                 " c.name, c.crm_sys, u.email, u.open_id, u.im_secret FROM users u"
                 " LEFT JOIN dept d ON d.id = u.dept_id LEFT JOIN company c ON c.id = u.company_id"
                 " WHERE u.id = ?"));
    q.addBindValue(userId);
    if (!db_->exec(q) || !q.next()) return QJsonObject();
    return QJsonObject{
        {QStringLiteral("id"), text(q, 0)},
        {QStringLiteral("nick"), text(q, 1)},
        {QStringLiteral("username"), text(q, 2)},
        {QStringLiteral("userIcon"), avatarUrl(userId)},
        {QStringLiteral("workNick"), text(q, 3)},
        {QStringLiteral("deptName"), text(q, 4)},
        {QStringLiteral("loginType"), QStringLiteral("1")},
        {QStringLiteral("companyId"), text(q, 5)},
        {QStringLiteral("companyName"), text(q, 6)},
        {QStringLiteral("crmSys"), text(q, 7)},
        {QStringLiteral("email"), text(q, 8)},
        {QStringLiteral("openId"), text(q, 9)},
        {QStringLiteral("imSecret"), text(q, 10)},
    };
}

qint64 Directory::companyOf(qint64 userId) const {
    QSqlQuery q = prepared(db_, QStringLiteral("SELECT company_id FROM users WHERE id = ?"));
    q.addBindValue(userId);
    return db_->exec(q) && q.next() ? q.value(0).toLongLong() : 0;
}

bool Directory::companyExists(qint64 companyId) const {
    QSqlQuery q = prepared(db_, QStringLiteral("SELECT 1 FROM company WHERE id = ?"));
    q.addBindValue(companyId);
    return db_->exec(q) && q.next();
}

QJsonArray Directory::colleagues(const QList<qint64>& ids) const {
    QJsonArray out;
    if (ids.isEmpty()) return out;
    QSqlQuery q = prepared(
        db_, QString::fromLatin1(kColleagueColumns) +
                 QStringLiteral(" WHERE u.id IN (%1) ORDER BY u.id").arg(inList(ids.size())));
    for (qint64 id : ids) q.addBindValue(id);
    if (!db_->exec(q)) return out;
    while (q.next()) {
        const qint64 id = q.value(0).toLongLong();
        out.append(QJsonObject{
            {QStringLiteral("id"), idText(id)},
            {QStringLiteral("userName"), text(q, 1)},
            {QStringLiteral("realName"), text(q, 2)},
            {QStringLiteral("workNick"), text(q, 3)},
            {QStringLiteral("userIcon"), avatarUrl(id)},
            {QStringLiteral("deptName"), text(q, 4)},
            {QStringLiteral("section"), text(q, 5)},
            {QStringLiteral("mobile"), text(q, 6)},
            {QStringLiteral("email"), text(q, 7)},
            {QStringLiteral("dateCreated"), text(q, 8)},
            {QStringLiteral("fullNamePinyin"), text(q, 9)},
            {QStringLiteral("shortNamePinyin"), text(q, 10)},
            {QStringLiteral("md5Sign"), QString()},
        });
    }
    return out;
}

QJsonArray Directory::projectsOf(qint64 userId) const {
    QSqlQuery q = prepared(db_, QStringLiteral("SELECT p.id FROM project p JOIN project_member m"
                                               " ON m.project_id = p.id WHERE m.user_id = ?"
                                               " ORDER BY p.id"));
    q.addBindValue(userId);
    QJsonArray out;
    QList<qint64> ids;
    if (db_->exec(q)) {
        while (q.next()) ids << q.value(0).toLongLong();
    }
    for (qint64 id : ids) out.append(project(id));
    return out;
}

QJsonObject Directory::project(qint64 projectId) const {
    QSqlQuery q = prepared(
        db_, QStringLiteral("SELECT p.id, p.title, p.owner_id, p.date_created,"
                            " (SELECT COUNT(*) FROM project_member m WHERE m.project_id = p.id)"
                            " FROM project p WHERE p.id = ?"));
    q.addBindValue(projectId);
    if (!db_->exec(q) || !q.next()) return QJsonObject();
    const QString id = text(q, 0);
    // The project's IM tribe carries the project's own id.
    return QJsonObject{
        {QStringLiteral("id"), id},
        {QStringLiteral("projectId"), id},
        {QStringLiteral("openimId"), id},
        {QStringLiteral("title"), text(q, 1)},
        {QStringLiteral("projectOwnerId"), text(q, 2)},
        {QStringLiteral("dateCreated"), text(q, 3)},
        {QStringLiteral("memberCount"), text(q, 4)},
        {QStringLiteral("avatar"), QString()},
        {QStringLiteral("sign"), QString()},
    };
}

qint64 Directory::projectOwner(qint64 projectId) const {
    QSqlQuery q = prepared(db_, QStringLiteral("SELECT owner_id FROM project WHERE id = ?"));
    q.addBindValue(projectId);
    return db_->exec(q) && q.next() ? q.value(0).toLongLong() : 0;
}

bool Directory::isMember(qint64 projectId, qint64 userId) const {
    QSqlQuery q = prepared(
        db_, QStringLiteral("SELECT 1 FROM project_member WHERE project_id = ? AND user_id = ?"));
    q.addBindValue(projectId);
    q.addBindValue(userId);
    return db_->exec(q) && q.next();
}

QJsonArray Directory::projectMembers(qint64 projectId) const {
    QSqlQuery q = prepared(
        db_,
        QStringLiteral("SELECT user_id FROM project_member WHERE project_id = ? ORDER BY user_id"));
    q.addBindValue(projectId);
    QList<qint64> ids;
    if (db_->exec(q)) {
        while (q.next()) ids << q.value(0).toLongLong();
    }
    return colleagues(ids);
}

bool Directory::deleteProject(qint64 projectId) {
    QSqlDatabase db = db_->connection();
    if (!db_->transaction(db)) return false;
    const char* const statements[] = {
        "INSERT INTO project_dissolved (id, company_id) SELECT id, company_id FROM project"
        " WHERE id = ?",
        "DELETE FROM task_read WHERE task_id IN (SELECT id FROM task WHERE project_id = ?)",
        "DELETE FROM task WHERE project_id = ?",
        "DELETE FROM project_member WHERE project_id = ?",
        "DELETE FROM project WHERE id = ?",
    };
    for (const char* sql : statements) {
        QSqlQuery q(db);
        q.prepare(QString::fromLatin1(sql));
        q.addBindValue(projectId);
        if (!db_->exec(q)) {
            db_->rollback(db);
            return false;
        }
    }
    return db_->commit(db);
}

bool Directory::removeMember(qint64 projectId, qint64 userId) {
    QSqlQuery q = prepared(
        db_, QStringLiteral("DELETE FROM project_member WHERE project_id = ? AND user_id = ?"));
    q.addBindValue(projectId);
    q.addBindValue(userId);
    return db_->exec(q) && q.numRowsAffected() > 0;
}

qint64 Directory::createProject(qint64 owner, const QString& title, const QList<qint64>& members) {
    const qint64 company = companyOf(owner);
    if (company == 0) return 0;
    QList<qint64> everyone{owner};
    for (qint64 m : members) {
        if (!everyone.contains(m)) everyone << m;
    }
    QSqlDatabase db = db_->connection();
    // Random ids, like attachments: nothing to coordinate between threads, and an id once
    // used (a dissolved project's room) is never handed out again.
    for (int attempt = 0; attempt < 5; ++attempt) {
        const qint64 id =
            1000000000 + qint64(QRandomGenerator::system()->generate64() % 9000000000000000ULL);
        if (projectCompany(id) != 0) continue;
        if (!db_->transaction(db)) return 0;
        QSqlQuery q(db);
        q.prepare(
            QStringLiteral("INSERT INTO project (id, company_id, title, owner_id,"
                           " date_created) VALUES (?, ?, ?, ?, ?)"));
        q.addBindValue(id);
        q.addBindValue(company);
        q.addBindValue(title);
        q.addBindValue(owner);
        q.addBindValue(
            QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")));
        bool done = db_->exec(q);
        for (int i = 0; done && i < everyone.size(); ++i) {
            QSqlQuery m(db);
            m.prepare(
                QStringLiteral("INSERT INTO project_member (project_id, user_id) VALUES (?, ?)"));
            m.addBindValue(id);
            m.addBindValue(everyone[i]);
            done = db_->exec(m);
        }
        if (done && db_->commit(db)) return id;
        db_->rollback(db);
    }
    return 0;
}

bool Directory::addMembers(qint64 projectId, const QList<qint64>& userIds) {
    QSqlDatabase db = db_->connection();
    if (!db_->transaction(db)) return false;
    for (qint64 user : userIds) {
        if (isMember(projectId, user)) continue;
        QSqlQuery q(db);
        q.prepare(QStringLiteral("INSERT INTO project_member (project_id, user_id) VALUES (?, ?)"));
        q.addBindValue(projectId);
        q.addBindValue(user);
        if (!db_->exec(q)) {
            db_->rollback(db);
            return false;
        }
    }
    return db_->commit(db);
}

int Directory::projectsOwnedBy(qint64 userId) const {
    QSqlQuery q = prepared(db_, QStringLiteral("SELECT COUNT(*) FROM project WHERE owner_id = ?"));
    q.addBindValue(userId);
    return db_->exec(q) && q.next() ? q.value(0).toInt() : 0;
}

int Directory::memberCount(qint64 projectId) const {
    QSqlQuery q =
        prepared(db_, QStringLiteral("SELECT COUNT(*) FROM project_member WHERE project_id = ?"));
    q.addBindValue(projectId);
    return db_->exec(q) && q.next() ? q.value(0).toInt() : 0;
}

qint64 Directory::projectCompany(qint64 projectId) const {
    QSqlQuery q = prepared(db_, QStringLiteral("SELECT company_id FROM project WHERE id = ? UNION"
                                               " SELECT company_id FROM project_dissolved"
                                               " WHERE id = ?"));
    q.addBindValue(projectId);
    q.addBindValue(projectId);
    return db_->exec(q) && q.next() ? q.value(0).toLongLong() : 0;
}

int Directory::countInCompany(qint64 companyId, const QList<qint64>& userIds) const {
    if (userIds.isEmpty()) return 0;
    // Counts people: the task assistant is nobody's project member.
    QSqlQuery q = prepared(db_, QStringLiteral("SELECT COUNT(*) FROM users WHERE company_id = ?"
                                               " AND id NOT IN (SELECT user_id FROM"
                                               " task_assistant) AND id IN (%1)")
                                    .arg(inList(userIds.size())));
    q.addBindValue(companyId);
    for (qint64 id : userIds) q.addBindValue(id);
    return db_->exec(q) && q.next() ? q.value(0).toInt() : 0;
}

ProjectRoom Directory::projectRoom(qint64 projectId) const {
    ProjectRoom room;
    room.id = projectId;
    QSqlQuery q = prepared(db_, QStringLiteral("SELECT title, owner_id FROM project WHERE id = ?"));
    q.addBindValue(projectId);
    if (db_->exec(q) && q.next()) {
        room.exists = true;
        room.title = text(q, 0);
        room.owner = q.value(1).toLongLong();
        QSqlQuery m = prepared(db_, QStringLiteral("SELECT user_id FROM project_member"
                                                   " WHERE project_id = ? ORDER BY user_id"));
        m.addBindValue(projectId);
        if (db_->exec(m)) {
            while (m.next()) room.members << m.value(0).toLongLong();
        }
        return room;
    }
    QSqlQuery d =
        prepared(db_, QStringLiteral("SELECT room_destroyed FROM project_dissolved WHERE id = ?"));
    d.addBindValue(projectId);
    room.dissolved = db_->exec(d) && d.next();
    return room;
}

QList<qint64> Directory::roomIds() const {
    QList<qint64> ids;
    QSqlQuery q(db_->connection());
    if (db_->exec(
            q, QStringLiteral("SELECT id FROM project UNION SELECT id FROM project_dissolved"
                              " WHERE room_destroyed = 0 UNION SELECT project_id FROM room_notice"
                              " UNION SELECT project_id FROM task_card UNION SELECT"
                              " project_id FROM task_direct_card ORDER BY 1"))) {
        while (q.next()) ids << q.value(0).toLongLong();
    }
    return ids;
}

bool Directory::roomDestroyed(qint64 projectId) {
    QSqlQuery q = prepared(
        db_, QStringLiteral("UPDATE project_dissolved SET room_destroyed = 1 WHERE id = ?"));
    q.addBindValue(projectId);
    return db_->exec(q);
}

QString Directory::taskStatusText(int status) {
    switch (status) {
        case 1:
            return QStringLiteral("处理中");
        case 2:
            return QStringLiteral("暂停中");
        case 3:
            return QStringLiteral("已完成");
        case 4:
            return QStringLiteral("已取消");
        default:
            return QStringLiteral("待处理");
    }
}

QJsonObject Directory::task(qint64 taskId) const {
    QSqlQuery q = prepared(
        db_, QStringLiteral("SELECT t.id, t.project_id, t.title, t.description, t.creator_id,"
                            " t.executor_id, e.real_name, t.deadline, t.status, p.title"
                            " FROM task t LEFT JOIN users e ON e.id = t.executor_id"
                            " LEFT JOIN project p ON p.id = t.project_id WHERE t.id = ?"));
    q.addBindValue(taskId);
    if (!db_->exec(q) || !q.next()) return QJsonObject();
    return QJsonObject{
        {QStringLiteral("taskId"), text(q, 0)},
        {QStringLiteral("projectId"), text(q, 1)},
        {QStringLiteral("title"), text(q, 2)},
        {QStringLiteral("description"), text(q, 3)},
        {QStringLiteral("creatorId"), text(q, 4)},
        {QStringLiteral("executorId"), text(q, 5)},
        {QStringLiteral("executor"), text(q, 6)},
        {QStringLiteral("deadline"), text(q, 7)},
        {QStringLiteral("status"), text(q, 8)},
        {QStringLiteral("statusText"), taskStatusText(q.value(8).toInt())},
        {QStringLiteral("projectTitle"), text(q, 9)},
    };
}

QJsonArray Directory::tasksOf(qint64 projectId) const {
    QSqlQuery q =
        prepared(db_, QStringLiteral("SELECT id FROM task WHERE project_id = ? ORDER BY id"));
    q.addBindValue(projectId);
    QList<qint64> ids;
    if (db_->exec(q)) {
        while (q.next()) ids << q.value(0).toLongLong();
    }
    QJsonArray out;
    for (qint64 id : ids) out.append(task(id));
    return out;
}

bool Directory::markTaskRead(qint64 taskId, qint64 userId) {
    if (task(taskId).isEmpty() || companyOf(userId) == 0) return false;
    QSqlQuery q =
        prepared(db_, QStringLiteral("SELECT 1 FROM task_read WHERE task_id = ? AND user_id = ?"));
    q.addBindValue(taskId);
    q.addBindValue(userId);
    if (db_->exec(q) && q.next()) return true;
    QSqlQuery insert =
        prepared(db_, QStringLiteral("INSERT INTO task_read (task_id, user_id) VALUES (?, ?)"));
    insert.addBindValue(taskId);
    insert.addBindValue(userId);
    if (insert.exec()) return true;
    // A parallel request may have inserted the same flag first; then it is set all the same.
    // Anything else is a failed write.
    QSqlQuery again =
        prepared(db_, QStringLiteral("SELECT 1 FROM task_read WHERE task_id = ? AND user_id = ?"));
    again.addBindValue(taskId);
    again.addBindValue(userId);
    if (db_->exec(again) && again.next()) return true;
    db_->noteFailure(insert.lastError());
    return false;
}

QJsonArray Directory::readFlags(qint64 userId, const QList<qint64>& taskIds) const {
    QJsonArray out;
    for (qint64 taskId : taskIds) {
        QSqlQuery q = prepared(
            db_,
            QStringLiteral("SELECT (SELECT COUNT(*) FROM task WHERE id = ?),"
                           " (SELECT COUNT(*) FROM task_read WHERE task_id = ? AND user_id = ?)"));
        q.addBindValue(taskId);
        q.addBindValue(taskId);
        q.addBindValue(userId);
        if (!db_->exec(q) || !q.next() || q.value(0).toInt() == 0) continue;
        out.append(
            QJsonObject{{QStringLiteral("taskId"), idText(taskId)},
                        {QStringLiteral("readFlag"),
                         q.value(1).toInt() > 0 ? QStringLiteral("1") : QStringLiteral("0")}});
    }
    return out;
}

qint64 Directory::addAttachment(qint64 ownerId, const QString& fileName, const QString& storedName,
                                qint64 size) {
    // Random ids: nothing to coordinate between threads, and ids cannot be enumerated.
    const qint64 id = qint64(QRandomGenerator::system()->generate64() >> 12) + 1;
    QSqlQuery q = prepared(db_, QStringLiteral("INSERT INTO attachment (id, owner_id, file_name,"
                                               " stored_name, size, date_created)"
                                               " VALUES (?, ?, ?, ?, ?, ?)"));
    q.addBindValue(id);
    q.addBindValue(ownerId);
    q.addBindValue(fileName);
    q.addBindValue(storedName);
    q.addBindValue(size);
    q.addBindValue(QDateTime::currentDateTimeUtc().toString(Qt::ISODate));
    return db_->exec(q) ? id : 0;
}

bool Directory::attachment(qint64 id, QString* fileName, QString* storedName, qint64* size,
                           qint64* ownerId) const {
    QSqlQuery q = prepared(db_, QStringLiteral("SELECT file_name, stored_name, size, owner_id"
                                               " FROM attachment WHERE id = ?"));
    q.addBindValue(id);
    if (!db_->exec(q) || !q.next()) return false;
    *fileName = text(q, 0);
    *storedName = text(q, 1);
    *size = q.value(2).toLongLong();
    if (ownerId) *ownerId = q.value(3).toLongLong();
    return true;
}

qint64 Directory::taskCompany(qint64 taskId) const {
    QSqlQuery q = prepared(db_, QStringLiteral("SELECT project_id FROM task WHERE id = ?"));
    q.addBindValue(taskId);
    return db_->exec(q) && q.next() ? projectCompany(q.value(0).toLongLong()) : 0;
}

QList<qint64> Directory::inCompany(qint64 companyId, const QList<qint64>& userIds) const {
    if (userIds.isEmpty()) return {};
    QSqlQuery q = prepared(db_, QStringLiteral("SELECT id FROM users WHERE company_id = ?"
                                               " AND id IN (%1)")
                                    .arg(inList(userIds.size())));
    q.addBindValue(companyId);
    for (qint64 id : userIds) q.addBindValue(id);
    QSet<qint64> found;
    if (db_->exec(q)) {
        while (q.next()) found.insert(q.value(0).toLongLong());
    }
    QList<qint64> out;
    for (qint64 id : userIds) {
        if (found.contains(id)) out << id;
    }
    return out;
}

QString Directory::imSecret(qint64 userId) const {
    QSqlQuery q = prepared(db_, QStringLiteral("SELECT im_secret FROM users WHERE id = ?"));
    q.addBindValue(userId);
    return db_->exec(q) && q.next() ? q.value(0).toString() : QString();
}

qint64 Directory::taskAssistant(qint64 companyId, bool* made) {
    auto find = [this, companyId] {
        QSqlQuery q = prepared(
            db_, QStringLiteral("SELECT user_id FROM task_assistant WHERE company_id = ?"));
        q.addBindValue(companyId);
        return db_->exec(q) && q.next() ? q.value(0).toLongLong() : qint64(0);
    };
    if (const qint64 id = find()) return id;
    if (!companyExists(companyId)) return 0;
    // Two workers may make it at once: the company's key lets one win, the other reads it.
    QSqlDatabase db = db_->connection();
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (!db.transaction()) return 0;
        QSqlQuery next(db);
        qint64 id = 0;
        if (next.exec(QStringLiteral("SELECT MAX(id) FROM users")) && next.next())
            id = next.value(0).toLongLong() + 1;
        QByteArray secret(16, Qt::Uninitialized);
        QRandomGenerator::system()->fillRange(reinterpret_cast<quint32*>(secret.data()), 4);
        QSqlQuery user(db);
        user.prepare(QStringLiteral(
            "INSERT INTO users (id, company_id, dept_id, user_name, real_name, work_nick, mobile,"
            " email, date_created, full_pinyin, short_pinyin, password_hash, im_secret, open_id)"
            " VALUES (?, ?, 0, ?, ?, ?, '', '', ?, 'renwuzhushou', 'rwzs', '', ?, '')"));
        user.addBindValue(id);
        user.addBindValue(companyId);
        // Not a name anyone can sign in with: the password hash is empty.
        user.addBindValue(QStringLiteral("~task-assistant-%1").arg(companyId));
        user.addBindValue(QStringLiteral("任务助手"));
        user.addBindValue(QStringLiteral("任务助手"));
        user.addBindValue(QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd")));
        user.addBindValue(QString::fromLatin1(secret.toHex()));
        QSqlQuery link(db);
        link.prepare(
            QStringLiteral("INSERT INTO task_assistant (company_id, user_id) VALUES (?, ?)"));
        link.addBindValue(companyId);
        link.addBindValue(id);
        if (id > 0 && user.exec() && link.exec() && db.commit()) {
            qInfo("directory: task assistant of company %lld is %lld", companyId, id);
            if (made) *made = true;
            return id;
        }
        db.rollback();
        if (const qint64 made = find()) return made;
    }
    qWarning("directory: cannot make the task assistant of company %lld", companyId);
    return 0;
}
