// What the back end's own XMPP session reads: the stream guard in front of the parser, then
// each stanza the way the room keeper reads answers (error conditions, a room's status codes,
// member lists, the configuration form it fills in).
#include <QDomDocument>
#include <QXmlStreamReader>

#include "mucprotocol.h"
#include "sdk/stanza_guard.h"
#include "support/fuzzcheck.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const QByteArray header =
        "<stream:stream xmlns='jabber:client' xmlns:stream='http://etherx.jabber.org/streams'>";
    StanzaGuard::Limits limits;  // the back end's own: the defaults
    limits.maxStanzaBytes = 64 * 1024;
    StanzaGuard guard(limits);
    const QByteArray input(reinterpret_cast<const char*>(data), int(size));
    QByteArray out = guard.feed(header + input);
    if (guard.broken()) FUZZ_CHECK(!guard.brokenReason().isEmpty());

    // Nothing handed on has an element with more attributes than the limit allows.
    QXmlStreamReader reader(out);
    while (!reader.atEnd()) {
        if (reader.readNext() == QXmlStreamReader::StartElement) {
            int attributes = 0;
            for (const QXmlStreamAttribute& a : reader.attributes())
                if (!a.qualifiedName().startsWith(QLatin1String("xmlns"))) ++attributes;
            FUZZ_CHECK(attributes <= limits.maxAttributes);
        }
    }

    if (!out.endsWith("</stream:stream>")) out += "</stream:stream>";
    QDomDocument doc;
    if (!doc.setContent(out, true)) return 0;
    const QMap<QString, QString> wanted = MucProtocol::projectRoomConfig(QStringLiteral("t"));
    for (QDomElement e = doc.documentElement().firstChildElement(); !e.isNull();
         e = e.nextSiblingElement()) {
        MucProtocol::errorCondition(e);
        MucProtocol::statusCodes(e);
        MucProtocol::listedJids(e);
        MucProtocol::configSubmission(e, wanted, (size & 1) != 0);
    }
    return 0;
}
