#include "store/archive_order.h"

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QVariant>
#include <algorithm>
#include <optional>

#include "store/message_store.h"

void ArchiveOrder::start(Direction direction, const QString& peer) {
    direction_ = direction;
    // Forward: everything stored so far came before what the read brings, unless the
    // archive says otherwise by listing it (a copy) first.
    const qint64 floor = direction == Direction::Forward ? store_.lastSeq() + 1 : kNone;
    if (peer.isEmpty()) {
        anchors_.clear();
        floors_.clear();
        floor_ = floor;
    } else {
        anchors_.remove(peer);
        floors_.insert(peer, floor);
    }
}

qint64 ArchiveOrder::floorOf(const QString& peer) const { return floors_.value(peer, floor_); }

qint64 ArchiveOrder::bound(const QString& peer, qint64 time, qint64 limit, bool below) {
    QSqlQuery q(QSqlDatabase::database(store_.connectionName(), false));
    q.prepare(below ? QStringLiteral(
                          "SELECT MAX(seq) FROM messages WHERE peer = ? AND time = ? AND seq < ?")
                    : QStringLiteral(
                          "SELECT MIN(seq) FROM messages WHERE peer = ? AND time = ? AND seq > ?"));
    q.addBindValue(peer);
    q.addBindValue(time);
    q.addBindValue(limit);
    if (!q.exec() || !q.next() || q.value(0).isNull()) return kNone;
    return q.value(0).toLongLong();
}

void ArchiveOrder::place(StoredMessage& m) {
    if (!store_.isOpen()) return;
    qint64 lo = kNone;
    auto anchor = anchors_.constFind(m.peer);
    if (anchor != anchors_.cend() && anchor->time == m.time) {
        lo = anchor->seq;
    } else if (direction_ == Direction::Forward && floorOf(m.peer) != kNone) {
        lo = bound(m.peer, m.time, floorOf(m.peer), true);
    }
    const qint64 hi = bound(m.peer, m.time, lo, false);
    if (lo == kNone && hi == kNone) {
        m.seq = 0;  // alone in its second: after everything
        return;
    }
    qint64 seq = lo == kNone    ? hi - MessageStore::kSeqGap
                 : hi == kNone  ? lo + kStep
                 : hi - lo >= 2 ? lo + std::min(kStep, (hi - lo) / 2)
                                : kNone;
    // 0 stands for "after everything" when a message is stored: never a place of its own.
    if (seq == 0) seq = hi == kNone || hi > 1 ? 1 : lo == kNone || lo < -1 ? -1 : kNone;
    if (seq == kNone) {
        // A long run in one second used up the room: move the rest of the second on.
        QSqlQuery q(QSqlDatabase::database(store_.connectionName(), false));
        q.prepare(QStringLiteral(
            "UPDATE messages SET seq = seq + ? WHERE peer = ? AND time = ? AND seq >= ?"));
        q.addBindValue(MessageStore::kSeqGap);
        q.addBindValue(m.peer);
        q.addBindValue(m.time);
        q.addBindValue(hi);
        q.exec();
        store_.noteSeq(bound(m.peer, m.time, std::numeric_limits<qint64>::max(), true));
        seq = lo + kStep == 0 ? 1 : lo + kStep;
    }
    m.seq = seq;
}

void ArchiveOrder::placed(const StoredMessage& m, bool inserted, bool listed) {
    if (!store_.isOpen()) return;
    if (inserted) {
        anchors_.insert(m.peer, {m.time, m.seq != 0 ? m.seq : store_.lastSeq()});
        return;
    }
    if (!listed) return;
    std::optional<StoredMessage> row;
    if (!m.stanzaId.isEmpty()) {
        QSqlQuery q(QSqlDatabase::database(store_.connectionName(), false));
        q.prepare(QStringLiteral("SELECT id FROM messages WHERE stanza_id = ?"));
        q.addBindValue(m.stanzaId);
        if (q.exec() && q.next()) row = store_.message(q.value(0).toULongLong());
    }
    if (!row && !m.originId.isEmpty()) row = store_.byOrigin(m.sender, m.originId);
    if (!row || row->peer != m.peer) return;
    qint64 time = row->time;
    if (m.time < time && !row->stanzaId.isEmpty()) {
        store_.settleTime(row->stanzaId, m.time);
        time = m.time;
    }
    anchors_.insert(m.peer, {time, row->seq});
}
