// A node of a two-node ejabberd cluster killed (kill -9) in the middle of a burst: every
// message either reaches the other side once and in order, or shows failed to its sender
// and gets through when sent again; a project room's member keeps taking part after the
// room's node died. Runs in the ejabberd pass (QUELIX_XMPP_SERVER=ejabberd).
#include <QtTest>

#include "sdk/wide_text.h"
#include "support/cluster_drill.h"

namespace {

constexpr int kLines = 150;
constexpr int kKillAfter = 50;
constexpr quint64 kRoom = 4002;

}  // namespace

class ClusterTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void aNodeDyingMidBurstLosesNothing_data();
    void aNodeDyingMidBurstLosesNothing();
    void aRoomMemberKeepsTakingPartAfterTheRoomsNodeDied();

private:
    // The sender clicks 重新发送 on what shows failed; it must then get through.
    static void sendFailedAgain(ClusterDrill& drill, DrillOutcome& o);
};

void ClusterTest::initTestCase() {
    if (!ProsodyServer::isEjabberd())
        QSKIP("a cluster takes ejabberd: these run in the ejabberd pass");
    // Members ask their rooms whether they still have them every second, not every five
    // minutes.
    qputenv("QUELIX_ROOM_PING_MS", "1000");
}

void ClusterTest::aNodeDyingMidBurstLosesNothing_data() {
    QTest::addColumn<int>("node");
    QTest::newRow("the sender's node") << 0;
    QTest::newRow("the receiver's node") << 1;
}

void ClusterTest::aNodeDyingMidBurstLosesNothing() {
    QFETCH(int, node);
    ClusterDrill drill(QString::number(node));
    QVERIFY2(drill.start() && drill.signInPair(), qPrintable(drill.error()));
    DrillOutcome o;
    drill.burst(kLines, kKillAfter, node, &o);
    QVERIFY2(o.settled, "a send never had an outcome");
    QVERIFY2(o.lost() == 0, qPrintable(QStringLiteral("lost %1, bob lacks %2")
                                           .arg(o.lost())
                                           .arg(o.missing().join(QLatin1Char(' ')))));
    QCOMPARE(o.doubled(), 0);
    QCOMPARE(o.outOfOrder(), 0);
    // Nothing arrives that the sender was told had failed: she would send it twice.
    for (const QString& text : o.failed) QVERIFY2(!o.arrived.contains(text), qPrintable(text));
    sendFailedAgain(drill, o);
}

void ClusterTest::sendFailedAgain(ClusterDrill& drill, DrillOutcome& o) {
    SessionProbe& probe = drill.alice().probe();
    const int before = probe.count("sent");
    for (const QString& text : o.failed) drill.alice().sendText(QStringLiteral("bob"), text);
    QVERIFY(waitUntil([&] { return probe.count("sent") == before + o.failed.size(); }, 60000));
    QCOMPARE(probe.failedSends().size(), o.failed.size());  // none failed again
    const QString peer = QStringLiteral("alice");
    QVERIFY(waitUntil([&] { return drill.bob().unreadCount(peer) >= kLines; }, 30000));
    QStringList all;
    for (const openim::IMMessage& m : drill.bob().unread(peer))
        all << wide_text::toQ(m.content.content);
    all.sort();
    QStringList expected;
    for (int n = 1; n <= kLines; ++n) expected << ClusterDrill::line(n);
    QCOMPARE(all, expected);
}

void ClusterTest::aRoomMemberKeepsTakingPartAfterTheRoomsNodeDied() {
    ClusterDrill drill(QStringLiteral("room"));
    QVERIFY2(drill.start() && drill.signInRoom(kRoom), qPrintable(drill.error()));
    DrillOutcome o;
    drill.roomBurst(kRoom, kLines, kKillAfter, &o);
    QVERIFY2(o.settled, "a send never had an outcome");
    QVERIFY2(o.lost() == 0, qPrintable(QStringLiteral("lost %1, bob lacks %2")
                                           .arg(o.lost())
                                           .arg(o.missing().join(QLatin1Char(' ')))));
    QCOMPARE(o.doubled(), 0);
    // Both still speak in the room and hear each other.
    drill.bob().tribe(kRoom)->SendText(L"bob after", openim::ITribe::SendCallback());
    drill.alice().tribe(kRoom)->SendText(L"alice after", openim::ITribe::SendCallback());
    QVERIFY(waitUntil(
        [&] { return drill.roomLines(kRoom, drill.alice()).contains(QStringLiteral("bob after")); },
        30000));
    QVERIFY(waitUntil(
        [&] { return drill.roomLines(kRoom, drill.bob()).contains(QStringLiteral("alice after")); },
        30000));
}

QTEST_GUILESS_MAIN(ClusterTest)
#include "tst_imsdk_cluster.moc"
