#include "store/message_store.h"

#include <QAtomicInteger>
#include <QDebug>
#include <QDir>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>
#include <algorithm>

#include <sqlite3.h>

namespace {

QAtomicInteger<quint64> g_connections;

const char kColumns[] =
    "id, peer, sender, outgoing, kind, content, summary, url, file_size, width, height, time, "
    "unread, stanza_id, origin_id, pending_media, seq";

QString columnText(sqlite3_stmt* statement, int column) {
    const void* data = sqlite3_column_text16(statement, column);
    return data ? QString(static_cast<const QChar*>(data),
                          sqlite3_column_bytes16(statement, column) / 2)
                : QString();
}

// One row of kColumns.
StoredMessage rowFrom(sqlite3_stmt* statement) {
    StoredMessage m;
    m.id = quint64(sqlite3_column_int64(statement, 0));
    m.peer = columnText(statement, 1);
    m.sender = columnText(statement, 2);
    m.outgoing = sqlite3_column_int(statement, 3) != 0;
    m.kind = sqlite3_column_int(statement, 4);
    m.content = columnText(statement, 5);
    m.summary = columnText(statement, 6);
    m.url = columnText(statement, 7);
    m.fileSize = sqlite3_column_int64(statement, 8);
    m.width = sqlite3_column_int(statement, 9);
    m.height = sqlite3_column_int(statement, 10);
    m.time = sqlite3_column_int64(statement, 11);
    m.unread = sqlite3_column_int(statement, 12) != 0;
    m.stanzaId = columnText(statement, 13);
    m.originId = columnText(statement, 14);
    m.pendingMedia = sqlite3_column_int(statement, 15) != 0;
    m.seq = sqlite3_column_int64(statement, 16);
    return m;
}

// Texts are bound in place unless told otherwise: the caller keeps them alive until the
// statement is reset. A missing text goes in as NULL, as QtSql binds it.
void bindText(sqlite3_stmt* statement, int slot, const QString& value, bool nullWhenEmpty,
              sqlite3_destructor_type lifetime = SQLITE_STATIC) {
    if (value.isNull() || (nullWhenEmpty && value.isEmpty()))
        sqlite3_bind_null(statement, slot);
    else
        sqlite3_bind_text16(statement, slot, value.utf16(), int(value.size() * 2), lifetime);
}

}  // namespace

MessageStore::MessageStore() = default;
MessageStore::~MessageStore() { close(); }

bool MessageStore::open(const QString& file) {
    close();
    QDir().mkpath(QFileInfo(file).absolutePath());
    QString name = QStringLiteral("imsdk-store-%1").arg(++g_connections);
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        db.setDatabaseName(file);
        if (!db.open()) {
            db = QSqlDatabase();
            QSqlDatabase::removeDatabase(name);
            return false;
        }
        QSqlQuery q(db);
        // Stores written before messages had a place of their own keep their arrival order.
        if (!q.exec(QStringLiteral("SELECT seq FROM messages LIMIT 1")) &&
            q.exec(QStringLiteral("SELECT id FROM messages LIMIT 1"))) {
            q.exec(
                QStringLiteral("ALTER TABLE messages ADD COLUMN seq INTEGER NOT NULL DEFAULT 0"));
            q.exec(QStringLiteral("UPDATE messages SET seq = id * %1").arg(kSeqGap));
        }
        // Stores written before the user's seen marks were kept: everything counts as seen.
        if (!q.exec(QStringLiteral("SELECT seen FROM messages LIMIT 1")) &&
            q.exec(QStringLiteral("SELECT id FROM messages LIMIT 1")))
            q.exec(
                QStringLiteral("ALTER TABLE messages ADD COLUMN seen INTEGER NOT NULL DEFAULT 1"));
        const char* setup[] = {
            "PRAGMA journal_mode=WAL",
            "PRAGMA synchronous=NORMAL",
            // The archive and origin ids are random, so every commit dirties pages all over
            // their indexes; copying the journal back every 4 MB (the default) rewrote the
            // same pages again and again. 16 MB of journal halves that work in a burst.
            "PRAGMA wal_autocheckpoint=4000",
            "PRAGMA journal_size_limit=16777216",
            "CREATE TABLE IF NOT EXISTS messages(id INTEGER PRIMARY KEY AUTOINCREMENT,"
            " peer TEXT NOT NULL, sender TEXT NOT NULL, outgoing INTEGER NOT NULL,"
            " kind INTEGER NOT NULL, content TEXT, summary TEXT, url TEXT, file_size INTEGER,"
            " width INTEGER, height INTEGER, time INTEGER NOT NULL, unread INTEGER NOT NULL,"
            " stanza_id TEXT UNIQUE, origin_id TEXT, pending_media INTEGER NOT NULL DEFAULT 0,"
            " seq INTEGER NOT NULL DEFAULT 0, seen INTEGER NOT NULL DEFAULT 1)",
            "CREATE UNIQUE INDEX IF NOT EXISTS messages_origin ON messages(sender, origin_id)",
            "DROP INDEX IF EXISTS messages_peer_time",
            "CREATE INDEX IF NOT EXISTS messages_peer_order ON messages(peer, time, seq)",
            // Unread rows only, in reading order: a fetch reads them without sorting, and
            // marking a row read only takes it out.
            "DROP INDEX IF EXISTS messages_unread",
            "CREATE INDEX IF NOT EXISTS messages_unread_order ON messages(peer, time, seq)"
            " WHERE unread = 1",
            "CREATE INDEX IF NOT EXISTS messages_unseen ON messages(peer) WHERE seen = 0",
            "CREATE TABLE IF NOT EXISTS meta(key TEXT PRIMARY KEY, value TEXT)",
        };
        for (const char* sql : setup) {
            if (!q.exec(QString::fromLatin1(sql))) {
                db.close();
                db = QSqlDatabase();
                QSqlDatabase::removeDatabase(name);
                return false;
            }
        }
    }
    connection_ = name;
    const QVariant handle = QSqlDatabase::database(connection_, false).driver()->handle();
    if (handle.isValid() && qstrcmp(handle.typeName(), "sqlite3*") == 0)
        handle_ = *static_cast<sqlite3* const*>(handle.constData());
    QSqlQuery last(QSqlDatabase::database(connection_, false));
    lastSeq_ = last.exec(QStringLiteral("SELECT MAX(seq) FROM messages")) && last.next()
                   ? last.value(0).toLongLong()
                   : 0;
    return true;
}

void MessageStore::close() {
    if (connection_.isEmpty()) return;
    // Statements go before their connection does.
    byStanzaId_.reset();
    byOriginId_.reset();
    sqlite3_finalize(insert_);  // a statement left open would keep the file from closing
    insert_ = nullptr;
    handle_ = nullptr;
    setMeta_.reset();
    sqlite3_finalize(unread_);
    unread_ = nullptr;
    markOne_.reset();
    unreadCount_.reset();
    begin_.reset();
    commit_.reset();
    if (batchDepth_ > 0) {
        batchDepth_ = 0;
        QSqlDatabase::database(connection_, false).commit();
    }
    {
        QSqlDatabase db = QSqlDatabase::database(connection_, false);
        db.close();
    }
    QSqlDatabase::removeDatabase(connection_);
    connection_.clear();
}

QSqlQuery& MessageStore::prepared(std::unique_ptr<QSqlQuery>& slot, const char* sql) {
    if (!slot) {
        slot = std::make_unique<QSqlQuery>(QSqlDatabase::database(connection_, false));
        // Rows are read once, front to back: without this every row is also kept in a cache.
        slot->setForwardOnly(true);
        slot->prepare(QString::fromLatin1(sql));
    }
    return *slot;
}

// BEGIN and COMMIT are prepared once too: a burst opens a batch per socket read.
void MessageStore::beginBatch() {
    if (!isOpen()) return;
    if (batchDepth_++ == 0) {
        QSqlQuery& q = prepared(begin_, "BEGIN");
        q.exec();
        q.finish();
    }
}

bool MessageStore::endBatch() {
    if (!isOpen() || batchDepth_ == 0) return true;  // closed meanwhile: close() committed
    if (--batchDepth_ > 0) return true;
    QSqlQuery& q = prepared(commit_, "COMMIT");
    const bool committed = q.exec();
    q.finish();
    if (committed) return true;
    QSqlDatabase::database(connection_, false).rollback();
    return false;
}

qint64 MessageStore::nextSeq() {
    lastSeq_ = (lastSeq_ / kSeqGap + 1) * kSeqGap;
    return lastSeq_;
}

// The statements a burst runs thousands of times go to SQLite directly, on the handle of
// Qt's own connection: QtSql turns every bound value and every column into a variant and
// looks up a named slot for each, which cost a third as much as SQLite's own work.
sqlite3_stmt* MessageStore::raw(sqlite3_stmt*& slot, const char* sql) {
    if (slot) return slot;
    if (!handle_ || sqlite3_prepare_v2(handle_, sql, -1, &slot, nullptr) != SQLITE_OK) {
        qWarning().noquote() << "imsdk: the message store cannot prepare" << sql << ":"
                             << (handle_ ? sqlite3_errmsg(handle_) : "no SQLite handle");
        sqlite3_finalize(slot);
        slot = nullptr;
    }
    return slot;
}

// Steps a statement holding kColumns to its end; false (with a log line) if it stopped on
// an error, so the caller does not pass off what it got as everything.
bool MessageStore::readRows(sqlite3_stmt* statement, QList<StoredMessage>* out) {
    int rc;
    while ((rc = sqlite3_step(statement)) == SQLITE_ROW) out->append(rowFrom(statement));
    if (rc != SQLITE_DONE)
        qWarning().noquote() << "imsdk: reading the message store stopped:"
                             << sqlite3_errmsg(handle_);
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
    return rc == SQLITE_DONE;
}

// Nearly every message is new, so the insert goes first and the unique ids decide; only a
// refused insert looks for the copy it met (and gives it the server's id if it had none).
std::optional<quint64> MessageStore::insert(const StoredMessage& m) {
    if (!isOpen()) return std::nullopt;
    sqlite3_stmt* const insert = raw(insert_,
                                     "INSERT INTO messages(peer, sender, outgoing, kind, content, "
                                     "summary, url, file_size, width, height, time, unread, "
                                     "stanza_id, origin_id, pending_media, seq, seen)"
                                     " VALUES(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)");
    if (!insert) return std::nullopt;
    const qint64 seq = m.seq != 0 ? m.seq : nextSeq();
    bindText(insert, 1, m.peer, false);
    bindText(insert, 2, m.sender, false);
    sqlite3_bind_int(insert, 3, m.outgoing ? 1 : 0);
    sqlite3_bind_int(insert, 4, m.kind);
    bindText(insert, 5, m.content, false);
    bindText(insert, 6, m.summary, false);
    bindText(insert, 7, m.url, false);
    sqlite3_bind_int64(insert, 8, m.fileSize);
    sqlite3_bind_int(insert, 9, m.width);
    sqlite3_bind_int(insert, 10, m.height);
    sqlite3_bind_int64(insert, 11, m.time);
    sqlite3_bind_int(insert, 12, m.unread ? 1 : 0);
    bindText(insert, 13, m.stanzaId, true);
    bindText(insert, 14, m.originId, true);
    sqlite3_bind_int(insert, 15, m.pendingMedia ? 1 : 0);
    sqlite3_bind_int64(insert, 16, seq);
    // A message that arrives for the host is new to the user too; history is not.
    sqlite3_bind_int(insert, 17, m.unread ? 0 : 1);
    const int rc = sqlite3_step(insert);
    const QString error =
        rc == SQLITE_DONE ? QString() : QString::fromUtf8(sqlite3_errmsg(handle_));
    sqlite3_reset(insert);
    sqlite3_clear_bindings(insert);
    if (rc == SQLITE_DONE) {
        lastSeq_ = std::max(lastSeq_, seq);
        return quint64(sqlite3_last_insert_rowid(handle_));
    }
    if (!m.stanzaId.isEmpty()) {
        QSqlQuery& byStanza =
            prepared(byStanzaId_, "SELECT id FROM messages WHERE stanza_id = ? LIMIT 1");
        byStanza.bindValue(0, m.stanzaId);
        const bool found = byStanza.exec() && byStanza.next();
        byStanza.finish();
        if (found) return std::nullopt;
    }
    if (!m.originId.isEmpty()) {
        QSqlQuery& byOrigin = prepared(
            byOriginId_, "SELECT id, stanza_id FROM messages WHERE sender = ? AND origin_id = ?");
        byOrigin.bindValue(0, m.sender);
        byOrigin.bindValue(1, m.originId);
        if (byOrigin.exec() && byOrigin.next()) {
            const bool fillIn = byOrigin.value(1).isNull() && !m.stanzaId.isEmpty();
            const quint64 id = byOrigin.value(0).toULongLong();
            byOrigin.finish();
            if (fillIn) {
                QSqlQuery u(QSqlDatabase::database(connection_, false));
                u.prepare(QStringLiteral("UPDATE messages SET stanza_id = ? WHERE id = ?"));
                u.addBindValue(m.stanzaId);
                u.addBindValue(id);
                u.exec();
            }
            return std::nullopt;
        }
        byOrigin.finish();
    }
    qWarning().noquote() << "imsdk: a received message could not be stored:" << error;
    return std::nullopt;
}

void MessageStore::settleTime(const QString& stanzaId, qint64 time) {
    if (!isOpen() || stanzaId.isEmpty()) return;
    QSqlQuery q(QSqlDatabase::database(connection_, false));
    q.prepare(QStringLiteral("UPDATE messages SET time = ? WHERE stanza_id = ? AND time > ?"));
    q.addBindValue(time);
    q.addBindValue(stanzaId);
    q.addBindValue(time);
    q.exec();
}

QList<StoredMessage> MessageStore::select(const QString& where, const QVariantList& args,
                                          const QString& tail) {
    QList<StoredMessage> out;
    if (!isOpen()) return out;
    const QByteArray sql = QStringLiteral("SELECT %1 FROM messages WHERE %2 %3")
                               .arg(QLatin1String(kColumns), where, tail)
                               .toUtf8();
    sqlite3_stmt* statement = nullptr;
    if (!raw(statement, sql.constData())) return out;
    int slot = 0;
    for (const QVariant& v : args) {
        if (v.type() == QVariant::String)
            bindText(statement, ++slot, v.toString(), false, SQLITE_TRANSIENT);
        else
            sqlite3_bind_int64(statement, ++slot, v.toLongLong());
    }
    readRows(statement, &out);
    sqlite3_finalize(statement);
    return out;
}

std::optional<StoredMessage> MessageStore::message(quint64 id) {
    auto rows = select(QStringLiteral("id = ?"), {QVariant(id)}, QString());
    if (rows.isEmpty()) return std::nullopt;
    return rows.first();
}

std::optional<StoredMessage> MessageStore::byOrigin(const QString& sender,
                                                    const QString& originId) {
    auto rows =
        select(QStringLiteral("sender = ? AND origin_id = ?"), {sender, originId}, QString());
    if (rows.isEmpty()) return std::nullopt;
    return rows.first();
}

// Unread messages of a peer (bound twice) that are ready to be read: those before the
// first picture or file still downloading.
static const char kReadyUnread[] =
    "peer = ? AND unread = 1 AND pending_media = 0 AND id < COALESCE((SELECT MIN(id) FROM "
    "messages WHERE peer = ? AND unread = 1 AND pending_media = 1), 9223372036854775807)";

int MessageStore::unreadCount(const QString& peer) {
    if (!isOpen()) return 0;
    static const QByteArray sql = QByteArray("SELECT COUNT(*) FROM messages WHERE ") + kReadyUnread;
    QSqlQuery& q = prepared(unreadCount_, sql.constData());
    q.bindValue(0, peer);
    q.bindValue(1, peer);
    const int count = q.exec() && q.next() ? q.value(0).toInt() : 0;
    q.finish();
    return count;
}

QList<StoredMessage> MessageStore::unread(const QString& peer) {
    // Only what came before the first picture or file still downloading: what was sent
    // after it waits for it, so the conversation reads in the order it was written.
    QList<StoredMessage> out;
    if (!isOpen()) return out;
    static const QByteArray sql = QByteArray("SELECT ") + kColumns + " FROM messages WHERE " +
                                  kReadyUnread + " ORDER BY time, seq";
    sqlite3_stmt* const unread = raw(unread_, sql.constData());
    if (!unread) return out;
    for (int slot : {1, 2}) bindText(unread, slot, peer, false);
    readRows(unread, &out);
    return out;
}

QStringList MessageStore::unreadPeers() {
    QStringList peers;
    if (!isOpen()) return peers;
    QSqlQuery q(QSqlDatabase::database(connection_, false));
    if (q.exec(QStringLiteral("SELECT DISTINCT peer FROM messages WHERE unread = 1 AND "
                              "pending_media = 0 ORDER BY peer")))
        while (q.next()) peers << q.value(0).toString();
    return peers;
}

QList<MessageStore::Unseen> MessageStore::unseen() {
    QList<Unseen> out;
    if (!isOpen()) return out;
    QSqlQuery q(QSqlDatabase::database(connection_, false));
    if (!q.exec(QStringLiteral("SELECT peer, COUNT(*), MAX(time) FROM messages WHERE seen = 0 "
                               "AND unread = 0 GROUP BY peer ORDER BY MAX(time)"))) {
        qWarning("imsdk store: unseen messages could not be read: %s",
                 qPrintable(q.lastError().text()));
        return out;
    }
    while (q.next())
        out.append({q.value(0).toString(), q.value(1).toInt(), q.value(2).toLongLong()});
    return out;
}

bool MessageStore::markSeen(const QString& peer) {
    if (!isOpen()) return false;
    QSqlQuery q(QSqlDatabase::database(connection_, false));
    q.prepare(QStringLiteral("UPDATE messages SET seen = 1 WHERE peer = ? AND seen = 0"));
    q.addBindValue(peer);
    if (q.exec()) return true;
    qWarning("imsdk store: seen mark for %s not kept: %s", qPrintable(peer),
             qPrintable(q.lastError().text()));
    return false;
}

bool MessageStore::remove(quint64 id) {
    if (!isOpen()) return false;
    QSqlQuery q(QSqlDatabase::database(connection_, false));
    q.prepare(QStringLiteral("DELETE FROM messages WHERE id = ?"));
    q.addBindValue(id);
    if (q.exec()) return true;
    qWarning("imsdk store: message %llu not taken out: %s", static_cast<unsigned long long>(id),
             qPrintable(q.lastError().text()));
    return false;
}

void MessageStore::markRead(const QString& peer) {
    if (!isOpen()) return;
    QSqlQuery q(QSqlDatabase::database(connection_, false));
    q.prepare(QStringLiteral("UPDATE messages SET unread = 0 WHERE peer = ? AND unread = 1"));
    q.addBindValue(peer);
    q.exec();
}

void MessageStore::markRead(const QList<quint64>& ids) {
    if (!isOpen() || ids.isEmpty()) return;
    // A slice of shown messages is marked in statements of kMarkChunk ids; the places a
    // short chunk leaves are filled with 0, which no message has.
    static const QByteArray sql = [] {
        QByteArray s = "UPDATE messages SET unread = 0 WHERE id IN (?";
        for (int i = 1; i < kMarkChunk; ++i) s += ",?";
        return s + ")";
    }();
    beginBatch();
    QSqlQuery& q = prepared(markOne_, sql.constData());
    for (int from = 0; from < ids.size(); from += kMarkChunk) {
        for (int i = 0; i < kMarkChunk; ++i)
            q.bindValue(i, from + i < ids.size() ? qint64(ids.at(from + i)) : qint64(0));
        q.exec();
    }
    q.finish();
    endBatch();
}

QList<StoredMessage> MessageStore::page(const QString& peer, qint64 beforeTime, qint64 beforeSeq,
                                        int limit) {
    QList<StoredMessage> rows;
    if (beforeTime == 0 && beforeSeq == 0)
        rows = select(QStringLiteral("peer = ?"), {peer},
                      QStringLiteral("ORDER BY time DESC, seq DESC LIMIT %1").arg(limit));
    else
        rows = select(QStringLiteral("peer = ? AND (time < ? OR (time = ? AND seq < ?))"),
                      {peer, beforeTime, beforeTime, beforeSeq},
                      QStringLiteral("ORDER BY time DESC, seq DESC LIMIT %1").arg(limit));
    std::reverse(rows.begin(), rows.end());
    return rows;
}

QString MessageStore::oldestStanzaId(const QString& peer) {
    auto rows = select(QStringLiteral("peer = ? AND stanza_id IS NOT NULL"), {peer},
                       QStringLiteral("ORDER BY time, seq LIMIT 1"));
    return rows.isEmpty() ? QString() : rows.first().stanzaId;
}

qint64 MessageStore::oldestTime(const QString& peer) {
    const auto rows =
        select(QStringLiteral("peer = ?"), {peer}, QStringLiteral("ORDER BY time, seq LIMIT 1"));
    return rows.isEmpty() ? 0 : rows.first().time;
}

qint64 MessageStore::newestTime(const QString& peer) {
    const auto rows = select(QStringLiteral("peer = ?"), {peer},
                             QStringLiteral("ORDER BY time DESC, seq DESC LIMIT 1"));
    return rows.isEmpty() ? 0 : rows.first().time;
}

qint64 MessageStore::newestOneToOneTime() {
    const auto rows = select(QStringLiteral("peer NOT LIKE 'tribe:%'"), {},
                             QStringLiteral("ORDER BY time DESC, seq DESC LIMIT 1"));
    return rows.isEmpty() ? 0 : rows.first().time;
}

void MessageStore::finishMedia(quint64 id, const QString& localPath) {
    if (!isOpen()) return;
    QSqlQuery q(QSqlDatabase::database(connection_, false));
    q.prepare(QStringLiteral("UPDATE messages SET pending_media = 0, content = ? WHERE id = ?"));
    q.addBindValue(localPath);
    q.addBindValue(id);
    q.exec();
}

bool MessageStore::releaseMedia(quint64 id) {
    if (!isOpen()) return false;
    QSqlQuery q(QSqlDatabase::database(connection_, false));
    q.prepare(
        QStringLiteral("UPDATE messages SET pending_media = 0 WHERE id = ? AND pending_media = 1"));
    q.addBindValue(id);
    return q.exec() && q.numRowsAffected() > 0;
}

QString MessageStore::meta(const QString& key) {
    if (!isOpen()) return QString();
    QSqlQuery q(QSqlDatabase::database(connection_, false));
    q.prepare(QStringLiteral("SELECT value FROM meta WHERE key = ?"));
    q.addBindValue(key);
    return q.exec() && q.next() ? q.value(0).toString() : QString();
}

void MessageStore::setMeta(const QString& key, const QString& value) {
    if (!isOpen()) return;
    QSqlQuery& q = prepared(setMeta_, "INSERT OR REPLACE INTO meta(key, value) VALUES(?, ?)");
    q.bindValue(0, key);
    q.bindValue(1, value);
    q.exec();
    q.finish();
}

QList<StoredMessage> MessageStore::pendingMedia() {
    return select(QStringLiteral("pending_media = 1"), {}, QStringLiteral("ORDER BY id"));
}
