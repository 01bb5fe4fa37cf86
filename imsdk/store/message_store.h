#pragma once

struct sqlite3;
struct sqlite3_stmt;

#include <QList>
#include <QString>
#include <QVariantList>
#include <algorithm>
#include <memory>
#include <optional>

class QSqlQuery;

#include "store/stored_message.h"

// The account's local message store: one SQLite database in WAL mode. Used from one
// thread (the SDK thread); every write is committed before the call returns, unless a
// batch is open: then the writes are committed together when the batch ends.
class MessageStore {
public:
    MessageStore();
    ~MessageStore();
    MessageStore(const MessageStore&) = delete;
    MessageStore& operator=(const MessageStore&) = delete;

    bool open(const QString& file);
    void close();
    bool isOpen() const { return !connection_.isEmpty(); }

    // Batches nest; the outermost one is one transaction. A burst of messages costs one
    // commit instead of one each. endBatch() is false when the commit failed (the writes of
    // the batch are then rolled back and gone).
    void beginBatch();
    bool endBatch();
    bool inBatch() const { return batchDepth_ > 0; }

    // Stores `m` and returns its new id, or nothing when the store already has it (same
    // server id, or same sender and origin id). A duplicate that brings the server id we
    // lacked fills it in.
    std::optional<quint64> insert(const StoredMessage& m);
    std::optional<StoredMessage> message(quint64 id);
    // The message `sender` sent under `originId`, if stored.
    std::optional<StoredMessage> byOrigin(const QString& sender, const QString& originId);
    // A message first stored live (with our receipt time) met again in the archive: the
    // archive's time places it among what the catch-up brings, where it belongs.
    void settleTime(const QString& stanzaId, qint64 time);

    // Unread counts and lists leave out media still being fetched, and what came after it
    // from the same peer: they are reported once the file is here (or failed), in order.
    int unreadCount(const QString& peer);
    QList<StoredMessage> unread(const QString& peer);
    QStringList unreadPeers();
    void markRead(const QString& peer);
    void markRead(const QList<quint64>& ids);
    // What the host took (no longer unread) but the user has not seen, per conversation,
    // oldest activity first. Unlike unread (the host's delivery queue) a message stays
    // unseen until its conversation was open; what is still unread the host counts itself
    // when it takes it.
    struct Unseen {
        QString peer;
        int count = 0;
        qint64 lastTime = 0;
    };
    QList<Unseen> unseen();
    bool markSeen(const QString& peer);
    // Takes out one message (an outgoing one the server never confirmed).
    bool remove(quint64 id);
    // Up to `limit` messages before (time, seq), oldest first; (0, 0) starts at the newest.
    QList<StoredMessage> page(const QString& peer, qint64 beforeTime, qint64 beforeSeq, int limit);
    // The server id of the oldest message with `peer` that has one.
    QString oldestStanzaId(const QString& peer);
    // The time of the oldest message with `peer`, 0 when none is stored.
    qint64 oldestTime(const QString& peer);
    qint64 newestTime(const QString& peer);
    // The newest time of any one-to-one message (tribes' keys left out); 0 when none.
    qint64 newestOneToOneTime();
    QList<StoredMessage> pendingMedia();
    void finishMedia(quint64 id, const QString& localPath);
    // Lets a picture or file still downloading stop holding back what came after it; it
    // is listed (without a local path) from now on. False when it was no longer pending.
    bool releaseMedia(quint64 id);

    // The place after every message stored so far (spaced so that later arrivals from the
    // archive fit in between).
    qint64 nextSeq();
    qint64 lastSeq() const { return lastSeq_; }
    // A place given out of turn (rows moved on to make room): later arrivals go after it.
    void noteSeq(qint64 seq) { lastSeq_ = std::max(lastSeq_, seq); }
    static constexpr qint64 kSeqGap = qint64(1) << 20;
    // For the classes that keep the order (same thread).
    const QString& connectionName() const { return connection_; }

    QString meta(const QString& key);
    void setMeta(const QString& key, const QString& value);

private:
    QList<StoredMessage> select(const QString& where, const QVariantList& args,
                                const QString& tail);

    // Statements used for every received message, prepared once.
    QSqlQuery& prepared(std::unique_ptr<QSqlQuery>& slot, const char* sql);
    sqlite3_stmt* raw(sqlite3_stmt*& slot, const char* sql);
    bool readRows(sqlite3_stmt* statement, QList<StoredMessage>* out);

    QString connection_;
    int batchDepth_ = 0;
    qint64 lastSeq_ = 0;
    std::unique_ptr<QSqlQuery> byStanzaId_;
    std::unique_ptr<QSqlQuery> byOriginId_;
    // Run on SQLite directly (see raw()).
    sqlite3_stmt* insert_ = nullptr;
    sqlite3* handle_ = nullptr;
    std::unique_ptr<QSqlQuery> setMeta_;
    sqlite3_stmt* unread_ = nullptr;
    static constexpr int kMarkChunk = 50;
    std::unique_ptr<QSqlQuery> markOne_;
    std::unique_ptr<QSqlQuery> unreadCount_;
    std::unique_ptr<QSqlQuery> begin_;
    std::unique_ptr<QSqlQuery> commit_;
};
