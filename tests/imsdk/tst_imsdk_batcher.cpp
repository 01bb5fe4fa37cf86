// Batched commits of the store: what a batch stores is committed before anything reports
// it, reports under one key come once per batch, meta values move with the batch, and a
// burst spaces the commits that follow it.
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QtTest>

#include "sdk/store_batcher.h"
#include "store/message_store.h"
#include "support/stored_text.h"

class BatcherTest : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void reportsComeAfterTheCommit();
    void oneReportPerKeyAndBatch();
    void metaIsWrittenWithTheBatch();
    void aBurstSpacesTheNextCommit();

private:
    QTemporaryDir* dir_ = nullptr;
    MessageStore store_;
    MessageStore reader_;  // a second connection sees only what is committed
};

void BatcherTest::init() {
    dir_ = new QTemporaryDir;
    QVERIFY(store_.open(dir_->filePath("messages.db")));
    QVERIFY(reader_.open(dir_->filePath("messages.db")));
}

void BatcherTest::cleanup() {
    reader_.close();
    store_.close();
    delete dir_;
}

void BatcherTest::reportsComeAfterTheCommit() {
    StoreBatcher batcher(store_);
    int reported = 0, seenByReader = -1;
    batcher.afterCommit([&] { ++reported; });
    QCOMPARE(reported, 1);  // no batch open: at once

    batcher.open();
    QVERIFY(batcher.isOpen());
    QVERIFY(store_.insert(storedText("bob", "m1", "o1")));
    batcher.afterCommit([&] {
        ++reported;
        seenByReader = reader_.unreadCount("bob");
    });
    QCOMPARE(reported, 1);
    QCOMPARE(reader_.unreadCount("bob"), 0);
    // A lone message is committed at the next turn of the event loop, not after a timer.
    QCoreApplication::processEvents();
    QVERIFY(!batcher.isOpen());
    QCOMPARE(reported, 2);
    QCOMPARE(seenByReader, 1);
}

void BatcherTest::oneReportPerKeyAndBatch() {
    StoreBatcher batcher(store_);
    QStringList reports;
    auto report = [&](const QString& key) {
        batcher.afterCommitOnce(key, [&reports, key] { reports << key; });
    };
    batcher.open();
    report("alice");
    report("bob");
    report("alice");
    QTRY_VERIFY(!batcher.isOpen());
    QCOMPARE(reports, (QStringList{"alice", "bob"}));
    // The next batch reports the key again; outside a batch every call reports.
    batcher.open();
    report("alice");
    QTRY_VERIFY(!batcher.isOpen());
    report("alice");
    report("alice");
    QCOMPARE(reports, (QStringList{"alice", "bob", "alice", "alice", "alice"}));
}

void BatcherTest::metaIsWrittenWithTheBatch() {
    StoreBatcher batcher(store_);
    batcher.setMeta("mark", "a");
    QCOMPARE(reader_.meta("mark"), QStringLiteral("a"));
    batcher.open();
    batcher.setMeta("mark", "b");
    batcher.setMeta("mark", "c");
    batcher.setMeta("other", "x");
    QCOMPARE(reader_.meta("mark"), QStringLiteral("a"));
    QTRY_VERIFY(!batcher.isOpen());
    QCOMPARE(reader_.meta("mark"), QStringLiteral("c"));
    QCOMPARE(reader_.meta("other"), QStringLiteral("x"));
}

// Lower bounds only: a loaded machine makes every wait longer, never shorter.
void BatcherTest::aBurstSpacesTheNextCommit() {
    StoreBatcher batcher(store_);
    QElapsedTimer sinceCommit;
    auto batch = [&](int stored) {
        qint64 gap = -1;
        batcher.open();
        for (int i = 0; i < stored; ++i) batcher.countStored();
        batcher.afterCommit([&] {
            gap = sinceCommit.isValid() ? sinceCommit.elapsed() : 0;
            sinceCommit.start();
        });
        [&] { QTRY_VERIFY_WITH_TIMEOUT(gap >= 0, 5000); }();
        return gap;
    };
    batch(1);
    // Commits follow each other at least kBatchGapMs apart...
    QVERIFY(batch(StoreBatcher::kBurstBatch) >= StoreBatcher::kBatchGapMs - 20);
    // ...and after a large batch, kBurstGapMs.
    QVERIFY(batch(1) >= StoreBatcher::kBurstGapMs - 20);
    QVERIFY(batch(1) >= StoreBatcher::kBatchGapMs - 20);
}

QTEST_GUILESS_MAIN(BatcherTest)
#include "tst_imsdk_batcher.moc"
