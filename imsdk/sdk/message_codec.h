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
    // The longest text or payload of one message. Longer received texts are split into
    // parts of this size by the session; longer payloads are not shown (kind 8).
    static constexpr int kMaxBodyChars = 32 * 1024;

    // The stanza for `m` (kind, content, summary, url, size fields) to `toJid`.
    static QXmppMessage encode(const StoredMessage& m, const QString& toJid);
    // Kind and content of a received stanza; nothing when it carries no message at all
    // (chat states, receipts). Fields other than kind and content are left as they are.
    // A text may be longer than kMaxBodyChars. When the message is unusable (kind 8) or
    // blank (nothing returned), `problem` says why.
    static std::optional<StoredMessage> decode(const QXmppMessage& stanza,
                                               QString* problem = nullptr);
    // `text` as it survives the wire: characters XML cannot carry are dropped, so the
    // sender keeps what the receiver gets.
    static QString wireText(const QString& text);
    // `text` cut into parts of at most `maxChars`, never inside a surrogate pair.
    static QStringList split(const QString& text, int maxChars = kMaxBodyChars);
};
