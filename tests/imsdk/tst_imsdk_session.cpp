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
    QVERIFY(server_.registerUser(QStringLiteral("alice"), QStringLiteral("pw-alice")));
    QVERIFY(server_.registerUser(QStringLiteral("bob"), QStringLiteral("pw-bob")));
}

void SessionTest::secondDesktopKicksTheFirst() {
    TestSession first(QStringLiteral("first"));
    first.login(server_, QStringLiteral("alice"), QStringLiteral("wrong"));
    QVERIFY(waitUntil([&] { return first.probe().count("loginFail") == 1; }));
    // A refused secret is told apart from an unreachable server.
    QCOMPARE(
        first.probe().count(QStringLiteral("loginFail:%1").arg(openim::ResultCode::kAuthFailed)),
        1);
    first.login(server_, QStringLiteral("alice"), QStringLiteral("pw-alice"));
    QVERIFY(waitUntil([&] { return first.probe().count("loginOk") == 1; }));
    // Callbacks come on the SDK's own thread, never on the caller's.
    QVERIFY(first.probe().loginThread() != QThread::currentThread());
    QCOMPARE(first.probe().loginThread()->objectName(), QStringLiteral("openim-sdk"));

    TestSession second(QStringLiteral("second"));
    second.login(server_, QStringLiteral("alice"), QStringLiteral("pw-alice"));
    QVERIFY(waitUntil([&] { return first.probe().count("kicked") == 1; }));
    QVERIFY(waitUntil([&] { return second.probe().count("loginOk") == 1; }));
    // A kick is not a network loss: the client must not try to sign in again by itself.
    QCOMPARE(first.probe().count("disconnected"), 0);
    QCOMPARE(second.probe().count("kicked"), 0);
    QCOMPARE(first.probe().count("pushKicked"), 1);
}

void SessionTest::heartbeatSyncRegistrationAndPush() {
    TestSession alice(QStringLiteral("alice"));
    base::scoped_refptr<openim::IPresenceService> presence;
    presence.adopt(alice.root()->GetService<openim::IPresenceService>(openim::kPresenceModule,
                                                                      openim::kPresenceInterface));
    QVERIFY(presence);
    auto bound = base::Bind(&SessionProbe::OnPresence, &alice.probe());
    presence->RequestPresence(L"1", L"2", true, bound);
    QVERIFY(waitUntil([&] { return alice.probe().count("presence") == 1; }));
    QCOMPARE(alice.probe().events().last(),
             QStringLiteral("presence:%1").arg(openim::ResultCode::kNotLoggedIn));

    alice.login(server_, QStringLiteral("alice"), QStringLiteral("pw-alice"));
    QVERIFY(waitUntil([&] { return alice.probe().count("loginOk") == 1; }));
    presence->RequestPresence(L"1", L"2", true, bound);
    QVERIFY(waitUntil([&] { return alice.probe().count("presence") == 2; }));
    QCOMPARE(alice.probe().events().last(), QStringLiteral("presence:0"));

    base::scoped_refptr<openim::ISyncService> sync;
    sync.adopt(alice.root()->GetService<openim::ISyncService>(openim::kSyncModule,
                                                              openim::kSyncInterface));
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
    QVERIFY(server_.announce(QStringLiteral("alice"), QStringLiteral("maintenance at 22:00")));
    QVERIFY(waitUntil([&] { return alice.probe().count("push") == 1; }));
    QCOMPARE(alice.probe().events().last(), QStringLiteral("push:maintenance at 22:00"));
    // Push notices are not chat messages.
    QCOMPARE(alice.probe().count("newMessage"), 0);
}

void SessionTest::serverRestartLosesAndDoublesNothing() {
    TestSession alice(QStringLiteral("alice"));
    TestSession bob(QStringLiteral("bob"));
    alice.login(server_, QStringLiteral("alice"), QStringLiteral("pw-alice"));
    bob.login(server_, QStringLiteral("bob"), QStringLiteral("pw-bob"));
    QVERIFY(
        waitUntil([&] { return alice.probe().count("loginOk") && bob.probe().count("loginOk"); }));
    alice.sendText(QStringLiteral("bob"), QStringLiteral("before"));
    QVERIFY(waitUntil([&] { return bob.probe().count("newMessage:alice") == 1; }));

    QVERIFY(server_.stopKeepingData());
    QVERIFY(waitUntil([&] {
        return alice.probe().count("disconnected") == 1 && bob.probe().count("disconnected") == 1;
    }));
    alice.relogin();
    QVERIFY(waitUntil([&] { return alice.probe().count("reloginFail") == 1; }));

    QVERIFY2(server_.start(), qPrintable(server_.lastError()));
    // As the client's retry timer does: ask again until it works.
    QVERIFY(waitUntil([&] {
        if (alice.probe().count("reloginOk")) return true;
        alice.relogin();
        QTest::qWait(300);
        return false;
    }));
    alice.sendText(QStringLiteral("bob"), QStringLiteral("during 1"));
    alice.sendText(QStringLiteral("bob"), QStringLiteral("during 2"));
    QVERIFY2(waitUntil([&] { return alice.probe().count("sent:0") == 3; }),
             qPrintable(alice.probe().events().join(QLatin1Char(' '))));

    QVERIFY(waitUntil([&] {
        if (bob.probe().count("reloginOk")) return true;
        bob.relogin();
        QTest::qWait(300);
        return false;
    }));
    QVERIFY(waitUntil([&] { return bob.unreadCount(QStringLiteral("alice")) == 3; }));
    QTest::qWait(1500);  // the archive catch-up may bring copies; they must be dropped
    QCOMPARE(bob.unreadCount(QStringLiteral("alice")), 3);
    QStringList texts;
    for (const auto& m : bob.unread(QStringLiteral("alice"))) texts << toQ(m.content.content);
    QCOMPARE(texts, (QStringList{"before", "during 1", "during 2"}));
}

// "Sent" is the server's acknowledgement, not the socket's write: messages written into a
// link that died unnoticed stay unconfirmed, go again on the next stream (once each, in
// order), and a log-out waits for the server's word on what was written just before it;
// what never gets it is reported failed.
void SessionTest::sentMeansTheServerHasIt() {
    StreamProxy proxy(server_.host(), server_.port());
    QVERIFY(proxy.listen());
    TestSession alice(QStringLiteral("alice-acks"));
    TestSession bob(QStringLiteral("bob-acks"));
    alice.loginVia(server_, proxy.port(), QStringLiteral("alice"), QStringLiteral("pw-alice"));
    bob.login(server_, QStringLiteral("bob"), QStringLiteral("pw-bob"));
    QVERIFY(
        waitUntil([&] { return alice.probe().count("loginOk") && bob.probe().count("loginOk"); }));
    const QString peer = QStringLiteral("bob");
    QStringList expected;
    for (int i = 0; i < 20; ++i) {
        expected << QString("ack-a%1").arg(i);
        alice.sendText(peer, expected.last());
    }
    QVERIFY(waitUntil([&] { return alice.probe().count("sent:0:0") == 20; }));

    // The link dies without a word: what is written now is not reported sent.
    proxy.setDropping(true);
    proxy.setSwallowing(true);
    for (int i = 0; i < 30; ++i) {
        expected << QString("ack-b%1").arg(i);
        alice.sendText(peer, expected.last());
    }
    QTest::qWait(800);
    QCOMPARE(alice.probe().count("sent"), 20);
    proxy.cut();
    proxy.setDropping(false);
    proxy.setSwallowing(false);
    QVERIFY(waitUntil([&] { return alice.probe().count("disconnected") == 1; }));
    QVERIFY(waitUntil([&] {
        if (alice.probe().count("reloginOk")) return true;
        alice.relogin();
        QTest::qWait(300);
        return false;
    }));
    QVERIFY2(waitUntil([&] { return alice.probe().count("sent:0:0") == 50; }),
             qPrintable(alice.probe().events().join(QLatin1Char(' '))));

    // Written just before the log-out: every one gets there.
    for (int i = 0; i < 300; ++i) {
        expected << QString("ack-c%1").arg(i);
        alice.sendText(peer, expected.last());
    }
    alice.logout();
    QVERIFY(waitUntil([&] { return alice.probe().count("logouted") == 1; }));
    QCOMPARE(alice.probe().count("sent:0:0"), 350);

    QVERIFY(waitUntil(
        [&] {
            QStringList got;
            for (const auto& m : bob.unread(QStringLiteral("alice"))) got << toQ(m.content.content);
            return got.filter(QRegularExpression("^ack-")).size() >= 350;
        },
        20000));
    QTest::qWait(1000);  // copies would come now; there must be none
    QStringList texts;
    for (const auto& m : bob.unread(QStringLiteral("alice"))) texts << toQ(m.content.content);
    // What the earlier cases left bob offline is not ours to count.
    QCOMPARE(texts.filter(QRegularExpression("^ack-")), expected);

    // Never confirmed: the log-out waits a while, then the messages are reported failed.
    TestSession again(QStringLiteral("alice-acks-2"));
    again.loginVia(server_, proxy.port(), QStringLiteral("alice"), QStringLiteral("pw-alice"));
    QVERIFY(waitUntil([&] { return again.probe().count("loginOk"); }));
    proxy.setSwallowing(true);
    again.sendText(peer, QStringLiteral("lost 1"));
    again.sendText(peer, QStringLiteral("lost 2"));
    again.logout();
    QVERIFY(waitUntil([&] { return again.probe().count("logouted") == 1; }, 15000));
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
    TestSession alice(QStringLiteral("alice-cluster"));
    alice.setEndpoints(QStringLiteral("%1:%2,%1:%3,%1:%4")
                           .arg(server_.host())
                           .arg(dead)
                           .arg(node.port())
                           .arg(server_.port()));
    QElapsedTimer clock;
    clock.start();
    alice.login(server_, QStringLiteral("alice"), QStringLiteral("pw-alice"));
    QVERIFY(waitUntil([&] { return alice.probe().count("loginOk") == 1; }));
    QVERIFY2(clock.elapsed() < 1500, qPrintable(QString::number(clock.elapsed())));
    QCOMPARE(alice.probe().count("loginFail"), 0);

    // The node in use goes away; the relogin reaches the third.
    node.stop();
    QVERIFY(waitUntil([&] { return alice.probe().count("disconnected") == 1; }));
    alice.relogin();
    QVERIFY2(waitUntil([&] { return alice.probe().count("reloginOk") == 1; }),
             qPrintable(alice.probe().events().join(QLatin1Char(' '))));
    alice.sendText(QStringLiteral("bob"), QStringLiteral("via the third node"));
    QVERIFY(waitUntil([&] { return alice.probe().count("sent:0:0") == 1; }));
}

QTEST_GUILESS_MAIN(SessionTest)
#include "tst_imsdk_session.moc"
