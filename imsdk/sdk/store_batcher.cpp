// Batched commits of the account's store: stored before reported.
#include "sdk/store_batcher.h"

#include <QTimer>

#include "store/message_store.h"

StoreBatcher::StoreBatcher(MessageStore& store, QObject* parent) : QObject(parent), store_(store) {}

// A lone message is committed (and reported) once the socket read that brought it is
// done; under a burst, commits are at least kBatchGapMs apart, so each carries many
// messages and the journal far fewer pages per message. Once a batch was large, the next
// waits kBurstGapMs: the random archive and origin ids spread every batch over most
// pages of their indexes, so a commit costs about the same whatever it carries.
void StoreBatcher::open() {
    if (open_ || !store_.isOpen()) return;
    open_ = true;
    store_.beginBatch();
    const qint64 gap = storedInBatch_ >= kBurstBatch ? kBurstGapMs : kBatchGapMs;
    storedInBatch_ = 0;
    const qint64 since = lastCommit_.isValid() ? lastCommit_.elapsed() : gap;
    if (since >= gap)
        QMetaObject::invokeMethod(this, &StoreBatcher::close, Qt::QueuedConnection);
    else
        QTimer::singleShot(int(gap - since), this, &StoreBatcher::close);
}

void StoreBatcher::afterCommit(std::function<void()> report) {
    if (open_)
        afterCommit_.push_back(std::move(report));
    else
        report();
}

void StoreBatcher::afterCommitOnce(const QString& key, std::function<void()> report) {
    if (open_ && reported_.contains(key)) return;
    if (open_) reported_.insert(key);
    afterCommit(std::move(report));
}

void StoreBatcher::countStored() {
    if (open_) ++storedInBatch_;
}

void StoreBatcher::setMeta(const QString& key, const QString& value) {
    if (open_)
        meta_.insert(key, value);
    else
        store_.setMeta(key, value);
}

void StoreBatcher::close() {
    if (!open_) return;
    open_ = false;
    lastCommit_.start();
    const QHash<QString, QString> meta = std::exchange(meta_, {});
    for (auto it = meta.begin(); it != meta.end(); ++it) store_.setMeta(it.key(), it.value());
    reported_.clear();
    std::vector<std::function<void()>> reports = std::exchange(afterCommit_, {});
    if (!store_.endBatch()) {
        // The last archive id went back with them, so the next catch-up fetches them again.
        qWarning(
            "imsdk: %d received messages could not be stored (commit failed); they are "
            "fetched from the server's archive at the next sign-in",
            int(reports.size()));
        return;
    }
    for (const std::function<void()>& report : reports) report();
}
