// A custom message (task cards, tips, file cards: a JSON object) sent and received: what
// the receiver decodes is what the sender stored, or a hidden message when the payload is
// not an object.
#include <QXmppMessage.h>
#include <QBuffer>
#include <QDomDocument>
#include <QJsonDocument>
#include <QXmlStreamWriter>

#include "openim/im_message_content.h"
#include "sdk/message_codec.h"
#include "support/fuzzcheck.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    StoredMessage sent;
    sent.kind = openim::kContentCustom;
    sent.content =
        MessageCodec::wireText(QString::fromUtf8(reinterpret_cast<const char*>(data), int(size)));
    sent.summary = QStringLiteral("card");
    sent.originId = QStringLiteral("id-1");

    QBuffer wire;
    wire.open(QIODevice::WriteOnly);
    QXmlStreamWriter writer(&wire);
    MessageCodec::encode(sent, QStringLiteral("bob@quelix.test")).toXml(&writer);
    QDomDocument doc;
    FUZZ_CHECK(doc.setContent(wire.data(), true));
    QXmppMessage received;
    received.parse(doc.documentElement());
    const std::optional<StoredMessage> got = MessageCodec::decode(received);
    FUZZ_CHECK(got.has_value());

    QJsonParseError error;
    const QJsonDocument json = QJsonDocument::fromJson(sent.content.toUtf8(), &error);
    const bool usable = error.error == QJsonParseError::NoError && json.isObject() &&
                        sent.content.size() <= MessageCodec::kMaxBodyChars;
    if (usable) {
        FUZZ_CHECK(got->kind == openim::kContentCustom);
        // XML turns a carriage return into a line feed unless it is escaped; either way the
        // JSON stays the same object.
        FUZZ_CHECK(QJsonDocument::fromJson(got->content.toUtf8()) == json);
        FUZZ_CHECK(got->summary == sent.summary);
    } else {
        FUZZ_CHECK(got->kind == openim::kContentHidden);
        FUZZ_CHECK(got->content.isEmpty());
    }
    return 0;
}
