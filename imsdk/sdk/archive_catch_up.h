#pragma once

#include <QObject>
#include <QString>

#include "store/archive_order.h"

class ImEngine;
class StoreBatcher;

// The catch-up on the account's own archive: after every sign-in it reads what the archive
// holds after the last archive id stored, in case the server dropped a queue while we were
// away (the store drops what we already have), and it keeps that mark moving with what is
// stored. A server that no longer knows that id (its archive was lost or replaced) is asked
// again by time, from the second of the newest message stored. A few seconds after it read
// to the end it looks once more from there: a message the server archived for the session
// this one replaced, but never delivered, turns up only then. SDK thread only.
class ArchiveCatchUp : public QObject {
    Q_OBJECT
public:
    static constexpr int kPage = 100;
    static constexpr int kPatienceMs = 30000;
    static constexpr int kSecondLookMs = 5000;

    ArchiveCatchUp(ImEngine* engine, StoreBatcher* batcher);

    void start();
    void sessionEnded();
    // Until this session's catch-up has read to the end (or found nothing to read): from
    // the end of a session, so that what the server sends right after the next bind (the
    // replaced session's queue) waits for it too.
    bool running() const { return !done_; }
    // Whether an archive result belongs to the running catch-up.
    bool isQuery(const QString& queryId) const { return queryId == query_; }
    // Places the messages of the catch-up among those stored, and the delayed messages this
    // session receives (kept up with the session, whether or not a catch-up ran).
    ArchiveOrder* order() { return &order_; }
    // The end of a page: asks for the next one while the archive has more. False when the
    // query was not the catch-up's.
    bool handleFinished(const QString& queryId, bool ok, bool complete, const QString& last);
    // A message with this archive id is stored: the next catch-up starts after it.
    void markArchived(const QString& archiveId);

signals:
    // This session's catch-up is over (read to the end, or nothing to read).
    void finished();

private:
    void read(const QString& after);
    // The read is over; `end` is the newest archive id it saw (none when it failed).
    void finish(const QString& end);

    ImEngine* engine_;
    StoreBatcher* batcher_;
    ArchiveOrder order_;
    QString query_;
    bool fromStoredId_ = false;  // the running query starts after an id we stored
    QString from_;               // the id the running query reads after
    bool done_ = false;
    bool secondLook_ = false;
    int session_ = 0;
};
