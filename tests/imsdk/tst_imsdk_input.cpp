// What arrives from the network is not trusted: stanzas, file names, downloads, duplicates.
#include <QXmppMessage.h>
#include <QDir>
#include <QDomDocument>
#include <QTemporaryDir>
#include <QtTest>

#include "openim/im_message_content.h"
#include "sdk/media_transfer.h"
#include "sdk/message_codec.h"
#include "sdk/receive_folder.h"
#include "store/message_store.h"
#include "support/stored_text.h"

namespace {

QXmppMessage parse(const QString& xml) {
    QDomDocument doc;
    doc.setContent(xml, true);
    QXmppMessage m;
    m.parse(doc.documentElement());
    return m;
}

QString stanza(const QString& body, const QString& content) {
    return QStringLiteral(
               "<message xmlns='jabber:client' type='chat' from='a@d/r' to='b@d' id='x'>"
               "<body>%1</body>%2</message>")
        .arg(body, content);
}

QString content(const QString& kind, const QString& inner = QString(),
                const QString& attrs = QString()) {
    return QStringLiteral("<content xmlns='urn:quelix:im:1' kind='%1' %3>%2</content>")
        .arg(kind, inner, attrs);
}

}  // namespace

class InputTest : public QObject {
    Q_OBJECT
private slots:
    void roundTripsEveryKind();
    void badStanzasBecomeHiddenMessages_data();
    void badStanzasBecomeHiddenMessages();
    void plainClientsAreUnderstood();
    void receivedFileNamesStayInTheFolder();
    void failedDownloadLeavesNothing();
    void storeDropsDuplicates();
};

void InputTest::roundTripsEveryKind() {
    StoredMessage custom;
    custom.kind = openim::kContentCustom;
    custom.content = QStringLiteral(R"({"msgType":2,"content":"<b>&amp;</b>"})");
    custom.summary = QStringLiteral("[card]");
    custom.originId = QStringLiteral("o1");
    StoredMessage picture;
    picture.kind = openim::kContentImage;
    picture.url = QStringLiteral("http://127.0.0.1:5280/file_share/a/b.png");
    picture.summary = QStringLiteral("b.png");
    picture.fileSize = 1234;
    picture.width = 10;
    picture.height = 20;
    for (const StoredMessage& m : {custom, picture}) {
        QByteArray xml;
        QXmlStreamWriter writer(&xml);
        MessageCodec::encode(m, QStringLiteral("bob@d")).toXml(&writer);
        auto back = MessageCodec::decode(parse(QString::fromUtf8(xml)));
        QVERIFY(back);
        QCOMPARE(back->kind, m.kind);
        QCOMPARE(back->content, m.content);
        QCOMPARE(back->summary, m.summary);
        QCOMPARE(back->url, m.url);
        QCOMPARE(back->fileSize, m.fileSize);
        QCOMPARE(back->height, m.height);
    }
}

void InputTest::badStanzasBecomeHiddenMessages_data() {
    QTest::addColumn<QString>("xml");
    const QString longText(MessageCodec::kMaxBodyChars + 1, QLatin1Char('x'));
    QTest::newRow("malformed custom") << stanza("s", content("16", "{not json"));
    QTest::newRow("custom array") << stanza("s", content("16", "[1,2]"));
    QTest::newRow("unknown kind") << stanza("s", content("3"));
    QTest::newRow("kind not a number") << stanza("s", content("pic"));
    // (An over-long text is not hidden: the session shows it in parts.)
    QTest::newRow("over-long card summary") << stanza(longText, content("16", "{}"));
    QTest::newRow("over-long custom") << stanza("s", content("16", "{\"a\":\"" + longText + "\"}"));
    QTest::newRow("media without web address")
        << stanza("file:///etc/passwd", content("4", QString(), "name='passwd'"));
}

void InputTest::badStanzasBecomeHiddenMessages() {
    QFETCH(QString, xml);
    auto m = MessageCodec::decode(parse(xml));
    QVERIFY(m);
    QCOMPARE(m->kind, int(openim::kContentHidden));
    QVERIFY(m->content.isEmpty() && m->url.isEmpty());
}

void InputTest::plainClientsAreUnderstood() {
    auto text = MessageCodec::decode(parse(stanza("hi there", QString())));
    QVERIFY(text);
    QCOMPARE(text->kind, int(openim::kContentText));
    QCOMPARE(text->content, QStringLiteral("hi there"));
    // Chat states and receipts carry no message.
    QVERIFY(!MessageCodec::decode(
        parse("<message xmlns='jabber:client' type='chat' from='a@d/r'>"
              "<composing xmlns='http://jabber.org/protocol/chatstates'/></message>")));
    const QString url = QStringLiteral("https://files.example/up/report.pdf");
    auto file = MessageCodec::decode(
        parse(stanza(url, "<x xmlns='jabber:x:oob'><url>" + url + "</url></x>")));
    QVERIFY(file);
    QCOMPARE(file->kind, int(openim::kContentFile));
    QCOMPARE(file->summary, QStringLiteral("report.pdf"));
}

void InputTest::receivedFileNamesStayInTheFolder() {
    // Each name as sent, then as kept. Device names of Windows, with or without an
    // extension, in any case, get a prefix.
    const char* const names[] = {
        "../../x",     "x",        "..\\..\\evil.exe", "evil.exe",     "..",          "file",
        "/",           "file",     ".bashrc",          "bashrc",       "CON",         "_CON",
        "nul.txt",     "_nul.txt", "com1.tar.gz",      "_com1.tar.gz", "console.txt", "console.txt",
        "a<b>:c?.txt", "abc.txt"};
    for (std::size_t i = 0; i < std::size(names); i += 2)
        QCOMPARE(ReceiveFolder::cleanName(names[i]), QString(names[i + 1]));

    QTemporaryDir dir;
    ReceiveFolder folder(dir.filePath("Receive"));
    const QString first = folder.freePath("../../x.png");
    QCOMPARE(first, QDir(dir.filePath("Receive")).absoluteFilePath("x.png"));
    QFile(first).open(QIODevice::WriteOnly);
    QCOMPARE(folder.freePath("x.png"), QDir(dir.filePath("Receive")).absoluteFilePath("x (1).png"));
    QVERIFY(!QFile::exists(dir.filePath("x.png")));
}

void InputTest::failedDownloadLeavesNothing() {
    QTemporaryDir dir;
    ReceiveFolder folder(dir.path());
    const QString target = folder.freePath("never.bin");
    MediaTransfer transfer;
    bool finished = false, ok = true;
    // Port 1 on loopback: nothing listens there.
    transfer.download(QUrl("http://127.0.0.1:1/never.bin"), target,
                      [&](bool success, const QString&) {
                          finished = true;
                          ok = success;
                      });
    QTRY_VERIFY_WITH_TIMEOUT(finished, 10000);
    QVERIFY(!ok);
    QVERIFY(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden).isEmpty());
}

void InputTest::storeDropsDuplicates() {
    QTemporaryDir dir;
    MessageStore store;
    QVERIFY(store.open(dir.filePath("a/messages.db")));
    StoredMessage m = storedText("bob", "hi", "o-1");
    const auto first = store.insert(m);  // live, before the server id is known
    QVERIFY(first);
    m.stanzaId = QStringLiteral("archive-1");
    QVERIFY(!store.insert(m));  // the archive's copy: same origin, fills the server id in
    QCOMPARE(store.oldestStanzaId("bob"), QStringLiteral("archive-1"));
    m.originId.clear();
    QVERIFY(!store.insert(m));  // a copy known only by its server id
    QCOMPARE(store.unreadCount("bob"), 1);
    // Ids are 64-bit and keep growing.
    m.stanzaId = QStringLiteral("archive-2");
    const auto second = store.insert(m);
    QVERIFY(second && *second > *first);
    QCOMPARE(store.unreadCount("bob"), 2);
    store.markRead("bob");
    QCOMPARE(store.unreadCount("bob"), 0);
}

QTEST_GUILESS_MAIN(InputTest)
#include "tst_imsdk_input.moc"
