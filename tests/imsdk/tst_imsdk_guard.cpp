// The screen between the XMPP socket and QXmpp's recursive parser, fed as a server would.
#include <QDomDocument>
#include <QtTest>

#include "sdk/stanza_guard.h"

namespace {

const QByteArray kHeader =
    "<?xml version='1.0'?><stream:stream xmlns='jabber:client' "
    "xmlns:stream='http://etherx.jabber.org/streams' id='s1' from='quelix.test' version='1.0'>";

QByteArray nested(int levels) {
    return "<message from='eve@quelix.test/x' id='deep' type='chat'><body>hi</body>" +
           QByteArray("<a>").repeated(levels) + QByteArray("</a>").repeated(levels) + "</message>";
}

// Feeds `data` in slices of `slice` bytes and collects what comes out, checking that no
// slice ever hands on half a stanza (QXmpp re-parses what it buffers).
QByteArray pass(StanzaGuard& guard, const QByteArray& data, int slice, bool* wholeUnits) {
    QByteArray out;
    for (int i = 0; i < data.size(); i += slice) {
        const QByteArray piece = guard.feed(data.mid(i, slice));
        if (!piece.trimmed().isEmpty() && !piece.trimmed().endsWith('>')) *wholeUnits = false;
        out += piece;
    }
    return out;
}

// Parses stream output the way QXmpp does (wrapped in the stream element) and returns the
// stanzas' element names.
QStringList stanzaNames(const QByteArray& out) {
    QByteArray body = out.mid(out.indexOf("<stream:stream"));
    if (!body.endsWith("</stream:stream>")) body += "</stream:stream>";
    QDomDocument doc;
    if (!doc.setContent(body, true)) return {QStringLiteral("<unparsable>")};
    QStringList names;
    for (QDomElement e = doc.documentElement().firstChildElement(); !e.isNull();
         e = e.nextSiblingElement())
        names << e.tagName();
    return names;
}

}  // namespace

class GuardTest : public QObject {
    Q_OBJECT
private slots:
    void ordinaryStreamPassesUnchangedInWholeStanzas_data();
    void ordinaryStreamPassesUnchangedInWholeStanzas();
    void deepStanzaIsReplacedAndTheNextOneArrives();
    void oversizedStanzasAreReplacedAndDocumentTypesEndTheStream();
};

void GuardTest::ordinaryStreamPassesUnchangedInWholeStanzas_data() {
    QTest::addColumn<int>("slice");
    QTest::newRow("byte by byte") << 1;
    QTest::newRow("odd slices") << 7;
    QTest::newRow("twenty") << 20;
    QTest::newRow("all at once") << 100000;
}

void GuardTest::ordinaryStreamPassesUnchangedInWholeStanzas() {
    QFETCH(int, slice);
    // Markup that a naive depth count gets wrong: '>' and "/>" inside quotes, '<' in
    // CDATA, comments, empty elements, a restart of the stream after authentication,
    // whitespace keep-alives, multi-byte text cut anywhere.
    const QByteArray stream =
        kHeader +
        "<stream:features><mechanisms xmlns='urn:ietf:params:xml:ns:xmpp-sasl'>"
        "<mechanism>PLAIN</mechanism></mechanisms></stream:features>"
        "<success xmlns='urn:ietf:params:xml:ns:xmpp-sasl'/>" +
        kHeader +
        "\n <message from='bob@quelix.test/r' to='alice@quelix.test' id='a>b/>' type=\"chat\">"
        "<body>你好 &lt;b&gt; x>y</body><!-- note <not> a tag -->"
        "<content xmlns='urn:quelix:im:1' kind='16'><![CDATA[</content><x>]]></content>"
        "</message> "
        "<iq type='result' id='p1'/>"
        "<presence from='bob@quelix.test/r'><show>away</show></presence>"
        "</stream:stream>";
    StanzaGuard guard;
    bool whole = true;
    const QByteArray out = pass(guard, stream, slice, &whole);
    QCOMPARE(out, stream);
    QVERIFY(whole);
    QVERIFY(guard.takeRefusals().isEmpty());
    QVERIFY(!guard.broken());
}

void GuardTest::deepStanzaIsReplacedAndTheNextOneArrives() {
    StanzaGuard guard;
    const QByteArray next = "<message from='bob@quelix.test/r' id='n'><body>next</body></message>";
    // Within the limit: passes as it is.
    const QByteArray fine = nested(StanzaGuard::Limits().maxDepth - 2);
    bool whole = true;
    QCOMPARE(pass(guard, kHeader + fine, 4096, &whole), kHeader + fine);

    // Far beyond it: the start tag remains with a marker saying why; the rest goes.
    const QByteArray out = pass(guard, nested(30000) + next, 1500, &whole);
    QVERIFY(whole);
    QVERIFY2(out.size() < 400, out.left(400).constData());
    QVERIFY(
        out.startsWith("<message from='eve@quelix.test/x' id='deep' type='chat'><refused "
                       "xmlns='urn:quelix:im:guard' reason='nested deeper than 64 levels'/>"
                       "</message>"));
    QVERIFY(out.endsWith(next));
    QCOMPARE(stanzaNames(kHeader + out), (QStringList{"message", "message"}));
    const auto refusals = guard.takeRefusals();
    QCOMPARE(refusals.size(), 1);
    QCOMPARE(refusals.first().element, QByteArray("message"));

    // Deep nesting inside an archive result counts from the top-level stanza, and a
    // stanza that only grows forever is never handed on, however long it goes on.
    StanzaGuard endless;
    endless.feed(kHeader + "<message>");
    for (int i = 0; i < 200; ++i) QVERIFY(endless.feed(QByteArray("<a>").repeated(1000)).isEmpty());
    QCOMPARE(endless.takeRefusals().size(), 0);  // reported when the stanza ends
    QVERIFY(!endless.broken());
}

void GuardTest::oversizedStanzasAreReplacedAndDocumentTypesEndTheStream() {
    StanzaGuard::Limits limits;
    limits.maxStanzaBytes = 10000;
    limits.maxStartTagBytes = 200;
    StanzaGuard guard(limits);
    const QByteArray ok = "<message id='ok'><body>ok</body></message>";
    const QByteArray big =
        "<message id='big'><body>" + QByteArray(20000, 'x') + "</body></message>";
    const QByteArray longTag = "<iq type='get' id='" + QByteArray(500, 'i') + "'><ping/></iq>";
    bool whole = true;
    const QByteArray out = pass(guard, kHeader + big + longTag + ok, 333, &whole);
    QVERIFY(whole);
    QCOMPARE(stanzaNames(out), (QStringList{"message", "iq", "message"}));
    QVERIFY(
        out.contains("<message id='big'><refused xmlns='urn:quelix:im:guard' "
                     "reason='larger than 10000 bytes'/></message>"));
    // A start tag too long to repeat leaves the bare element, still one stanza.
    QVERIFY(
        out.contains("<iq><refused xmlns='urn:quelix:im:guard' "
                     "reason='start tag longer than 200 bytes'/></iq>"));
    QVERIFY(out.endsWith(ok));
    QCOMPARE(guard.takeRefusals().size(), 2);

    // Too many attributes, on the stanza itself (not repeated) or deeper inside it.
    auto attributes = [](int n) {
        QByteArray a;
        for (int i = 0; i < n; ++i) a += " a" + QByteArray::number(i) + "='v'";
        return a;
    };
    StanzaGuard many;
    const QByteArray manyOut =
        pass(many,
             kHeader + "<message" + attributes(65) + "><body>x</body></message>" +
                 "<message id='m'><body" + attributes(100) + ">y</body></message>" + "<message" +
                 attributes(64) + "/>" + ok,
             7, &whole);
    QVERIFY(whole);
    QCOMPARE(stanzaNames(manyOut), (QStringList{"message", "message", "message", "message"}));
    QVERIFY(
        manyOut.contains("<message><refused xmlns='urn:quelix:im:guard' "
                         "reason='more than 64 attributes on one element'/></message>"));
    QVERIFY(manyOut.contains("<message id='m'><refused "));
    QVERIFY(manyOut.contains("<message" + attributes(64) + "/>"));
    QCOMPARE(many.takeRefusals().size(), 2);
    StanzaGuard header;
    header.feed("<stream:stream" + attributes(65) + ">");
    QVERIFY(header.broken());

    // A document type (entity expansion) ends the stream for good; what came before stays.
    StanzaGuard doctype;
    const QByteArray before = doctype.feed(
        kHeader + ok + "<!DOCTYPE x [<!ENTITY a 'aaaa'>]><message><body>&a;</body></message>");
    QCOMPARE(before, kHeader + ok);
    QVERIFY(doctype.broken());
    QVERIFY(doctype.brokenReason().contains(QLatin1String("document type")));
    QVERIFY(doctype.feed(ok).isEmpty());
    doctype.reset();
    QCOMPARE(doctype.feed(kHeader + ok), kHeader + ok);

    // Bytes that never form a tag, and stray end tags, end it too.
    for (const QByteArray& bad : {QByteArray("</message>"), QByteArray("< message>")}) {
        StanzaGuard g;
        g.feed(kHeader + bad);
        QVERIFY2(g.broken(), bad.constData());
    }
}

QTEST_GUILESS_MAIN(GuardTest)
#include "tst_imsdk_guard.moc"
