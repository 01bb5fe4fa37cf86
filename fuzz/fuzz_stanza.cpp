// A received stream: the guard in front of the parser, then each message as the session
// decodes it.
#include <QXmppMessage.h>
#include <QDomDocument>
#include <QXmlStreamReader>

#include "sdk/message_codec.h"
#include "sdk/stanza_guard.h"
#include "support/fuzzcheck.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const QByteArray header =
        "<stream:stream xmlns='jabber:client' xmlns:stream='http://etherx.jabber.org/streams'>";
    StanzaGuard::Limits limits;
    limits.maxStanzaBytes = 64 * 1024;
    limits.maxStartTagBytes = 512;
    StanzaGuard guard(limits);
    const QByteArray input(reinterpret_cast<const char*>(data), int(size));
    // Two reads, cut where the input's first byte says: stanzas split across reads.
    const int cut = size ? data[0] % int(size) : 0;
    QByteArray out = guard.feed(header + input.left(cut));
    out += guard.feed(input.mid(cut));

    // Where the reads are cut changes nothing: the same stream byte by byte hands on the
    // same bytes and ends the same way (runs of text are taken whole, markup byte by byte).
    StanzaGuard bytewise(limits);
    QByteArray outBytewise = bytewise.feed(header);
    for (char c : input) outBytewise += bytewise.feed(&c, 1);
    FUZZ_CHECK(outBytewise == out);
    FUZZ_CHECK(bytewise.broken() == guard.broken());
    FUZZ_CHECK(bytewise.takeRefusals().size() == guard.takeRefusals().size());

    // Nothing handed on is deeper than the limit (the marker adds one level, every stream
    // restart one more for a reader that does not know about restarts).
    QXmlStreamReader reader(out);
    int depth = 0, deepest = 0;
    while (!reader.atEnd()) {
        const auto token = reader.readNext();
        if (token == QXmlStreamReader::StartElement) deepest = std::max(deepest, ++depth);
        if (token == QXmlStreamReader::EndElement) --depth;
    }
    FUZZ_CHECK(deepest <= 2 + limits.maxDepth + int(out.count("<stream:stream")));

    QByteArray document = out;
    if (!document.endsWith("</stream:stream>")) document += "</stream:stream>";
    QDomDocument doc;
    if (!doc.setContent(document, true)) return 0;
    for (QDomElement e = doc.documentElement().firstChildElement(); !e.isNull();
         e = e.nextSiblingElement()) {
        if (e.tagName() != QLatin1String("message")) continue;
        QXmppMessage message;
        message.parse(e);
        QString problem;
        const std::optional<StoredMessage> m = MessageCodec::decode(message, &problem);
        if (!m) continue;
        const QStringList parts = MessageCodec::split(m->content);
        FUZZ_CHECK(parts.join(QString()) == m->content);
        for (const QString& part : parts) FUZZ_CHECK(part.size() <= MessageCodec::kMaxBodyChars);
        const QString wire = MessageCodec::wireText(m->content);
        FUZZ_CHECK(MessageCodec::wireText(wire) == wire);
    }
    return 0;
}
