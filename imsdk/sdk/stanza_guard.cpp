#include "sdk/stanza_guard.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

constexpr quint32 pair(char a, char b) { return (quint32(quint8(a)) << 8) | quint8(b); }
constexpr quint32 triple(char a, char b, char c) {
    return (quint32(quint8(a)) << 16) | (quint32(quint8(b)) << 8) | quint8(c);
}

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// Names QXmpp's parser accepts and that are safe to repeat in a replacement.
bool isPlainName(const QByteArray& name) {
    if (name.isEmpty() || name.size() > 64) return false;
    for (char c : name) {
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                        (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '.' || c == ':';
        if (!ok) return false;
    }
    return true;
}

// Buffers above this size after a flush (a roster, say) are given back rather than kept.
constexpr qsizetype kKeptCapacity = 256 * 1024;
constexpr qsizetype kReserved = 16 * 1024;

void emptyKeepingCapacity(QByteArray& buffer) {
    if (buffer.capacity() > kKeptCapacity) {
        buffer = QByteArray();
        buffer.reserve(kReserved);
    } else {
        buffer.resize(0);  // reserved capacity stays
    }
}

}  // namespace

void StanzaGuard::reserveBuffers() {
    out_.reserve(kReserved);
    pending_.reserve(kReserved);
    tag_.reserve(256);
}

const QByteArray& StanzaGuard::feed(const char* data, qsizetype size) {
    emptyKeepingCapacity(out_);
    qsizetype i = 0;
    while (i < size && !broken_) {
        // Text, attribute values and names go in runs; only markup is looked at byte by byte.
        const qsizetype run = plainRun(data + i, size - i);
        if (run > 0) {
            takePlain(data + i, run);
            i += run;
        } else {
            onByte(data[i++]);
        }
    }
    // Whitespace between stanzas (the server's keep-alive) goes on at once.
    if (!broken_ && !inStanza_ && state_ == State::Text && !holdsMarkup_) flushTopLevel();
    return out_;
}

qsizetype StanzaGuard::plainRun(const char* p, qsizetype size) const {
    if (inStanza_ && refused_) return 0;  // dropped byte by byte; rare
    const char* end = p + size;
    const char* stop = end;
    switch (state_) {
        case State::Text:
            stop = static_cast<const char*>(std::memchr(p, '<', size_t(size)));
            break;
        case State::StartTag:
            if (quote_) {
                stop = static_cast<const char*>(std::memchr(p, quote_, size_t(size)));
                break;
            }
            stop = std::find_if(
                p, end, [](char c) { return c == '"' || c == '\'' || c == '<' || c == '>'; });
            break;
        case State::EndTag:
            stop = std::find_if(p, end, [](char c) { return c == '<' || c == '>'; });
            break;
        default:
            return 0;
    }
    qsizetype run = (stop ? stop : end) - p;
    // Stop short of the byte that crosses a limit; onByte() deals with that one.
    if (inStanza_)
        run = std::min(run, limits_.maxStanzaBytes - stanzaBytes_);
    else
        run = std::min(run, limits_.maxStanzaBytes - pending_.size());
    if (state_ != State::Text && tagBytes_ <= limits_.maxStartTagBytes)
        run = std::min(run, limits_.maxStartTagBytes - tagBytes_);
    return std::max<qsizetype>(run, 0);
}

void StanzaGuard::takePlain(const char* p, qsizetype size) {
    if (inStanza_) stanzaBytes_ += size;
    pending_.append(p, int(size));
    if (state_ != State::Text) {
        tagBytes_ += size;
        const qsizetype room = limits_.maxStartTagBytes + 1 - tag_.size();
        if (room > 0) tag_.append(p, int(std::min(room, size)));
    }
    for (qsizetype k = std::max<qsizetype>(0, size - 4); k < size; ++k)
        tail_ = (tail_ << 8) | quint8(p[k]);
}

QList<StanzaGuard::Refusal> StanzaGuard::takeRefusals() { return std::exchange(refusals_, {}); }

QList<QByteArray> StanzaGuard::takeSessionTags() { return std::exchange(sessionTags_, {}); }

void StanzaGuard::reset() {
    const Limits limits = limits_;
    *this = StanzaGuard(limits);
}

void StanzaGuard::onByte(char c) {
    const bool keep = !(inStanza_ && refused_);
    const bool topLevel = !inStanza_ && depth_ <= 1;
    if (inStanza_) {
        if (++stanzaBytes_ > limits_.maxStanzaBytes)
            refuse(QStringLiteral("larger than %1 bytes").arg(limits_.maxStanzaBytes));
    } else if (pending_.size() > limits_.maxStanzaBytes) {
        return breakStream(
            QStringLiteral("more than %1 bytes outside any stanza").arg(limits_.maxStanzaBytes));
    }
    if (state_ == State::Text && c == '<' && topLevel && !holdsMarkup_) flushTopLevel();
    if (keep && !(inStanza_ && refused_)) pending_.append(c);

    const quint32 last = tail_;
    tail_ = (tail_ << 8) | quint8(c);
    switch (state_) {
        case State::Text:
            if (c == '<') {
                tagStart_ = pending_.size() - 1;
                state_ = State::TagOpen;
            }
            return;
        case State::TagOpen:
            tag_.resize(0);
            tag_.append('<');
            tag_.append(c);
            tagBytes_ = 2;
            attributes_ = 0;
            if (c == '/') {
                state_ = State::EndTag;
            } else if (c == '?') {
                state_ = State::Pi;
                tail_ = 0;
            } else if (c == '!') {
                state_ = State::BangPrefix;
                prefix_.clear();
            } else if (isSpace(c) || c == '>' || c == '<') {
                breakStream(QStringLiteral("malformed markup"));
            } else {
                state_ = State::StartTag;
                quote_ = 0;
            }
            return;
        case State::StartTag:
        case State::EndTag:
            ++tagBytes_;
            if (tag_.size() <= limits_.maxStartTagBytes) tag_.append(c);
            if (state_ == State::StartTag && !inStanza_ && depth_ == 1 &&
                tagBytes_ == limits_.maxStartTagBytes + 1) {
                // A stanza whose start tag alone is too long to repeat.
                const QByteArray name = tagName(tag_);
                if (name == "stream:stream")
                    return breakStream(QStringLiteral("a stream header too long"));
                pending_.truncate(tagStart_);
                beginStanza(name, QByteArray());
                stanzaBytes_ = tagBytes_;
                refuse(
                    QStringLiteral("start tag longer than %1 bytes").arg(limits_.maxStartTagBytes));
            }
            if (state_ == State::StartTag && quote_) {
                if (c == quote_) quote_ = 0;
                return;
            }
            if (state_ == State::StartTag && (c == '"' || c == '\'')) {
                quote_ = c;
                if (++attributes_ == limits_.maxAttributes + 1) tooManyAttributes();
            } else if (c == '<') {
                breakStream(QStringLiteral("malformed markup"));
            } else if (c == '>') {
                const bool isEnd = state_ == State::EndTag;
                state_ = State::Text;
                if (isEnd)
                    endTagDone();
                else
                    startTagDone((last & 0xff) == quint8('/'));
            }
            return;
        case State::Pi:
            if ((tail_ & 0xffff) == pair('?', '>')) {
                state_ = State::Text;
                if (!inStanza_) holdsMarkup_ = true;
            }
            return;
        case State::BangPrefix:
            prefix_.append(c);
            if (prefix_ == "--") {
                state_ = State::Comment;
                tail_ = 0;
            } else if (prefix_ == "[CDATA[") {
                state_ = State::CData;
                tail_ = 0;
            } else if (!QByteArray("--").startsWith(prefix_) &&
                       !QByteArray("[CDATA[").startsWith(prefix_)) {
                // Document type declarations bring entity expansion; XMPP forbids them.
                breakStream(QStringLiteral("a document type declaration"));
            }
            return;
        case State::Comment:
            if ((tail_ & 0xffffff) == triple('-', '-', '>')) {
                state_ = State::Text;
                if (!inStanza_) holdsMarkup_ = true;
            }
            return;
        case State::CData:
            if ((tail_ & 0xffffff) == triple(']', ']', '>')) state_ = State::Text;
            return;
    }
}

void StanzaGuard::startTagDone(bool empty) {
    if (inStanza_ && depth_ == 1) {
        // The end of a start tag that was already refused for its length.
        if (empty)
            finishStanza();
        else
            depth_ = 2;
        return;
    }
    if (!inStanza_) {
        const QByteArray name = tagName(tag_);
        if (depth_ <= 1 && name == "stream:stream") {
            // A stream header, also the one after a restart (TLS, authentication).
            depth_ = 1;
            flushTopLevel();
            return;
        }
        if (depth_ != 1) return breakStream(QStringLiteral("an element outside the stream"));
        if (!isPlainName(name)) return breakStream(QStringLiteral("an unusual element name"));
        beginStanza(name, tagBytes_ <= limits_.maxStartTagBytes ? tag_ : QByteArray());
        stanzaBytes_ = tagBytes_;
        if (empty)
            finishStanza();
        else
            depth_ = 2;
        return;
    }
    if (empty) return;
    ++depth_;
    if (depth_ - 1 > limits_.maxDepth)
        refuse(QStringLiteral("nested deeper than %1 levels").arg(limits_.maxDepth));
}

void StanzaGuard::endTagDone() {
    if (depth_ <= 0 || (!inStanza_ && tagName(tag_) != "stream:stream"))
        return breakStream(QStringLiteral("an end tag without a start"));
    --depth_;
    if (inStanza_ && depth_ == 1) {
        finishStanza();
    } else if (!inStanza_ && depth_ == 0) {
        // The server closed the stream.
        flushTopLevel();
    }
}

void StanzaGuard::beginStanza(const QByteArray& name, const QByteArray& startTag) {
    inStanza_ = true;
    refused_ = false;
    stanzaName_ = name;
    stanzaTag_ = startTag;
    stanzaStart_ = tagStart_;
}

void StanzaGuard::refuse(const QString& reason) {
    if (refused_) return;
    refused_ = true;
    refusedReason_ = reason;
    pending_.truncate(stanzaStart_);
}

// Refuses the element whose start tag is being read. When that is the stanza's own start
// tag, the replacement must not repeat it, just as for a start tag that is too long.
void StanzaGuard::tooManyAttributes() {
    const QString reason =
        QStringLiteral("more than %1 attributes on one element").arg(limits_.maxAttributes);
    if (inStanza_) return refuse(reason);
    const QByteArray name = tagName(tag_);
    if (depth_ <= 1 && name == "stream:stream")
        return breakStream(QStringLiteral("a stream header with too many attributes"));
    if (depth_ != 1) return;  // anything else outside the stream breaks it once complete
    pending_.truncate(tagStart_);
    beginStanza(name, QByteArray());
    stanzaBytes_ = tagBytes_;
    refuse(reason);
}

void StanzaGuard::finishStanza() {
    if (refused_) {
        if (!isPlainName(stanzaName_)) {
            inStanza_ = false;
            return breakStream(QStringLiteral("an unusual element name"));
        }
        QByteArray replacement = stanzaTag_.isEmpty() ? "<" + stanzaName_ + ">" : stanzaTag_;
        replacement += "<refused xmlns='" + QByteArray(kNamespace) + "' reason='" +
                       refusedReason_.toUtf8() + "'/></" + stanzaName_ + ">";
        pending_.append(replacement);
        refusals_.append({stanzaName_, refusedReason_});
    } else if ((stanzaName_ == "a" || stanzaName_ == "enabled" || stanzaName_ == "resumed" ||
                stanzaName_ == "failed") &&
               stanzaTag_.contains("urn:xmpp:sm:3")) {
        sessionTags_.append(stanzaTag_);
    }
    inStanza_ = false;
    refused_ = false;
    stanzaTag_.clear();
    flushTopLevel();
}

void StanzaGuard::breakStream(const QString& reason) {
    if (broken_) return;
    broken_ = true;
    brokenReason_ = reason;
    pending_.clear();
}

void StanzaGuard::flushTopLevel() {
    out_.append(pending_);
    emptyKeepingCapacity(pending_);
    tagStart_ = 0;
    stanzaStart_ = 0;
    holdsMarkup_ = false;
}

QByteArray StanzaGuard::tagName(const QByteArray& tag) {
    int i = tag.startsWith("</") ? 2 : 1;
    const int from = i;
    while (i < tag.size() && !isSpace(tag[i]) && tag[i] != '/' && tag[i] != '>') ++i;
    return tag.mid(from, i - from);
}
