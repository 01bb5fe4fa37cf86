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
// again by time, from the second of the newest message stored. SDK thread only.
class ArchiveCatchUp : public QObject {
    Q_OBJECT
public:
    static constexpr int kPage = 100;

    ArchiveCatchUp(ImEngine* engine, StoreBatcher* batcher);

    void start();
    void sessionEnded() { query_.clear(); }
    // Whether an archive result belongs to the running catch-up.
    bool isQuery(const QString& queryId) const { return queryId == query_; }
    // Places the messages of the catch-up among those stored.
    ArchiveOrder* order() { return &order_; }
    // The end of a page: asks for the next one while the archive has more. False when the
    // query was not the catch-up's.
    bool handleFinished(const QString& queryId, bool ok, bool complete, const QString& last);
    // A message with this archive id is stored: the next catch-up starts after it.
    void markArchived(const QString& archiveId);

private:
    ImEngine* engine_;
    StoreBatcher* batcher_;
    ArchiveOrder order_;
    QString query_;
    bool fromStoredId_ = false;  // the running query starts after an id we stored
};
