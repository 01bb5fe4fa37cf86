#include "requesthead.h"

#include <QByteArray>

namespace {

bool equalsIgnoringCase(const char* a, size_t n, const char* lower) {
    for (size_t i = 0; i < n; ++i) {
        if (lower[i] == '\0') return false;
        char c = a[i];
        if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
        if (c != lower[i]) return false;
    }
    return lower[n] == '\0';
}

}  // namespace

RequestHead RequestHead::scan(const char* data, size_t size, size_t maxBytes, int maxLines) {
    RequestHead head;
    const size_t limit = size < maxBytes ? size : maxBytes;
    int lines = 0;
    size_t end = 0;
    for (size_t i = 0; i < limit; ++i) {
        if (data[i] != '\n') continue;
        if (++lines > maxLines) {
            head.state = TooLarge;
            return head;
        }
        // The blank line: the HTTP parser only takes CRLF line ends.
        if (i >= 3 && data[i - 1] == '\r' && data[i - 2] == '\n' && data[i - 3] == '\r') {
            end = i + 1;
            break;
        }
    }
    if (end == 0) {
        head.state = size >= maxBytes ? TooLarge : Incomplete;
        return head;
    }
    head.headBytes = end;
    head.state = Complete;
    // What the head says about the body, so small bodies can be read before a worker is
    // involved and too-large ones refused at once.
    size_t line = 0;
    while (line < end) {
        size_t eol = line;
        while (eol < end && data[eol] != '\n') ++eol;
        const char* text = data + line;
        const size_t length = eol > line && data[eol - 1] == '\r' ? eol - line - 1 : eol - line;
        size_t colon = 0;
        while (colon < length && text[colon] != ':') ++colon;
        if (line > 0 && colon < length) {
            const QByteArray value =
                QByteArray(text + colon + 1, int(length - colon - 1)).trimmed().toLower();
            if (equalsIgnoringCase(text, colon, "content-length")) {
                bool ok = false;
                const qlonglong n = value.toLongLong(&ok);
                // Two lengths, or one that is not a plain number, make the body's end unknown.
                if (!ok || n < 0 || head.contentLength >= 0 || value.startsWith('+')) {
                    head.state = Malformed;
                    return head;
                }
                head.contentLength = n;
            } else if (equalsIgnoringCase(text, colon, "transfer-encoding")) {
                head.chunked = head.chunked || value.contains("chunked");
            } else if (equalsIgnoringCase(text, colon, "expect")) {
                head.expectsContinue = value == "100-continue";
            }
        }
        line = eol + 1;
    }
    return head;
}
