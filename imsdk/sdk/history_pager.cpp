// History pages of one-to-one conversations: the store first, then the account's archive.
#include "sdk/history_pager.h"

#include <QDebug>

#include "sdk/archive_extension.h"
#include "sdk/wide_text.h"

HistoryPager::HistoryPager(ImEngine* engine)
    : QObject(engine), engine_(engine), order_(engine->messageStore()) {}

void HistoryPager::history(const QString& peer, int count, const ImEngine::HistoryCallback& done) {
    count = std::max(1, count);
    MessageStore& store = engine_->messageStore();
    Cursor& cursor = cursors_[peer];
    const auto rows = store.page(peer, cursor.time, cursor.seq, count);
    if (rows.size() >= count || cursor.archiveDone || !engine_->isOnline()) {
        deliver(peer, count, done, openim::ResultCode());
        return;
    }
    askArchiveBefore({peer, count, done}, store.oldestStanzaId(peer));
}

void HistoryPager::sessionEnded() {
    const auto queries = std::exchange(queries_, {});
    for (auto it = queries.begin(); it != queries.end(); ++it)
        deliver(it->peer, it->count, it->done,
                openim::ResultCode(openim::ResultCode::kNetworkError));
}

bool HistoryPager::handleFinished(const QString& queryId, bool ok, bool complete,
                                  const QString& first) {
    auto it = queries_.find(queryId);
    if (it == queries_.end()) return false;
    Query q = *it;
    queries_.erase(it);
    Cursor& cursor = cursors_[q.peer];
    if (!ok) {
        if (q.fromStoredId) {
            qInfo().noquote() << "imsdk: the archive refused to page before a stored id with"
                              << q.peer << "; asking by time";
            askArchiveBefore(q, QString());
            return true;
        }
        deliver(q.peer, q.count, q.done, openim::ResultCode(openim::ResultCode::kServerError));
        return true;
    }
    if (complete || first.isEmpty()) cursor.archiveDone = true;
    const auto rows = engine_->messageStore().page(q.peer, cursor.time, cursor.seq, q.count);
    if (rows.size() >= q.count || cursor.archiveDone) {
        deliver(q.peer, q.count, q.done, openim::ResultCode());
        return true;
    }
    // The page held only what we had; go further back.
    order_.start(ArchiveOrder::Direction::Backward, q.peer);
    const QString next = engine_->archive()->query(engine_->bareJid(q.peer), first, QString(),
                                                   std::max(q.count, 20));
    q.fromStoredId = false;
    if (next.isEmpty())
        deliver(q.peer, q.count, q.done, openim::ResultCode(openim::ResultCode::kNetworkError));
    else
        queries_.insert(next, q);
    return true;
}

// The archive is asked only for what is older than everything stored: before the oldest
// archive id the store keeps or, without one (or when the server no longer knows it: a new
// server, an emptied archive), up to the second of the oldest stored message. The store
// drops what it already has.
void HistoryPager::askArchiveBefore(Query q, const QString& storedId) {
    order_.start(ArchiveOrder::Direction::Backward, q.peer);
    q.fromStoredId = !storedId.isEmpty();
    const qint64 oldest = q.fromStoredId ? 0 : engine_->messageStore().oldestTime(q.peer);
    const QString id = engine_->archive()->query(
        engine_->bareJid(q.peer), storedId, QString(), std::max(q.count, 20), QString(),
        QDateTime(), oldest > 0 ? QDateTime::fromSecsSinceEpoch(oldest, Qt::UTC) : QDateTime());
    if (id.isEmpty()) {
        deliver(q.peer, q.count, q.done, openim::ResultCode(openim::ResultCode::kNetworkError));
        return;
    }
    queries_.insert(id, q);
}

// What the store holds goes out whatever the archive said: a failing archive only ends the
// paging once nothing older is stored.
void HistoryPager::deliver(const QString& peer, int count, const ImEngine::HistoryCallback& done,
                           openim::ResultCode result) {
    Cursor& cursor = cursors_[peer];
    const auto rows = engine_->messageStore().page(peer, cursor.time, cursor.seq, count);
    if (!rows.isEmpty()) {
        cursor.time = rows.first().time;
        cursor.seq = rows.first().seq;
        result = openim::ResultCode();
    }
    std::vector<openim::IMMessage> page;
    for (const StoredMessage& m : rows) page.push_back(engine_->toIM(m));
    if (!done.is_null()) done.Run(wide_text::fromQ(peer), result, page);
}
