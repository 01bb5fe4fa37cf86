// Sends of one conversation leave in the order asked for, held behind an upload until it is
// reported or its time ran out; other conversations never wait.
#include <QtTest>

#include "sendqueue.h"

namespace {

// A send that notes its name when it runs.
std::function<void()> noting(QStringList* sent, const QString& what) {
    return [sent, what] { *sent << what; };
}

}  // namespace

class TestSendQueue : public QObject {
    Q_OBJECT
private slots:
    void anUploadHoldsOnlyWhatCameAfterItInItsConversation();
    void aLostReportHoldsTheConversationOnlyForAWhile();
};

void TestSendQueue::anUploadHoldsOnlyWhatCameAfterItInItsConversation() {
    SendQueue queue(60000);
    QStringList sent;
    queue.push("a", false, noting(&sent, "a1"));
    queue.push("a", true, noting(&sent, "a-picture"));
    queue.push("a", false, noting(&sent, "a2"));
    queue.push("a", true, noting(&sent, "a-file"));
    queue.push("a", false, noting(&sent, "a3"));
    queue.push("b", false, noting(&sent, "b1"));
    QCOMPARE(sent, (QStringList{"a1", "a-picture", "b1"}));

    queue.uploadFinished("b");  // another conversation's report releases nothing here
    QCOMPARE(sent.size(), 3);
    queue.uploadFinished("a");  // up to and with the next upload
    QCOMPARE(sent, (QStringList{"a1", "a-picture", "b1", "a2", "a-file"}));
    queue.uploadFinished("a");
    QCOMPARE(sent.last(), QStringLiteral("a3"));
    queue.push("a", false, noting(&sent, "a4"));  // nothing held any more: at once
    QCOMPARE(sent.last(), QStringLiteral("a4"));
}

void TestSendQueue::aLostReportHoldsTheConversationOnlyForAWhile() {
    const int wait = 600;
    SendQueue queue(wait);
    QStringList sent;
    queue.push("a", true, noting(&sent, "first upload"));
    queue.push("a", false, noting(&sent, "text"));
    QCOMPARE(sent, QStringList{"first upload"});
    QTRY_COMPARE(sent.size(), 2);  // never reported: the time-out let the text go

    // An upload reported in time leaves its time-out behind; that must not cut short the wait
    // of the next upload of the conversation.
    queue.push("a", true, noting(&sent, "second upload"));
    queue.uploadFinished("a");
    QTest::qWait(wait / 2);
    queue.push("a", true, noting(&sent, "third upload"));
    queue.push("a", false, noting(&sent, "after the third"));
    QElapsedTimer sinceThird;
    sinceThird.start();
    QTest::qWait(wait * 3 / 4);       // the second upload's time-out has gone off by now
    if (sinceThird.elapsed() < wait)  // (a loaded machine may have slept past the third's too)
        QCOMPARE(sent.last(), QStringLiteral("third upload"));
    QTRY_COMPARE(sent.last(), QStringLiteral("after the third"));
}

QTEST_GUILESS_MAIN(TestSendQueue)
#include "tst_sendqueue.moc"
