#pragma once

#include <QString>
#include <optional>

#include "store/stored_message.h"

class QXmppMessage;

// Turns messages into stanzas and back. Our own content travels in a <content/> element
// of namespace kNamespace beside the body, so that plain XMPP clients still show the body
// (the text, a custom message's summary or a file's address).
class MessageCodec {
public:
    static constexpr char kNamespace[] = "urn:quelix:im:1";
    // Longer bodies or payloads are not shown (kind 8).
    static constexpr int kMaxBodyChars = 32 * 1024;

    // The stanza for `m` (kind, content, summary, url, size fields) to `toJid`.
    static QXmppMessage encode(const StoredMessage& m, const QString& toJid);
    // Kind and content of a received stanza; nothing when it carries no message at all
    // (chat states, receipts). Fields other than kind and content are left as they are.
    static std::optional<StoredMessage> decode(const QXmppMessage& stanza);
};
