// Hostile and unusual input from another account on the server, sent by an independent
// XMPP client: the session lives, shows what it can and says in its log what it refused.
#include <QElapsedTimer>
#include <QMutex>
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryFile>
#include <QTimer>
#include <QtTest>

#include "openim/im_message_content.h"
#include "sdk/wide_text.h"
#include "support/prosody_server.h"
#include "support/stream_proxy.h"
#include "support/test_session.h"

using wide_text::toQ;

namespace {

// The SDK's log lines, whatever thread wrote them.
QMutex g_logLock;
QStringList g_log;
QtMessageHandler g_previous = nullptr;

void keepLog(QtMsgType type, const QMessageLogContext& context, const QString& text) {
    {
        QMutexLocker locker(&g_logLock);
        g_log << text;
    }
    if (g_previous) g_previous(type, context, text);
}

int logCount(const QString& needle) {
    QMutexLocker locker(&g_logLock);
    return int(g_log.filter(needle).size());
}

}  // namespace

class HardeningTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void deepStanzaIsRefusedAndTheNextMessageArrives();
    void unusableMessagesAreLoggedAndLongTextsShown();
    void sendsKeepWhatTheWireCarries();
    void stalledSignInIsRetriedThenReported();
    void tricklingPictureHoldsLaterTextsOnlyBriefly();

private:
    // Sends `stanzas` (one per line) as carol to alice and waits until the client quits.
    bool sendAsCarol(const QStringList& stanzas);
    QString stanza(const QString& id, const QString& body, const QString& extra = QString());

    ProsodyServer server_;
};

void HardeningTest::initTestCase() {
    g_previous = qInstallMessageHandler(keepLog);
    // Plain: the relay of the deep-stanza case rewrites the stream, so it must read it.
    QVERIFY2(server_.start(true), qPrintable(server_.lastError()));
    for (const char* user : {"alice", "carol"})
        QVERIFY(server_.registerUser(QLatin1String(user), QStringLiteral("pw-") + user));
}

QString HardeningTest::stanza(const QString& id, const QString& body, const QString& extra) {
    return QStringLiteral(
               "<message xmlns='jabber:client' type='chat' to='alice@%1' id='%2'>"
               "<body>%3</body>%4</message>")
        .arg(server_.domain(), id, body, extra);
}

bool HardeningTest::sendAsCarol(const QStringList& stanzas) {
    QTemporaryFile file;
    if (!file.open()) return false;
    file.write(stanzas.join(QLatin1Char('\n')).toUtf8());
    file.flush();
    QProcess carol;
    carol.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    startPlainClient(carol, server_, "carol", "alice", {"--raw-file", file.fileName()});
    return carol.waitForFinished(60000) && carol.exitCode() == 0;
}

void HardeningTest::deepStanzaIsRefusedAndTheNextMessageArrives() {
    // Prosody itself drops stanzas this deep, so a relay in front of it stands for a
    // server that does not: it nests carol's marked message 30,000 levels deep.
    StreamProxy proxy(server_.host(), server_.port());
    QVERIFY(proxy.listen());
    const int levels = 30000;
    proxy.rewrite("DEEP-HERE</body>", "x</body>" + QByteArray("<a>").repeated(levels) +
                                          QByteArray("</a>").repeated(levels));
    TestSession alice("alice-deep");
    QVERIFY(alice.signInVia(server_, proxy.port(), "alice"));
    QVERIFY(sendAsCarol({stanza("deep-1", "DEEP-HERE"), stanza("after-1", "still here")}));
    QVERIFY(waitUntil([&] { return alice.probe().count("newMessage:carol") == 1; }, 20000));
    QCOMPARE(proxy.rewrites(), 1);
    QTest::qWait(300);
    QCOMPARE(texts(alice.unread("carol")), QStringList{"still here"});
    QCOMPARE(logCount("refused a message from carol@"), 1);
    QCOMPARE(logCount("id deep-1 - nested deeper than 64 levels"), 1);
    // The session is still the same one: no reconnect happened.
    QCOMPARE(alice.probe().count("disconnected"), 0);
    QCOMPARE(alice.probe().count("loginOk"), 1);
}

void HardeningTest::unusableMessagesAreLoggedAndLongTextsShown() {
    TestSession alice("alice-drops");
    QVERIFY(alice.signIn(server_, "alice"));
    const QString ns = QStringLiteral("xmlns='urn:quelix:im:1'");
    QString longText;
    for (int i = 0; longText.size() < 70000; ++i) longText += QStringLiteral("line %1 😀\n").arg(i);
    QVERIFY(sendAsCarol({
        stanza("blank-1", "   &#10; ", "<content " + ns + " kind='1'/>"),
        // No-break, ideographic and zero-width spaces only: as blank as plain ones.
        stanza("blank-2", "&#160;&#12288;&#8203;&#65279;"),
        stanza("same-1", "first"),
        stanza("same-1", "first"),   // a copy
        stanza("same-1", "second"),  // a new message
        stanza("card-1", "card", "<content " + ns + " kind='16'>{broken</content>"),
        stanza("long-1", longText.toHtmlEscaped().replace("\n", "&#10;")),
        stanza("last-1", "last"),
    }));
    // first, second, the hidden card, the long text (three parts), last. Reports may cover
    // several at once; what counts is what the store holds.
    QVERIFY(waitUntil([&] { return alice.unreadCount("carol") >= 7; }, 20000));
    QTest::qWait(300);
    const auto messages = alice.unread("carol");
    QStringList texts;
    for (const auto& m : messages)
        texts << (m.content.type == openim::kContentHidden ? QStringLiteral("<hidden>")
                                                           : toQ(m.content.content).left(10));
    QCOMPARE(texts, (QStringList{"first", "second", "<hidden>", longText.left(10),
                                 longText.mid(32768, 10), longText.mid(65536, 10), "last"}));
    QString joined;
    for (int i = 3; i < 6; ++i) joined += toQ(messages[i].content.content);
    QCOMPARE(joined, longText);

    for (const char* line :
         {"id blank-1 not shown: the text is blank", "id blank-2 not shown: the text is blank",
          "id same-1 not shown: a copy of a message already received",
          "reuses id same-1 for other content",
          "id card-1 not shown: a custom payload that is not a JSON", "id long-1 shown in 3 parts"})
        QVERIFY2(logCount(line) == 1, line);
}

void HardeningTest::sendsKeepWhatTheWireCarries() {
    TestSession alice("alice-send");
    QVERIFY(alice.signIn(server_, "alice"));
    alice.sendText("carol", " \n ");
    alice.sendText("carol", QStringLiteral("bell\u0007 and\u0001 tab\tend"));
    QVERIFY(waitUntil([&] { return alice.probe().count("sent") == 2; }));
    const auto sent = alice.probe().sent();
    QVERIFY2(alice.probe().events().contains(
                 QStringLiteral("sent:%1:0").arg(openim::ResultCode::kInvalidArgument)),
             qPrintable(alice.probe().events().join(' ')));
    QCOMPARE(toQ(sent.last().content.content), QStringLiteral("bell and tab\tend"));
}

void HardeningTest::stalledSignInIsRetriedThenReported() {
    // A server that takes the connection and never answers.
    QTcpServer stalled;
    QVERIFY(stalled.listen(QHostAddress::LocalHost));
    QList<QTcpSocket*> held;
    connect(&stalled, &QTcpServer::newConnection, this, [&] {
        while (QTcpSocket* s = stalled.nextPendingConnection()) held << s;
    });
    TestSession alice("alice-stalled");
    alice.setSignInTimeout(1000);
    QElapsedTimer clock;
    clock.start();
    alice.loginVia(server_, stalled.serverPort(), "alice", "pw-alice");
    // Four attempts of a second each, with 2, 4 and 8 s between them.
    QVERIFY(waitUntil([&] { return alice.probe().count("loginFail") == 1; }, 40000));
    QVERIFY2(alice.probe().events().contains(
                 QStringLiteral("loginFail:%1").arg(openim::ResultCode::kTimeout)),
             qPrintable(alice.probe().events().join(' ')));
    QCOMPARE(held.size(), 4);
    QVERIFY(clock.elapsed() >= 17000);
    QCOMPARE(logCount("imsdk: sign-in attempt 3 failed"), 1);

    // The same account then signs in where the server answers.
    alice.setSignInTimeout(20000);
    QVERIFY(alice.signIn(server_, "alice"));
    QCOMPARE(alice.probe().count("loginFail"), 1);
    qDeleteAll(held);
}

void HardeningTest::tricklingPictureHoldsLaterTextsOnlyBriefly() {
    // A file host that answers and then sends one byte every half second.
    QTcpServer host;
    QVERIFY(host.listen(QHostAddress::LocalHost));
    QList<QTcpSocket*> clients;
    QTimer trickle;
    connect(&host, &QTcpServer::newConnection, this, [&] {
        while (QTcpSocket* s = host.nextPendingConnection()) {
            clients << s;
            s->write(
                "HTTP/1.1 200 OK\r\nContent-Type: image/png\r\nContent-Length: 100000\r\n\r\n");
        }
    });
    connect(&trickle, &QTimer::timeout, this, [&] {
        for (QTcpSocket* s : qAsConst(clients))
            if (s->state() == QAbstractSocket::ConnectedState) s->write("x");
    });
    trickle.start(500);

    TestSession alice("alice-trickle");
    QVERIFY(alice.signIn(server_, "alice"));
    const QString url = QStringLiteral("http://127.0.0.1:%1/slow.png").arg(host.serverPort());
    QElapsedTimer clock;
    clock.start();
    QVERIFY(sendAsCarol({stanza("pic-1", url,
                                "<x xmlns='jabber:x:oob'><url>" + url +
                                    "</url></x><content xmlns='urn:quelix:im:1' kind='2' "
                                    "name='slow.png' size='100000' width='10' height='10'/>"),
                         stanza("after-pic", "written after the picture")}));
    // The text waits for the picture a few seconds, not for the download.
    QVERIFY(waitUntil([&] { return alice.unreadCount("carol") == 2; }, 15000));
    QVERIFY2(clock.elapsed() < 15000, qPrintable(QString::number(clock.elapsed())));
    QVERIFY(alice.probe().downloadResults().isEmpty());  // still trickling
    const auto shown = alice.unread("carol");
    QCOMPARE(shown[0].content.type, openim::kContentImage);  // in the order they were sent
    QVERIFY(shown[0].content.content.empty());
    QCOMPARE(toQ(shown[1].content.content), QStringLiteral("written after the picture"));
    QCOMPARE(logCount("still downloading after"), 1);

    // Below the minimum rate the download fails instead of lasting for ever.
    QVERIFY(waitUntil([&] { return alice.probe().downloadResults().size() == 1; }, 30000));
    QCOMPARE(alice.probe().downloadResults(), QList<bool>{false});
    QCOMPARE(logCount("failed: slower than"), 1);
    // Announced when the text came and when the picture let it go; not again when the
    // download ended, since both rows were listed by then.
    QCOMPARE(alice.probe().count("newMessage:carol"), 2);
    qDeleteAll(clients);
}

QTEST_GUILESS_MAIN(HardeningTest)
#include "tst_imsdk_hardening.moc"
