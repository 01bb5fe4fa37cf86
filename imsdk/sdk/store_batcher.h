#pragma once

#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <QSet>
#include <QString>
#include <functional>
#include <vector>

class MessageStore;

// Batched commits of the account's store. Messages received in one turn of the event loop
// (one read from the socket holds many in a burst) are stored in one transaction, committed
// at the start of the next turn; what reports them waits for that commit, so a message is
// stored before it is reported. SDK thread only.
class StoreBatcher : public QObject {
    Q_OBJECT
public:
    // Under a burst, commits are at least kBatchGapMs apart; after a batch of kBurstBatch
    // messages or more, kBurstGapMs.
    static constexpr qint64 kBatchGapMs = 100;
    static constexpr qint64 kBurstGapMs = 250;
    static constexpr int kBurstBatch = 100;

    explicit StoreBatcher(MessageStore& store, QObject* parent = nullptr);

    // Opens a batch unless one is open (or the store is not).
    void open();
    bool isOpen() const { return open_; }
    // Runs `report` after the open batch is committed, at once when none is open. A failed
    // commit drops the reports of its batch: what they would report is gone.
    void afterCommit(std::function<void()> report);
    // The same, once per batch for `key`: the first report under a key stands for the rest.
    void afterCommitOnce(const QString& key, std::function<void()> report);
    // A message the open batch stored; the size of a batch sets the gap before the next.
    void countStored();
    // A value of the store's meta table that moves with what is stored: within a batch it is
    // written once, at the commit, and goes back with the batch when that fails.
    void setMeta(const QString& key, const QString& value);

private:
    void close();

    MessageStore& store_;
    bool open_ = false;
    std::vector<std::function<void()>> afterCommit_;
    QSet<QString> reported_;
    QHash<QString, QString> meta_;
    int storedInBatch_ = 0;  // messages the open batch (or the last one) stored
    QElapsedTimer lastCommit_;
};
