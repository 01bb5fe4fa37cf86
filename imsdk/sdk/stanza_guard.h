#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

// Screens the bytes of an incoming XMPP stream before any DOM parser sees them. QXmpp
// builds every stanza into a DOM recursively, and re-parses everything buffered each time
// a piece arrives; a stanza nested a few thousand levels deep overflows a thread's stack
// and a big one arriving in slices costs quadratic time. The guard tokenizes the stream
// itself (no recursion, constant work per byte), hands on only whole top-level elements,
// and replaces a stanza that is too deep or too large by its own start tag holding one
// <refused/> marker, so the stanza still counts (stream management, iq replies) and the
// session can say what it refused and why.
class StanzaGuard {
public:
    static constexpr char kNamespace[] = "urn:quelix:im:guard";

    struct Limits {
        // Element levels below the stream element, the stanza's own included. An archived
        // message with rich content sits about ten deep.
        int maxDepth = 64;
        // Bytes of one top-level element. A large company's roster is the biggest stanza
        // a session legitimately receives.
        qsizetype maxStanzaBytes = 4 * 1024 * 1024;
        // Bytes of the stanza's start tag, which the replacement repeats.
        qsizetype maxStartTagBytes = 16 * 1024;
        // Attributes of one element. No stanza needs more than a handful; thousands of them
        // make every DOM lookup on the element slow.
        int maxAttributes = 64;
    };

    struct Refusal {
        QByteArray element;  // the stanza's element name, e.g. "message"
        QString reason;
    };

    StanzaGuard() { reserveBuffers(); }
    explicit StanzaGuard(const Limits& limits) : limits_(limits) { reserveBuffers(); }

    // Feeds bytes as read from the socket; returns what may be parsed: the stream header,
    // whitespace between stanzas and whole top-level elements (or their replacements).
    // The result stays valid until the next call; its buffer is reused, so a burst of
    // stanzas costs no allocation per read.
    const QByteArray& feed(const char* data, qsizetype size);
    const QByteArray& feed(const QByteArray& data) { return feed(data.constData(), data.size()); }
    // Refusals since the last call.
    QList<Refusal> takeRefusals();
    // The start tags of the server's stream-management elements (<a/>, <enabled/>,
    // <resumed/>, <failed/> directly under the stream) handed on since the last call, in
    // order. Only the stream's own level counts: the same element inside a stanza is a
    // sender's text, not the server's word.
    QList<QByteArray> takeSessionTags();
    // True once the stream held something no XMPP server sends (a document type
    // declaration, markup that cannot be tokenized); nothing more is handed on.
    bool broken() const { return broken_; }
    const QString& brokenReason() const { return brokenReason_; }
    // Forgets everything, for a new connection.
    void reset();

private:
    enum class State { Text, TagOpen, StartTag, EndTag, Pi, BangPrefix, Comment, CData };

    void onByte(char c);
    // How many bytes from `p` on carry no markup for the current state and cross no limit,
    // so they can be taken in one piece; 0 when the next byte needs onByte().
    qsizetype plainRun(const char* p, qsizetype size) const;
    void takePlain(const char* p, qsizetype size);
    void reserveBuffers();
    void startTagDone(bool empty);
    void endTagDone();
    void beginStanza(const QByteArray& name, const QByteArray& startTag);
    void finishStanza();
    void refuse(const QString& reason);
    void tooManyAttributes();
    void breakStream(const QString& reason);
    void flushTopLevel();
    static QByteArray tagName(const QByteArray& tag);

    Limits limits_;
    State state_ = State::Text;
    qint64 depth_ = 0;  // open elements, the stream's included
    char quote_ = 0;
    quint32 tail_ = 0;  // the last bytes seen, for the terminators "?>", "-->", "]]>"
    QByteArray tag_;    // the tag being read (start or end tag, capped)
    qsizetype tagBytes_ = 0;
    int attributes_ = 0;  // of the start tag being read
    QByteArray prefix_;   // what follows "<!" until it is known to be a comment or CDATA

    QByteArray out_;            // ready to hand on
    QByteArray pending_;        // the top-level element (or stream-level bytes) being collected
    bool holdsMarkup_ = false;  // pending_ holds a declaration that waits for what follows
    qsizetype tagStart_ = 0;    // where the tag being read starts in pending_
    qsizetype stanzaStart_ = 0;
    bool inStanza_ = false;
    bool refused_ = false;
    QByteArray stanzaTag_;  // the stanza's start tag as received, or empty when too long
    QByteArray stanzaName_;
    QString refusedReason_;
    qsizetype stanzaBytes_ = 0;
    QList<Refusal> refusals_;
    QList<QByteArray> sessionTags_;
    bool broken_ = false;
    QString brokenReason_;
};
