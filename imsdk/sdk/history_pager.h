#pragma once

#include <QHash>
#include <QObject>
#include <QString>

#include "sdk/im_engine.h"
#include "store/archive_order.h"

// History pages of one-to-one conversations: the store first, then the account's archive
// for what is older than everything stored, a page at a time from where the last page of
// the conversation ended. SDK thread only.
class HistoryPager : public QObject {
    Q_OBJECT
public:
    explicit HistoryPager(ImEngine* engine);

    void history(const QString& peer, int count, const ImEngine::HistoryCallback& done);
    // The next page of `peer` starts at the newest message again.
    void reset(const QString& peer) { cursors_.remove(peer); }
    // A new account: every conversation starts again.
    void clear() { cursors_.clear(); }
    // Fails the pages still waiting for the archive; what the store holds goes out.
    void sessionEnded();

    // Whether an archive result belongs to one of the pages asked for.
    bool isQuery(const QString& queryId) const { return queries_.contains(queryId); }
    // Places the messages of an archive page among those stored.
    ArchiveOrder* order() { return &order_; }
    // The end of an archive page: the page goes out, or the archive is asked further back.
    // False when the query was not a history page's.
    bool handleFinished(const QString& queryId, bool ok, bool complete, const QString& first);

private:
    struct Query {
        QString peer;
        int count;
        ImEngine::HistoryCallback done;
        // Asked before an archive id kept in the store, which the server may no longer know
        // (its archive emptied or replaced): a refusal then asks again by time.
        bool fromStoredId = false;
    };
    struct Cursor {
        qint64 time = 0;
        qint64 seq = 0;
        bool archiveDone = false;
    };

    void askArchiveBefore(Query q, const QString& storedId);
    void deliver(const QString& peer, int count, const ImEngine::HistoryCallback& done,
                 openim::ResultCode result);

    ImEngine* engine_;
    ArchiveOrder order_;
    QHash<QString, Query> queries_;
    QHash<QString, Cursor> cursors_;
};
