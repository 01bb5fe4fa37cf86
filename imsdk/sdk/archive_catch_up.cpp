// The catch-up on the account's own archive after every sign-in, and its mark.
#include "sdk/archive_catch_up.h"

#include "sdk/archive_extension.h"
#include "sdk/im_engine.h"
#include "sdk/store_batcher.h"

namespace {

const char kLastArchiveId[] = "last_archive_id";

}  // namespace

ArchiveCatchUp::ArchiveCatchUp(ImEngine* engine, StoreBatcher* batcher)
    : QObject(engine), engine_(engine), batcher_(batcher), order_(engine->messageStore()) {}

void ArchiveCatchUp::start() {
    const QString last = engine_->messageStore().meta(QLatin1String(kLastArchiveId));
    if (last.isEmpty()) return;
    order_.start(ArchiveOrder::Direction::Forward);
    fromStoredId_ = true;
    query_ = engine_->archive()->query(QString(), QString(), last, kPage);
}

bool ArchiveCatchUp::handleFinished(const QString& queryId, bool ok, bool complete,
                                    const QString& last) {
    if (queryId != query_) return false;
    query_.clear();
    if (!ok && fromStoredId_) {
        fromStoredId_ = false;
        // Inclusive of that second: the store keeps one copy of what it already has.
        const qint64 newest = engine_->messageStore().newestOneToOneTime();
        if (newest <= 0) return true;
        qInfo().noquote() << "imsdk: the archive refused to read on from a stored id; asking "
                             "by time";
        engine_->messageStore().setMeta(QLatin1String(kLastArchiveId), QString());
        query_ = engine_->archive()->query(QString(), QString(), QString(), kPage, QString(),
                                           QDateTime::fromSecsSinceEpoch(newest, Qt::UTC));
        return true;
    }
    fromStoredId_ = false;
    if (ok && !complete && !last.isEmpty())
        query_ = engine_->archive()->query(QString(), QString(), last, kPage);
    return true;
}

// The mark moves with what is stored: within a batch, once, at its commit.
void ArchiveCatchUp::markArchived(const QString& archiveId) {
    batcher_->setMeta(QLatin1String(kLastArchiveId), archiveId);
}
