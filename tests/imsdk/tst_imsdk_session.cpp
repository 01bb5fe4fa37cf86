// Session life of an SDK login against a private Prosody: kick, server restart, heartbeat.
#include <QElapsedTimer>
#include <QTcpServer>
#include <QtTest>

#include "base/bind.h"
#include "openim/ipresence_service.h"
#include "openim/isync_service.h"
#include "openim/service_guids.h"
#include "sdk/wide_text.h"
#include "support/prosody_server.h"
#include "support/stream_proxy.h"
#include "support/test_session.h"

using wide_text::toQ;

class SessionTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void secondDesktopKicksTheFirst();
    void heartbeatSyncRegistrationAndPush();
    void serverRestartLosesAndDoublesNothing();
    void sentMeansTheServerHasIt();
    void aDeadNodeCostsAReconnect();

private:
    ProsodyServer server_;
};

void SessionTest::initTestCase() {
    QVERIFY2(server_.start(), qPrintable(server_.lastError()));
    QVERIFY(server_.registerUser("alice", "pw-alice") && server_.registerUser("bob", "pw-bob"));
}

void SessionTest::secondDesktopKicksTheFirst() {
    TestSession first("first");
    first.login(server_, "alice", "wrong");
    QVERIFY(waitUntil([&] { return first.probe().count("loginFail") == 1; }));
    // A refused secret is told apart from an unreachable server.
    QCOMPARE(
        first.probe().count(QStringLiteral("loginFail:%1").arg(openim::ResultCode::kAuthFailed)),
        1);
    QVERIFY(first.signIn(server_, "alice"));
    // Callbacks come on the SDK's own thread, never on the caller's.
    QVERIFY(first.probe().loginThread() != QThread::currentThread());
    QCOMPARE(first.probe().loginThread()->objectName(), QStringLiteral("openim-sdk"));

    TestSession second("second");
    QVERIFY(second.signIn(server_, "alice"));
    QVERIFY(waitUntil([&] { return first.probe().count("kicked") == 1; }));
    // A kick is not a network loss: the client must not try to sign in again by itself.
    QCOMPARE(first.probe().count("disconnected"), 0);
    QCOMPARE(second.probe().count("kicked"), 0);
    QCOMPARE(first.probe().count("pushKicked"), 1);
}

void SessionTest::heartbeatSyncRegistrationAndPush() {
    TestSession alice("alice");
    auto presence = alice.service<openim::IPresenceService>(openim::kPresenceModule,
                                                            openim::kPresenceInterface);
    QVERIFY(presence);
    auto bound = base::Bind(&SessionProbe::OnPresence, &alice.probe());
    presence->RequestPresence(L"1", L"2", true, bound);
    QVERIFY(waitUntil([&] { return alice.probe().count("presence") == 1; }));
    QCOMPARE(alice.probe().events().last(),
             QStringLiteral("presence:%1").arg(openim::ResultCode::kNotLoggedIn));

    QVERIFY(alice.signIn(server_, "alice"));
    presence->RequestPresence(L"1", L"2", true, bound);
    QVERIFY(waitUntil([&] { return alice.probe().count("presence") == 2; }));
    QCOMPARE(alice.probe().events().last(), QStringLiteral("presence:0"));

    auto sync = alice.service<openim::ISyncService>(openim::kSyncModule, openim::kSyncInterface);
    QVERIFY(sync);
    QString jid;
    QMutex lock;
    sync->RegisterSync(
        1, base::Callback<void(prg::PrgStringT<wchar_t>)>([&](prg::PrgStringT<wchar_t> text) {
            QMutexLocker guard(&lock);
            jid = toQ(text);
        }));
    QVERIFY(waitUntil([&] {
        QMutexLocker guard(&lock);
        return !jid.isEmpty();
    }));
    QVERIFY(jid.startsWith(QStringLiteral("alice@") + server_.domain() + QLatin1Char('/')));

    QCOMPARE(alice.probe().count("pushStarted"), 1);
    QVERIFY(server_.announce("alice", "maintenance at 22:00"));
    QVERIFY(waitUntil([&] { return alice.probe().count("push") == 1; }));
    QCOMPARE(alice.probe().events().last(), QStringLiteral("push:maintenance at 22:00"));
    // Push notices are not chat messages.
    QCOMPARE(alice.probe().count("newMessage"), 0);
}

void SessionTest::serverRestartLosesAndDoublesNothing() {
    TestSession alice("alice"), bob("bob");
    QVERIFY(alice.signIn(server_, "alice") && bob.signIn(server_, "bob"));
    alice.sendText("bob", "before");
    QVERIFY(waitUntil([&] { return bob.probe().count("newMessage:alice") == 1; }));

    QVERIFY(server_.stopKeepingData());
    QVERIFY(waitUntil([&] {
        return alice.probe().count("disconnected") == 1 && bob.probe().count("disconnected") == 1;
    }));
    alice.relogin();
    QVERIFY(waitUntil([&] { return alice.probe().count("reloginFail") == 1; }));

    QVERIFY2(server_.start(), qPrintable(server_.lastError()));
    QVERIFY(alice.reloginUntilOk());
    alice.sendText("bob", "during 1");
    alice.sendText("bob", "during 2");
    QVERIFY2(waitUntil([&] { return alice.probe().count("sent:0") == 3; }),
             qPrintable(alice.probe().events().join(' ')));

    QVERIFY(bob.reloginUntilOk());
    QVERIFY(waitUntil([&] { return bob.unreadCount("alice") == 3; }));
    QTest::qWait(1500);  // the archive catch-up may bring copies; they must be dropped
    QCOMPARE(texts(bob.unread("alice")), (QStringList{"before", "during 1", "during 2"}));
}

// "Sent" is the server's acknowledgement, not the socket's write: messages written into a
// link that died unnoticed stay unconfirmed, go again on the next stream (once each, in
// order), and a log-out waits for the server's word on what was written just before it;
// what never gets it is reported failed.
void SessionTest::sentMeansTheServerHasIt() {
    StreamProxy proxy(server_.host(), server_.port());
    QVERIFY(proxy.listen());
    TestSession alice("alice-acks"), bob("bob-acks");
    QVERIFY(alice.signInVia(server_, proxy.port(), "alice") && bob.signIn(server_, "bob"));
    QStringList expected;
    auto send = [&](const char* batch, int n) {
        for (int i = 0; i < n; ++i) {
            expected << QString("ack-%1%2").arg(batch).arg(i);
            alice.sendText("bob", expected.last());
        }
    };
    send("a", 20);
    QVERIFY(waitUntil([&] { return alice.probe().count("sent:0:0") == 20; }));

    // The link dies without a word: what is written now is not reported sent.
    proxy.setDropping(true);
    proxy.setSwallowing(true);
    send("b", 30);
    QTest::qWait(800);
    QCOMPARE(alice.probe().count("sent"), 20);
    proxy.cut();
    proxy.setDropping(false);
    proxy.setSwallowing(false);
    QVERIFY(waitUntil([&] { return alice.probe().count("disconnected") == 1; }));
    QVERIFY(alice.reloginUntilOk());
    QVERIFY2(waitUntil([&] { return alice.probe().count("sent:0:0") == 50; }),
             qPrintable(alice.probe().events().join(' ')));

    // Written just before the log-out: every one gets there.
    send("c", 300);
    QVERIFY(alice.signOut());
    QCOMPARE(alice.probe().count("sent:0:0"), 350);

    // What the earlier cases left bob offline is not ours to count.
    const QRegularExpression ours("^ack-");
    QVERIFY(
        waitUntil([&] { return texts(bob.unread("alice")).filter(ours).size() >= 350; }, 20000));
    QTest::qWait(1000);  // copies would come now; there must be none
    QCOMPARE(texts(bob.unread("alice")).filter(ours), expected);

    // Never confirmed: the log-out waits a while, then the messages are reported failed.
    TestSession again("alice-acks-2");
    QVERIFY(again.signInVia(server_, proxy.port(), "alice"));
    proxy.setSwallowing(true);
    again.sendText("bob", "lost 1");
    again.sendText("bob", "lost 2");
    QVERIFY(again.signOut());
    QCOMPARE(again.probe().count(QString("sent:%1:0").arg(openim::ResultCode::kNetworkError)), 2);
    proxy.setSwallowing(false);
}

// A cluster whose first node is down: the sign-in goes on to the next at once; when the node
// in use goes, the next connection goes elsewhere.
void SessionTest::aDeadNodeCostsAReconnect() {
    QTcpServer closed;
    QVERIFY(closed.listen(QHostAddress::LocalHost));
    const quint16 dead = closed.serverPort();
    closed.close();
    StreamProxy node(server_.host(), server_.port());
    QVERIFY(node.listen());
    TestSession alice("alice-cluster");
    alice.setEndpoints(QStringLiteral("%1:%2,%1:%3,%1:%4")
                           .arg(server_.host())
                           .arg(dead)
                           .arg(node.port())
                           .arg(server_.port()));
    QElapsedTimer clock;
    clock.start();
    QVERIFY(alice.signIn(server_, "alice"));
    QVERIFY2(clock.elapsed() < 1500, qPrintable(QString::number(clock.elapsed())));
    QCOMPARE(alice.probe().count("loginFail"), 0);

    // The node in use goes away; the relogin reaches the third.
    node.stop();
    QVERIFY(waitUntil([&] { return alice.probe().count("disconnected") == 1; }));
    alice.relogin();
    QVERIFY2(waitUntil([&] { return alice.probe().count("reloginOk") == 1; }),
             qPrintable(alice.probe().events().join(' ')));
    alice.sendText("bob", "via the third node");
    QVERIFY(waitUntil([&] { return alice.probe().count("sent:0:0") == 1; }));
}

QTEST_GUILESS_MAIN(SessionTest)
#include "tst_imsdk_session.moc"
