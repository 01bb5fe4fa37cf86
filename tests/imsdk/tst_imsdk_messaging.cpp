// Two SDK sessions and plain XMPP clients talking through a private Prosody.
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
    TestSession alice("alice"), bob("bob");
    QVERIFY(alice.signIn(server_, "alice") && bob.signIn(server_, "bob"));

    QImage picture(40, 30, QImage::Format_RGB32);
    picture.fill(Qt::darkCyan);
    const QString picturePath = alice.dataFolder() + "/shot.png";
    QVERIFY(picture.save(picturePath));
    const QString json = R"({"msgType":5,"summary":"Task 7","content":"{\"id\":7}"})";

    alice.sendText("bob", "你好, bob");
    alice.sendCustom("bob", json, "Task 7");
    alice.sendImage("bob", picturePath, 40, 30);
    QVERIFY(waitUntil([&] { return alice.probe().count("sent") == 3; }, 20000));
    QVERIFY2(alice.probe().count("sent:0:0") == 3, qPrintable(alice.probe().events().join(' ')));

    // Reports may cover several messages at once; what counts is what the store holds.
    QVERIFY(waitUntil([&] { return bob.unreadCount("alice") == 3; }, 20000));
    QVERIFY(bob.probe().count("newMessage:alice") >= 1);
    QCOMPARE(bob.probe().downloadResults(), QList<bool>{true});
    auto messages = bob.unread("alice");
    QCOMPARE(int(messages.size()), 3);
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

    bob.markRead("alice");
    QCOMPARE(bob.unreadCount("alice"), 0);
    bob.sendText("alice", "got it");
    QVERIFY(waitUntil([&] { return alice.probe().count("newMessage:bob") == 1; }));
    QCOMPARE(texts(alice.unread("bob")), QStringList{"got it"});
}

// A new SDK on the same store: its catch-up starts from where the last one stopped.
void MessagingTest::offlineMessagesArriveOnceAtNextLogin() {
    TestSession alice("alice");
    QVERIFY(alice.signIn(server_, "alice"));
    {
        TestSession bob("bob");
        QVERIFY(bob.signIn(server_, "bob"));
        bob.markRead("alice");
        // Bob's last live message gives his store an archive position to catch up from.
        alice.sendText("bob", "before");
        QVERIFY(waitUntil([&] { return bob.probe().count("newMessage:alice") == 1; }));
        bob.markRead("alice");
        QVERIFY(bob.signOut());
    }
    for (int i = 1; i <= 3; ++i) alice.sendText("bob", QStringLiteral("offline %1").arg(i));
    QVERIFY(waitUntil([&] { return alice.probe().count("sent:0") == 4; }));

    TestSession bob("bob");  // same store as before
    QVERIFY(bob.signIn(server_, "bob"));
    QVERIFY(waitUntil([&] { return bob.unreadCount("alice") >= 3; }));
    // Offline delivery and the archive catch-up both bring them; give the latter time.
    QTest::qWait(1500);
    QCOMPARE(texts(bob.unread("alice")), (QStringList{"offline 1", "offline 2", "offline 3"}));
}

// The server's confirmation is not the receiver's: a message a colleague online never
// receipted is written again, same id, stamped with its first time, until a receipt comes;
// and what the SDK stores it receipts to its sender. dave runs a plain client that receipts
// only the second copy of a message.
void MessagingTest::receiptsSettleWhatTheServerConfirmed() {
    qputenv("QUELIX_RECEIPT_WAIT_MS", "1000");
    TestSession alice("alice-receipts");
    qunsetenv("QUELIX_RECEIPT_WAIT_MS");
    QVERIFY(alice.signIn(server_, "alice"));

    QProcess dave;
    dave.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    startPlainClient(dave, server_, "dave", "alice", {"--listen", "8", "from dave"});
    QVERIFY(waitUntil([&] { return alice.probe().count("newMessage:dave") == 1; }, 30000));
    QCOMPARE(alice.unread("dave").at(0).content.type, openim::kContentText);
    QCOMPARE(texts(alice.unread("dave")), QStringList{"from dave"});
    const QDateTime sentAt = QDateTime::currentDateTimeUtc();
    alice.sendText("dave", "to dave");
    QVERIFY(dave.waitForFinished(30000));
    const QStringList lines = QString::fromUtf8(dave.readAllStandardOutput())
                                  .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QVERIFY2(lines.contains("receipt plain-1"), qPrintable(lines.join('|')));
    // (Earlier cases left dave other messages in the offline store.)
    const QStringList copies = lines.filter(QRegularExpression("^msg .* to dave$"));
    QCOMPARE(copies.size(), 2);  // the receipt of the second ended it
    const QStringList first = copies.at(0).split(' '), second = copies.at(1).split(' ');
    QCOMPARE(second.at(1), first.at(1));
    QCOMPARE(first.at(2), QStringLiteral("-"));
    const QDateTime stamp = QDateTime::fromString(second.at(2), Qt::ISODate);
    QVERIFY2(stamp.isValid() && qAbs(stamp.secsTo(sentAt)) <= 1, qPrintable(second.at(2)));
    QCOMPARE(second.mid(3).join(' '), QStringLiteral("to dave"));
    QCOMPARE(alice.probe().count("sent:0:0"), 1);
}

void MessagingTest::commandLineClientListensAndSends() {
    TestSession alice("alice");
    QVERIFY(alice.signIn(server_, "alice"));
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("XMPP_HOST", server_.host());
    env.insert("XMPP_CA_FILE", server_.caFile());
    env.insert("XMPP_PORT", QString::number(server_.port()));
    env.insert("XMPP_DOMAIN", server_.domain());
    const QStringList account{"--account", "erin",   "--secret",
                              "pw-erin",   "--data", alice.dataFolder() + "/cli"};

    // What was sent while the listener was away comes first, then what arrives live.
    alice.sendText("erin", "while away");
    QVERIFY(waitUntil([&] { return alice.probe().count("sent:0") == 1; }));
    QProcess listen;
    listen.setProcessEnvironment(env);
    listen.start(QStringLiteral(QUELIX_IMCLI), account + QStringList{"listen", "2"});
    QVERIFY(listen.waitForStarted());
    // Signed in and printed the waiting message: now one arrives live.
    QVERIFY(waitUntil([&] { return listen.peek(1 << 16).count('\n') >= 2; }));
    alice.sendCustom("erin", R"({"msgType":3})", "tip");
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
    QCOMPARE(texts(alice.unread("erin")), QStringList{"from the cli"});
}

// Blank, broken and unknown contents are hidden (tst_imsdk_input, tst_imsdk_hardening);
// here: file names and downloads a hostile sender chooses.
void MessagingTest::hostileStanzasReachTheClientAsWhatTheyAre() {
    TestSession alice("alice"), bob("bob");
    QVERIFY(alice.signIn(server_, "alice") && bob.signIn(server_, "bob"));
    alice.markRead("carol");
    // A real upload, so that a download of it works.
    QImage picture(8, 8, QImage::Format_RGB32);
    picture.fill(Qt::red);
    const QString file = bob.dataFolder() + "/red.png";
    QVERIFY(picture.save(file));
    bob.sendImage("dave", file, 8, 8);
    QVERIFY(waitUntil([&] { return bob.probe().count("sent") == 1; }));
    const QString url = toQ(bob.probe().sent().first().content.url);
    // Files travel encrypted, with the server's own certificate.
    QVERIFY2(url.startsWith(QLatin1String("https://127.0.0.1:")), qPrintable(url));
    // The server finds uploads by slot, so an unknown slot is a missing file.
    const QString missing = url.section('/', 0, -3) + "/no-slot/gone.png";

    auto stanza = [&](const QString& body, const QString& kind, const QString& name) {
        return QStringLiteral(
                   "<message xmlns='jabber:client' type='chat' to='alice@%1' id='%2'>"
                   "<body>%3</body><content xmlns='urn:quelix:im:1' kind='%4' "
                   "name='%5'/></message>")
            .arg(server_.domain(), QUuid::createUuid().toString(QUuid::WithoutBraces), body, kind,
                 name);
    };
    QProcess carol;
    startPlainClient(
        carol, server_, "carol", "alice",
        {"--raw", stanza(url, "2", "../../escaped.png"), stanza(missing, "4", "gone.png")});
    QVERIFY(carol.waitForFinished(30000));
    QVERIFY(waitUntil([&] { return alice.unreadCount("carol") == 2; }));
    const auto messages = alice.unread("carol");
    QCOMPARE(int(messages.size()), 2);
    // Downloads finish in any order: one worked, one failed.
    const QList<bool> results = alice.probe().downloadResults();
    QCOMPARE(results.size(), 2);
    QCOMPARE(results.count(true), 1);
    // The picture landed inside the receive folder under its plain name.
    const QString saved = toQ(alice.probe().downloads().at(results.indexOf(true)).localPath);
    QVERIFY(alice.probe().downloads().at(results.indexOf(false)).localPath.empty());
    QCOMPARE(saved, QDir(alice.receiveFolder()).absoluteFilePath("escaped.png"));
    QVERIFY(QImage(saved) == picture);
    QVERIFY(!QFile::exists(alice.dataFolder() + "/../escaped.png"));
    // The failed download is still a file message, without a local path.
    QCOMPARE(messages[0].content.type, openim::kContentImage);
    QCOMPARE(messages[1].content.type, openim::kContentFile);
    QVERIFY(messages[1].content.content.empty());
}

QTEST_GUILESS_MAIN(MessagingTest)
#include "tst_imsdk_messaging.moc"
