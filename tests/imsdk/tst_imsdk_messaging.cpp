// Two SDK sessions and a plain XMPP client talking through a private Prosody.
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QUuid>
#include <QtTest>

#include "openim/im_message_content.h"
#include "sdk/wide_text.h"
#include "support/prosody_server.h"
#include "support/test_session.h"

using wide_text::toQ;

class MessagingTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void exchangesTextCustomAndPicture();
    void offlineMessagesArriveOnceAtNextLogin();
    void historyPagesBackThroughTheArchive();
    void plainXmppClientExchangesText();
    void receiptsSettleWhatTheServerConfirmed();
    void commandLineClientListensAndSends();
    void hostileStanzasReachTheClientAsWhatTheyAre();

private:
    ProsodyServer server_;
};

void MessagingTest::initTestCase() {
    QVERIFY2(server_.start(), qPrintable(server_.lastError()));
    for (const char* user : {"alice", "bob", "carol", "dave", "erin"})
        QVERIFY(server_.registerUser(QLatin1String(user), QStringLiteral("pw-") + user));
}

void MessagingTest::exchangesTextCustomAndPicture() {
    TestSession alice(QStringLiteral("alice"));
    TestSession bob(QStringLiteral("bob"));
    alice.login(server_, QStringLiteral("alice"), QStringLiteral("pw-alice"));
    bob.login(server_, QStringLiteral("bob"), QStringLiteral("pw-bob"));
    QVERIFY(
        waitUntil([&] { return alice.probe().count("loginOk") && bob.probe().count("loginOk"); }));

    QImage picture(40, 30, QImage::Format_RGB32);
    picture.fill(Qt::darkCyan);
    const QString picturePath = alice.dataFolder() + QStringLiteral("/shot.png");
    QVERIFY(picture.save(picturePath));
    const QString json =
        QStringLiteral(R"({"msgType":5,"summary":"Task 7","content":"{\"id\":7}"})");

    alice.sendText(QStringLiteral("bob"), QStringLiteral("你好, bob"));
    alice.sendCustom(QStringLiteral("bob"), json, QStringLiteral("Task 7"));
    alice.sendImage(QStringLiteral("bob"), picturePath, 40, 30);
    QVERIFY(waitUntil([&] { return alice.probe().count("sent") == 3; }, 20000));
    QVERIFY2(alice.probe().count("sent:0:0") == 3,
             qPrintable(alice.probe().events().join(QLatin1Char(' '))));

    // Reports may cover several messages at once; what counts is what the store holds.
    QVERIFY(waitUntil([&] { return bob.unreadCount(QStringLiteral("alice")) == 3; }, 20000));
    QVERIFY(bob.probe().count("newMessage:alice") >= 1);
    QCOMPARE(bob.probe().downloadResults(), QList<bool>{true});
    auto messages = bob.unread(QStringLiteral("alice"));
    QCOMPARE(int(messages.size()), 3);
    QCOMPARE(bob.unreadCount(QStringLiteral("alice")), 3);
    QCOMPARE(messages[0].content.type, openim::kContentText);
    QCOMPARE(toQ(messages[0].content.content), QStringLiteral("你好, bob"));
    QCOMPARE(toQ(messages[0].sender.account), QStringLiteral("alice"));
    QCOMPARE(toQ(messages[0].sender.appKey), TestSession::appKey());
    QCOMPARE(messages[1].content.type, openim::kContentCustom);
    QCOMPARE(QJsonDocument::fromJson(toQ(messages[1].content.content).toUtf8()).object(),
             QJsonDocument::fromJson(json.toUtf8()).object());
    QCOMPARE(toQ(messages[1].content.summary), QStringLiteral("Task 7"));
    QCOMPARE(messages[2].content.type, openim::kContentImage);
    QCOMPARE(messages[2].content.width, 40);
    const QString local = toQ(messages[2].content.content);
    QCOMPARE(toQ(bob.probe().downloads().first().localPath), local);
    QCOMPARE(QFileInfo(local).absolutePath(), QFileInfo(bob.receiveFolder()).absoluteFilePath());
    QFile a(picturePath), b(local);
    QVERIFY(a.open(QIODevice::ReadOnly) && b.open(QIODevice::ReadOnly));
    QCOMPARE(b.readAll(), a.readAll());
    // Ids are unique and times are seconds since 1970, not milliseconds.
    QVERIFY(messages[0].msgId != messages[1].msgId && messages[1].msgId != messages[2].msgId);
    QVERIFY(qAbs(messages[0].msgTime - QDateTime::currentSecsSinceEpoch()) < 60);

    bob.markRead(QStringLiteral("alice"));
    QCOMPARE(bob.unreadCount(QStringLiteral("alice")), 0);
    bob.sendText(QStringLiteral("alice"), QStringLiteral("got it"));
    QVERIFY(waitUntil([&] { return alice.probe().count("newMessage:bob") == 1; }));
    QCOMPARE(toQ(alice.unread(QStringLiteral("bob")).at(0).content.content),
             QStringLiteral("got it"));
}

void MessagingTest::offlineMessagesArriveOnceAtNextLogin() {
    TestSession alice(QStringLiteral("alice"));
    alice.login(server_, QStringLiteral("alice"), QStringLiteral("pw-alice"));
    {
        TestSession bob(QStringLiteral("bob"));
        bob.login(server_, QStringLiteral("bob"), QStringLiteral("pw-bob"));
        QVERIFY(waitUntil(
            [&] { return alice.probe().count("loginOk") && bob.probe().count("loginOk"); }));
        bob.markRead(QStringLiteral("alice"));
        // Bob's last live message gives his store an archive position to catch up from.
        alice.sendText(QStringLiteral("bob"), QStringLiteral("before"));
        QVERIFY(waitUntil([&] { return bob.probe().count("newMessage:alice") == 1; }));
        bob.markRead(QStringLiteral("alice"));
        bob.logout();
        QVERIFY(waitUntil([&] { return bob.probe().count("logouted") == 1; }));
    }
    for (int i = 1; i <= 3; ++i)
        alice.sendText(QStringLiteral("bob"), QStringLiteral("offline %1").arg(i));
    QVERIFY(waitUntil([&] { return alice.probe().count("sent:0") == 4; }));

    TestSession bob(QStringLiteral("bob"));  // same store as before
    bob.login(server_, QStringLiteral("bob"), QStringLiteral("pw-bob"));
    QVERIFY(waitUntil([&] { return bob.unreadCount(QStringLiteral("alice")) >= 3; }));
    // Offline delivery and the archive catch-up both bring them; give the latter time.
    QTest::qWait(1500);
    QCOMPARE(bob.unreadCount(QStringLiteral("alice")), 3);
    QStringList texts;
    for (const auto& m : bob.unread(QStringLiteral("alice"))) texts << toQ(m.content.content);
    QCOMPARE(texts, (QStringList{"offline 1", "offline 2", "offline 3"}));
}

void MessagingTest::historyPagesBackThroughTheArchive() {
    {
        TestSession alice(QStringLiteral("alice"));
        alice.login(server_, QStringLiteral("alice"), QStringLiteral("pw-alice"));
        QVERIFY(waitUntil([&] { return alice.probe().count("loginOk"); }));
        for (int i = 1; i <= 12; ++i)
            alice.sendText(QStringLiteral("dave"), QStringLiteral("h%1").arg(i));
        QVERIFY(waitUntil([&] { return alice.probe().count("sent:0") == 12; }));
    }
    // A fresh desktop: empty store, so everything comes from the archive.
    TestSession alice(QStringLiteral("alice-second-desktop"));
    alice.login(server_, QStringLiteral("alice"), QStringLiteral("pw-alice"));
    QVERIFY(waitUntil([&] { return alice.probe().count("loginOk"); }));
    QStringList seen;
    for (int page = 1; page <= 5; ++page) {
        alice.requestHistory(QStringLiteral("dave"), 5);
        QVERIFY(waitUntil([&] { return alice.probe().count("history") == page; }));
        const auto pages = alice.probe().historyPages();
        if (pages.last().empty()) break;
        QStringList texts;
        for (const auto& m : pages.last()) texts << toQ(m.content.content);
        seen = texts + seen;  // each page is older than the one before
    }
    QStringList expected;
    for (int i = 1; i <= 12; ++i) expected << QStringLiteral("h%1").arg(i);
    QCOMPARE(seen, expected);
    QVERIFY(alice.probe().historyPages().last().empty());
}

void MessagingTest::plainXmppClientExchangesText() {
    TestSession alice(QStringLiteral("alice"));
    alice.login(server_, QStringLiteral("alice"), QStringLiteral("pw-alice"));
    QVERIFY(waitUntil([&] { return alice.probe().count("loginOk"); }));

    QProcess carol;
    carol.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    carol.start(
        QStringLiteral("/usr/bin/python3"),
        {QFINDTESTDATA("plain_client.py"), QStringLiteral("carol@") + server_.domain(),
         QStringLiteral("pw-carol"), server_.host(), QString::number(server_.port()),
         QStringLiteral("alice@") + server_.domain(), QStringLiteral("hello from slixmpp")});
    QVERIFY(waitUntil([&] { return alice.probe().count("newMessage:carol") == 1; }, 30000));
    const auto fromCarol = alice.unread(QStringLiteral("carol"));
    QCOMPARE(int(fromCarol.size()), 1);
    QCOMPARE(fromCarol[0].content.type, openim::kContentText);
    QCOMPARE(toQ(fromCarol[0].content.content), QStringLiteral("hello from slixmpp"));

    alice.sendText(QStringLiteral("carol"), QStringLiteral("hello from the SDK"));
    QVERIFY(carol.waitForFinished(30000));
    QCOMPARE(carol.exitCode(), 0);
    QCOMPARE(QString::fromUtf8(carol.readAllStandardOutput()).trimmed(),
             QStringLiteral("hello from the SDK"));
}

// The server's confirmation is not the receiver's: a message a colleague online never
// receipted is written again, same id, stamped with its first time, until a receipt comes;
// and what the SDK stores it receipts to its sender. dave runs a plain client that receipts
// only the second copy of a message.
void MessagingTest::receiptsSettleWhatTheServerConfirmed() {
    qputenv("QUELIX_RECEIPT_WAIT_MS", "1000");
    TestSession alice(QStringLiteral("alice-receipts"));
    qunsetenv("QUELIX_RECEIPT_WAIT_MS");
    alice.login(server_, QStringLiteral("alice"), QStringLiteral("pw-alice"));
    QVERIFY(waitUntil([&] { return alice.probe().count("loginOk"); }));

    QProcess dave;
    dave.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    dave.start(QStringLiteral("/usr/bin/python3"),
               {QFINDTESTDATA("plain_client.py"), QStringLiteral("dave@") + server_.domain(),
                QStringLiteral("pw-dave"), server_.host(), QString::number(server_.port()),
                QStringLiteral("alice@") + server_.domain(), QStringLiteral("--listen"),
                QStringLiteral("8"), QStringLiteral("from dave")});
    QVERIFY(waitUntil([&] { return alice.probe().count("newMessage:dave") == 1; }, 30000));
    const QDateTime sentAt = QDateTime::currentDateTimeUtc();
    alice.sendText(QStringLiteral("dave"), QStringLiteral("to dave"));
    QVERIFY(dave.waitForFinished(30000));
    const QStringList lines = QString::fromUtf8(dave.readAllStandardOutput())
                                  .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QVERIFY2(lines.contains(QStringLiteral("receipt plain-1")), qPrintable(lines.join('|')));
    QStringList copies;
    // (Earlier cases left dave other messages in the offline store.)
    for (const QString& line : lines)
        if (line.startsWith(QLatin1String("msg ")) && line.endsWith(QLatin1String(" to dave")))
            copies << line;
    QCOMPARE(copies.size(), 2);  // the receipt of the second ended it
    const QStringList first = copies.at(0).split(QLatin1Char(' '));
    const QStringList second = copies.at(1).split(QLatin1Char(' '));
    QCOMPARE(second.at(1), first.at(1));
    QCOMPARE(first.at(2), QStringLiteral("-"));
    const QDateTime stamp = QDateTime::fromString(second.at(2), Qt::ISODate);
    QVERIFY2(stamp.isValid() && qAbs(stamp.secsTo(sentAt)) <= 1, qPrintable(second.at(2)));
    QCOMPARE(second.mid(3).join(QLatin1Char(' ')), QStringLiteral("to dave"));
    QCOMPARE(alice.probe().count("sent:0:0"), 1);
}

void MessagingTest::commandLineClientListensAndSends() {
    TestSession alice(QStringLiteral("alice"));
    alice.login(server_, QStringLiteral("alice"), QStringLiteral("pw-alice"));
    QVERIFY(waitUntil([&] { return alice.probe().count("loginOk"); }));
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("XMPP_HOST"), server_.host());
    env.insert(QStringLiteral("XMPP_CA_FILE"), server_.caFile());
    env.insert(QStringLiteral("XMPP_PORT"), QString::number(server_.port()));
    env.insert(QStringLiteral("XMPP_DOMAIN"), server_.domain());
    const QStringList account{
        QStringLiteral("--account"), QStringLiteral("erin"),
        QStringLiteral("--secret"),  QStringLiteral("pw-erin"),
        QStringLiteral("--data"),    alice.dataFolder() + QStringLiteral("/cli")};

    // What was sent while the listener was away comes first, then what arrives live.
    alice.sendText(QStringLiteral("erin"), QStringLiteral("while away"));
    QVERIFY(waitUntil([&] { return alice.probe().count("sent:0") == 1; }));
    QProcess listen;
    listen.setProcessEnvironment(env);
    listen.start(QStringLiteral(QUELIX_IMCLI), account + QStringList{"listen", "2"});
    QVERIFY(listen.waitForStarted());
    // Signed in and printed the waiting message: now one arrives live.
    QVERIFY(waitUntil([&] { return listen.peek(1 << 16).count('\n') >= 2; }));
    alice.sendCustom(QStringLiteral("erin"), QStringLiteral(R"({"msgType":3})"),
                     QStringLiteral("tip"));
    QVERIFY(listen.waitForFinished(20000));
    QCOMPARE(listen.exitCode(), 0);
    QList<QJsonObject> lines;
    for (const QByteArray& line : listen.readAllStandardOutput().split('\n'))
        if (!line.isEmpty()) lines << QJsonDocument::fromJson(line).object();
    QCOMPARE(lines.size(), 3);
    QCOMPARE(lines.first().value("event").toString(), QStringLiteral("login"));
    QCOMPARE(lines.at(1).value("content").toString(), QStringLiteral("while away"));
    QCOMPARE(lines.at(1).value("from").toString(), QStringLiteral("alice"));
    QCOMPARE(lines.last().value("kind").toInt(), int(openim::kContentCustom));
    QCOMPARE(lines.last().value("summary").toString(), QStringLiteral("tip"));

    QProcess send;
    send.setProcessEnvironment(env);
    send.start(QStringLiteral(QUELIX_IMCLI),
               account + QStringList{"send-text", "alice", "from the cli"});
    QVERIFY(send.waitForFinished(20000));
    QCOMPARE(send.exitCode(), 0);
    QVERIFY(waitUntil([&] { return alice.probe().count("newMessage:erin") == 1; }));
    QCOMPARE(toQ(alice.unread(QStringLiteral("erin")).at(0).content.content),
             QStringLiteral("from the cli"));
}

void MessagingTest::hostileStanzasReachTheClientAsWhatTheyAre() {
    TestSession alice(QStringLiteral("alice"));
    TestSession bob(QStringLiteral("bob"));
    alice.login(server_, QStringLiteral("alice"), QStringLiteral("pw-alice"));
    bob.login(server_, QStringLiteral("bob"), QStringLiteral("pw-bob"));
    QVERIFY(
        waitUntil([&] { return alice.probe().count("loginOk") && bob.probe().count("loginOk"); }));
    alice.markRead(QStringLiteral("carol"));
    // A real upload, so that a download of it works.
    QImage picture(8, 8, QImage::Format_RGB32);
    picture.fill(Qt::red);
    const QString file = bob.dataFolder() + QStringLiteral("/red.png");
    QVERIFY(picture.save(file));
    bob.sendImage(QStringLiteral("dave"), file, 8, 8);
    QVERIFY(waitUntil([&] { return bob.probe().count("sent") == 1; }));
    const QString url = toQ(bob.probe().sent().first().content.url);
    // Files travel encrypted, with the server's own certificate.
    QVERIFY2(url.startsWith(QLatin1String("https://127.0.0.1:")), qPrintable(url));
    // The server finds uploads by slot, so an unknown slot is a missing file.
    const QString missing =
        url.section(QLatin1Char('/'), 0, -3) + QStringLiteral("/no-slot/gone.png");

    auto stanza = [&](const QString& body, const QString& content) {
        return QStringLiteral(
                   "<message xmlns='jabber:client' type='chat' to='alice@%1' id='%2'>"
                   "<body>%3</body>%4</message>")
            .arg(server_.domain(), QUuid::createUuid().toString(QUuid::WithoutBraces), body,
                 content);
    };
    const QString ns = QStringLiteral("xmlns='urn:quelix:im:1'");
    QProcess carol;
    carol.start(QStringLiteral("/usr/bin/python3"),
                {QFINDTESTDATA("plain_client.py"), QStringLiteral("carol@") + server_.domain(),
                 QStringLiteral("pw-carol"), server_.host(), QString::number(server_.port()),
                 QStringLiteral("alice@") + server_.domain(), QStringLiteral("--raw"),
                 stanza(url, "<content " + ns + " kind='2' name='../../escaped.png'/>"),
                 stanza(missing, "<content " + ns + " kind='4' name='gone.png'/>"),
                 stanza("card", "<content " + ns + " kind='16'>{broken</content>"),
                 stanza("?", "<content " + ns + " kind='99'/>")});
    QVERIFY(carol.waitForFinished(30000));
    QVERIFY(waitUntil([&] { return alice.unreadCount(QStringLiteral("carol")) == 4; }));
    const auto messages = alice.unread(QStringLiteral("carol"));
    QCOMPARE(int(messages.size()), 4);
    // Downloads finish in any order: one worked, one failed.
    const QList<bool> results = alice.probe().downloadResults();
    QCOMPARE(results.size(), 2);
    QCOMPARE(results.count(true), 1);
    // The picture landed inside the receive folder under its plain name.
    const QString saved = toQ(alice.probe().downloads().at(results.indexOf(true)).localPath);
    QVERIFY(alice.probe().downloads().at(results.indexOf(false)).localPath.empty());
    QCOMPARE(saved, QDir(alice.receiveFolder()).absoluteFilePath(QStringLiteral("escaped.png")));
    QVERIFY(QImage(saved) == picture);
    QVERIFY(!QFile::exists(alice.dataFolder() + QStringLiteral("/../escaped.png")));
    // The failed download is still a file message, without a local path.
    int failedFiles = 0, hidden = 0;
    for (const auto& m : messages) {
        if (m.content.type == openim::kContentFile && m.content.content.empty()) ++failedFiles;
        if (m.content.type == openim::kContentHidden) ++hidden;
    }
    QCOMPARE(failedFiles, 1);
    QCOMPARE(hidden, 2);
}

QTEST_GUILESS_MAIN(MessagingTest)
#include "tst_imsdk_messaging.moc"
