#pragma once

#include <QList>
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

    // Pictures and files: their content travels over HTTP, the stanza carries the address.
    static bool isMedia(int kind);

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
    // Whether a text shows nothing: spaces of any kind and invisible marks only.
    static bool isBlank(const QString& text);
    // Whether a custom message's JSON is one only the company's back end may send (a tip, a
    // task or a table card): from anyone else it is kept as its summary text.
    static bool speaksForCompany(const QString& customJson);
    // Turns such a card from someone else into the text it shows (its summary); false when
    // that is blank and nothing is left to show.
    static bool keepAsText(StoredMessage& m);
    // The rows `m` is kept in: itself, or for a text longer than one message may hold, its
    // consecutive parts, with ids derived from the message's so that a second copy of the
    // message still matches every part.
    static QList<StoredMessage> rows(const StoredMessage& m);
    // `text` cut into parts of at most `maxChars`, never inside a surrogate pair.
    static QStringList split(const QString& text, int maxChars = kMaxBodyChars);
};
