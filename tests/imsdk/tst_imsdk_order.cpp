// The order of a conversation when the server's archive and live traffic meet: a link that
// dies unnoticed mid-burst, a sign-in while the sender keeps sending, history read back from
// the archive into an empty store. The server stamps to the second, so most of a burst
// shares one; the store's order must still be the order of sending.
#include <QDateTime>
#include <QTimer>
#include <QtTest>

#include "support/prosody_server.h"
#include "support/stream_proxy.h"
#include "support/test_session.h"

namespace {

QString line(int n) { return QStringLiteral("m%1").arg(n, 3, 10, QLatin1Char('0')); }

QStringList lines(int from, int to) {
    QStringList out;
    for (int n = from; n <= to; ++n) out << line(n);
    return out;
}

}  // namespace

class OrderTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void catchUpBesideLiveTrafficKeepsTheSendOrder();
    void historyFromTheArchiveKeepsTheSendOrder();

private:
    ProsodyServer server_;
};

void OrderTest::initTestCase() {
    QVERIFY2(server_.start(), qPrintable(server_.lastError()));
    for (const char* user : {"alice", "bob", "carol", "dave"})
        QVERIFY(server_.registerUser(QLatin1String(user), QStringLiteral("pw-") + user));
}

void OrderTest::catchUpBesideLiveTrafficKeepsTheSendOrder() {
    StreamProxy proxy(server_.host(), server_.port());
    QVERIFY(proxy.listen());
    TestSession alice("alice"), bob("bob");
    QVERIFY(alice.signIn(server_, "alice") && bob.signInVia(server_, proxy.port(), "bob"));
    const QString alicePeer = "alice";
    int sent = 0;
    auto send = [&](int n) {
        for (int i = 0; i < n; ++i) alice.sendText("bob", line(++sent));
    };

    send(60);
    QVERIFY(waitUntil([&] { return bob.unreadCount(alicePeer) == 60; }, 20000));

    // The server goes on delivering to bob's session; none of it reaches him, and then his
    // link dies. Only the archive still has those. All of it early in one second, so that
    // what the archive brings back and what comes live share it.
    while (QDateTime::currentMSecsSinceEpoch() % 1000 > 20) QTest::qWait(1);
    proxy.setDropping(true);
    send(60);
    QVERIFY(waitUntil([&] { return alice.probe().count("sent:0") == 120; }, 20000));
    QTest::qWait(50);
    proxy.cut();
    proxy.setDropping(false);
    QVERIFY(waitUntil([&] { return bob.probe().count("disconnected") == 1; }, 20000));

    // bob signs in again while alice keeps sending: the archive's catch-up and live
    // messages arrive mixed, most of them within the same second.
    const int total = 300;
    QTimer more;
    connect(&more, &QTimer::timeout, [&] {
        if (sent < total) send(2);
    });
    more.start(5);
    QVERIFY(bob.reloginUntilOk(50));
    QVERIFY(waitUntil([&] { return sent >= total; }, 30000));
    more.stop();
    QVERIFY(waitUntil([&] { return alice.probe().count("sent:0") == total; }, 20000));
    const QStringList expected = lines(1, total);
    if (!waitUntil([&] { return bob.unreadCount(alicePeer) >= total; }, 30000)) {
        QStringList missing = expected;
        for (const QString& text : texts(bob.unread(alicePeer))) missing.removeOne(text);
        QFAIL(qPrintable(QStringLiteral("bob lacks ") + missing.join(QLatin1Char(' '))));
    }
    QTest::qWait(1000);  // copies the archive may still bring must not count

    QCOMPARE(texts(bob.unread(alicePeer)), expected);
    // The page the conversation opens with, and the sender's own, read the same.
    QCOMPARE(bob.readBack(alicePeer, 400), expected);
    QCOMPARE(alice.readBack("bob", 400), expected);
}

void OrderTest::historyFromTheArchiveKeepsTheSendOrder() {
    TestSession carol("carol"), dave("dave");
    QVERIFY(carol.signIn(server_, "carol") && dave.signIn(server_, "dave"));
    const int total = 90;
    int toDave = 0, toCarol = 0;
    for (int n = 1; n <= total; ++n) {
        // Both sides speak, so that the archive interleaves directions within a second; each
        // side waits until the other's line has reached it, so the server's order is known.
        if (n % 3 == 0) {
            QVERIFY(waitUntil([&] { return dave.unreadCount("carol") == toDave; }));
            dave.sendText("carol", line(n));
            ++toCarol;
        } else {
            QVERIFY(waitUntil([&] { return carol.unreadCount("dave") == toCarol; }));
            carol.sendText("dave", line(n));
            ++toDave;
        }
    }
    QVERIFY(waitUntil([&] { return dave.unreadCount("carol") == toDave; }));
    QVERIFY(waitUntil([&] { return carol.unreadCount("dave") == toCarol; }));
    QVERIFY(dave.signOut());

    // Another desktop of dave's, with nothing stored: history comes from the archive, a
    // small page at a time, and pages meet within one second.
    TestSession fresh("dave-fresh");
    QVERIFY(fresh.signIn(server_, "dave"));
    const QStringList got = fresh.readBack("carol", 7);
    if (got != lines(1, total)) qWarning().noquote() << "read back:" << got.join(' ');
    QCOMPARE(got, lines(1, total));
}

QTEST_GUILESS_MAIN(OrderTest)
#include "tst_imsdk_order.moc"
