#include "database.h"

#include <QAtomicInteger>
#include <QElapsedTimer>
#include <QHash>
#include <QMutexLocker>
#include <QSqlError>
#include <QSqlQuery>
#include <QUrl>

namespace {

QAtomicInteger<int> instanceCounter;
QAtomicInteger<int> connectionCounter;
thread_local bool requestFailedFlag = false;
// A connection is never swapped under an open transaction: its statements would then run
// on their own, outside it.
thread_local bool inTransaction = false;

// Kept to what both SQLite and PostgreSQL accept; ids come from the directory itself, so
// no auto-increment dialect is needed. "users" because "user" is reserved in PostgreSQL.
const char* const kSchema[] = {
    "CREATE TABLE IF NOT EXISTS company (id BIGINT PRIMARY KEY, name VARCHAR(200) NOT NULL,"
    " crm_sys VARCHAR(200) NOT NULL DEFAULT '')",
    "CREATE TABLE IF NOT EXISTS dept (id BIGINT PRIMARY KEY, company_id BIGINT NOT NULL,"
    " parent_id BIGINT NOT NULL, org_name VARCHAR(200) NOT NULL,"
    " full_pinyin VARCHAR(400) NOT NULL, short_pinyin VARCHAR(100) NOT NULL,"
    " sort_order INTEGER NOT NULL DEFAULT 0)",
    "CREATE TABLE IF NOT EXISTS users (id BIGINT PRIMARY KEY, company_id BIGINT NOT NULL,"
    " dept_id BIGINT NOT NULL, user_name VARCHAR(100) NOT NULL UNIQUE,"
    " real_name VARCHAR(100) NOT NULL, work_nick VARCHAR(100) NOT NULL,"
    " mobile VARCHAR(40) NOT NULL, email VARCHAR(200) NOT NULL,"
    " date_created VARCHAR(40) NOT NULL, full_pinyin VARCHAR(400) NOT NULL,"
    " short_pinyin VARCHAR(100) NOT NULL, password_hash VARCHAR(200) NOT NULL,"
    " im_secret VARCHAR(100) NOT NULL, open_id VARCHAR(100) NOT NULL)",
    "CREATE INDEX IF NOT EXISTS users_company ON users (company_id, id)",
    "CREATE TABLE IF NOT EXISTS project (id BIGINT PRIMARY KEY, company_id BIGINT NOT NULL,"
    " title VARCHAR(200) NOT NULL, owner_id BIGINT NOT NULL,"
    " date_created VARCHAR(40) NOT NULL)",
    // Dissolved projects: their ids stay taken, and their rooms wait here to be destroyed.
    "CREATE TABLE IF NOT EXISTS project_dissolved (id BIGINT PRIMARY KEY,"
    " company_id BIGINT NOT NULL, room_destroyed INTEGER NOT NULL DEFAULT 0)",
    "CREATE TABLE IF NOT EXISTS room_notice (id BIGINT PRIMARY KEY, project_id BIGINT NOT NULL,"
    " recipient BIGINT NOT NULL, event VARCHAR(20) NOT NULL, user_id BIGINT NOT NULL,"
    " title VARCHAR(200) NOT NULL)",
    "CREATE INDEX IF NOT EXISTS room_notice_project ON room_notice (project_id, id)",
    "CREATE TABLE IF NOT EXISTS project_member (project_id BIGINT NOT NULL,"
    " user_id BIGINT NOT NULL, PRIMARY KEY (project_id, user_id))",
    "CREATE INDEX IF NOT EXISTS project_member_user ON project_member (user_id)",
    "CREATE TABLE IF NOT EXISTS task (id BIGINT PRIMARY KEY, project_id BIGINT NOT NULL,"
    " title VARCHAR(200) NOT NULL, description VARCHAR(2000) NOT NULL,"
    " creator_id BIGINT NOT NULL, executor_id BIGINT NOT NULL,"
    " deadline VARCHAR(40) NOT NULL, status INTEGER NOT NULL)",
    "CREATE INDEX IF NOT EXISTS task_project ON task (project_id)",
    "CREATE TABLE IF NOT EXISTS task_read (task_id BIGINT NOT NULL, user_id BIGINT NOT NULL,"
    " PRIMARY KEY (task_id, user_id))",
    "CREATE TABLE IF NOT EXISTS task_reply (id BIGINT PRIMARY KEY, task_id BIGINT NOT NULL,"
    " user_id BIGINT NOT NULL, text VARCHAR(2000) NOT NULL, date_created VARCHAR(40) NOT NULL)",
    "CREATE INDEX IF NOT EXISTS task_reply_task ON task_reply (task_id, id)",
    // Task cards waiting to be posted into a project's room by the back end's XMPP session.
    "CREATE TABLE IF NOT EXISTS task_card (id BIGINT PRIMARY KEY, project_id BIGINT NOT NULL,"
    " payload VARCHAR(8000) NOT NULL)",
    "CREATE INDEX IF NOT EXISTS task_card_project ON task_card (project_id, id)",
    // Cards for one colleague (a task assigned to them), sent on behalf of `sender`, the
    // company's task assistant.
    "CREATE TABLE IF NOT EXISTS task_direct_card (id BIGINT PRIMARY KEY,"
    " project_id BIGINT NOT NULL, recipient BIGINT NOT NULL, sender BIGINT NOT NULL,"
    " payload VARCHAR(8000) NOT NULL)",
    "CREATE INDEX IF NOT EXISTS task_direct_card_project ON task_direct_card (project_id, id)",
    // Each company's task assistant: a directory entry nobody signs in as, in whose name
    // the back end tells colleagues of tasks given to them.
    "CREATE TABLE IF NOT EXISTS task_assistant (company_id BIGINT PRIMARY KEY,"
    " user_id BIGINT NOT NULL UNIQUE)",
    "CREATE TABLE IF NOT EXISTS attachment (id BIGINT PRIMARY KEY, owner_id BIGINT NOT NULL,"
    " file_name VARCHAR(300) NOT NULL, stored_name VARCHAR(100) NOT NULL,"
    " size BIGINT NOT NULL, date_created VARCHAR(40) NOT NULL)",
};

}  // namespace

Database::Database(const QString& address)
    : prefix_(QStringLiteral("quelix-db-%1-").arg(instanceCounter.fetchAndAddRelaxed(1))) {
    if (address.startsWith(QLatin1String("sqlite:"))) {
        QString path = address.mid(7);
        if (path.startsWith(QLatin1String("//"))) path = path.mid(2);
        if (path.isEmpty()) return;
        driver_ = QStringLiteral("QSQLITE");
        name_ = path;
        return;
    }
    const QUrl url(address);
    if (!url.isValid() || (url.scheme() != QLatin1String("postgresql") &&
                           url.scheme() != QLatin1String("postgres"))) {
        return;
    }
    driver_ = QStringLiteral("QPSQL");
    name_ = url.path().mid(1);
    host_ = url.host();
    port_ = url.port(-1);
    user_ = url.userName();
    password_ = url.password();
}

Database::~Database() {
    QMutexLocker lock(&mutex_);
    for (const QString& name : qAsConst(opened_)) QSqlDatabase::removeDatabase(name);
}

QString Database::lastError() const {
    QMutexLocker lock(&mutex_);
    return lastError_;
}

QSqlDatabase Database::connection() {
    // Names are never reused: a thread id can come back after its thread ended, and a Qt SQL
    // connection refuses to serve any thread but the one that opened it.
    struct Opened {
        QString name;
        int generation = 0;
        QElapsedTimer lastAttempt;
    };
    thread_local QHash<QString, Opened> names;
    Opened& mine = names[prefix_];
    if (!mine.name.isEmpty()) {
        QSqlDatabase db = QSqlDatabase::database(mine.name, false);
        const int now = generation_.loadAcquire();
        // Reopened when the last attempt failed or a lost connection was seen since.
        // A database that refuses connections is asked again at most once a second, so a
        // request does not wait for a connection attempt per statement.
        if (inTransaction) return db;
        if (mine.generation != now || (!db.isOpen() && mine.lastAttempt.hasExpired(1000))) {
            mine.generation = now;
            db.close();
            mine.lastAttempt.start();
            openConnection(db);
        } else if (!db.isOpen()) {
            requestFailedFlag = true;
        }
        return db;
    }
    mine.name = prefix_ + QString::number(connectionCounter.fetchAndAddRelaxed(1));
    mine.generation = generation_.loadAcquire();

    QSqlDatabase db = QSqlDatabase::addDatabase(driver_, mine.name);
    db.setDatabaseName(name_);
    if (!host_.isEmpty()) db.setHostName(host_);
    if (port_ > 0) db.setPort(port_);
    if (!user_.isEmpty()) db.setUserName(user_);
    if (!password_.isEmpty()) db.setPassword(password_);
    if (isSqlite())
        db.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=10000"));
    else
        db.setConnectOptions(QStringLiteral("connect_timeout=5"));
    {
        QMutexLocker lock(&mutex_);
        opened_ << mine.name;
    }
    mine.lastAttempt.start();
    openConnection(db);
    return db;
}

bool Database::openConnection(QSqlDatabase& db) {
    if (!db.open()) {
        const QString error = db.lastError().text();
        {
            QMutexLocker lock(&mutex_);
            lastError_ = error;
        }
        requestFailedFlag = true;
        qWarning("database: cannot connect: %s", qPrintable(error));
        return false;
    }
    QSqlQuery q(db);
    if (!isSqlite()) {
        // "already exists, skipping" notices are not worth a line each on every start.
        q.exec(QStringLiteral("SET client_min_messages TO WARNING"));
    } else {
        // Readers on other threads keep going while one thread writes.
        q.exec(QStringLiteral("PRAGMA journal_mode=WAL"));
        q.exec(QStringLiteral("PRAGMA synchronous=NORMAL"));
    }
    return true;
}

bool Database::exec(QSqlQuery& query) {
    if (query.exec()) return true;
    noteFailure(query.lastError());
    return false;
}

bool Database::exec(QSqlQuery& query, const QString& sql) {
    if (query.exec(sql)) return true;
    noteFailure(query.lastError());
    return false;
}

bool Database::transaction(QSqlDatabase& db) {
    if (db.transaction()) {
        inTransaction = true;
        return true;
    }
    noteFailure(db.lastError());
    return false;
}

bool Database::commit(QSqlDatabase& db) {
    const bool done = db.commit();
    if (!done) {
        // Whatever the commit did not do is undone, so the connection is usable again.
        const QSqlError error = db.lastError();
        db.rollback();
        inTransaction = false;
        noteFailure(error);
        return false;
    }
    inTransaction = false;
    return true;
}

void Database::rollback(QSqlDatabase& db) {
    db.rollback();
    inTransaction = false;
}

void Database::noteFailure(const QSqlError& error) {
    requestFailedFlag = true;
    qWarning("database: statement failed: %s", qPrintable(error.text()));
    // Inside a transaction a failed statement fails every later one; the caller rolls back
    // and a lost connection shows again on the next request.
    if (isSqlite() || inTransaction) return;
    // A lost server connection shows as a plain statement error; ask the connection itself.
    QSqlDatabase db = connection();
    QSqlQuery probe(db);
    if (!db.isOpen() || !probe.exec(QStringLiteral("SELECT 1"))) {
        qWarning("database: connection lost; reconnecting");
        generation_.fetchAndAddOrdered(1);
    }
}

void Database::beginRequest() { requestFailedFlag = false; }

bool Database::requestFailed() { return requestFailedFlag; }

bool Database::createSchema() {
    QSqlDatabase db = connection();
    if (!db.isOpen()) return false;
    QSqlQuery q(db);
    for (const char* statement : kSchema) {
        if (!q.exec(QString::fromLatin1(statement))) {
            QMutexLocker lock(&mutex_);
            lastError_ = q.lastError().text();
            return false;
        }
    }
    return true;
}
