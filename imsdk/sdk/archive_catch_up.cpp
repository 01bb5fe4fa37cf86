// The catch-up on the account's own archive after every sign-in, and its mark.
#include "sdk/archive_catch_up.h"

#include <QDebug>
#include <QTimer>

#include "sdk/archive_extension.h"
#include "sdk/im_engine.h"
#include "sdk/store_batcher.h"

namespace {

const char kLastArchiveId[] = "last_archive_id";

}  // namespace

ArchiveCatchUp::ArchiveCatchUp(ImEngine* engine, StoreBatcher* batcher)
    : QObject(engine), engine_(engine), batcher_(batcher), order_(engine->messageStore()) {}

void ArchiveCatchUp::start() {
    order_.start(ArchiveOrder::Direction::Forward);
    const int session = ++session_;
    secondLook_ = false;
    const QString last = engine_->messageStore().meta(QLatin1String(kLastArchiveId));
    if (last.isEmpty()) return finish(QString());
    fromStoredId_ = true;
    read(last);
    // A server that never answers must not hold the delayed messages back for the whole
    // session: they go in after a while, placed as well as the pages read so far allow.
    QTimer::singleShot(kPatienceMs, this, [this, session] {
        if (session != session_ || done_) return;
        qWarning().noquote() << "imsdk: the archive's catch-up is still reading after"
                             << kPatienceMs / 1000 << "s; delayed messages go in without it";
        finish(QString());
    });
}

void ArchiveCatchUp::sessionEnded() {
    query_.clear();
    done_ = false;
    ++session_;
}

void ArchiveCatchUp::read(const QString& after) {
    from_ = after;
    query_ = engine_->archive()->query(QString(), QString(), after, kPage);
    if (query_.isEmpty()) finish(QString());
}

bool ArchiveCatchUp::handleFinished(const QString& queryId, bool ok, bool complete,
                                    const QString& last) {
    if (queryId != query_) return false;
    query_.clear();
    if (!ok && fromStoredId_) {
        fromStoredId_ = false;
        // Inclusive of that second: the store keeps one copy of what it already has.
        const qint64 newest = engine_->messageStore().newestOneToOneTime();
        if (newest <= 0) {
            finish(QString());
            return true;
        }
        qInfo().noquote() << "imsdk: the archive refused to read on from a stored id; asking "
                             "by time";
        engine_->messageStore().setMeta(QLatin1String(kLastArchiveId), QString());
        from_.clear();
        query_ = engine_->archive()->query(QString(), QString(), QString(), kPage, QString(),
                                           QDateTime::fromSecsSinceEpoch(newest, Qt::UTC));
        if (query_.isEmpty()) finish(QString());
        return true;
    }
    fromStoredId_ = false;
    if (ok && !complete && !last.isEmpty()) {
        read(last);
        return true;
    }
    finish(ok ? (last.isEmpty() ? from_ : last) : QString());
    return true;
}

void ArchiveCatchUp::finish(const QString& end) {
    if (!done_) {
        done_ = true;
        emit finished();
    }
    if (secondLook_ || end.isEmpty()) return;
    secondLook_ = true;
    const int session = session_;
    QTimer::singleShot(kSecondLookMs, this, [this, session, end] {
        if (session == session_ && query_.isEmpty()) read(end);
    });
}

// The mark moves with what is stored: within a batch, once, at its commit.
void ArchiveCatchUp::markArchived(const QString& archiveId) {
    batcher_->setMeta(QLatin1String(kLastArchiveId), archiveId);
}
