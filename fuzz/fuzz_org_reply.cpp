// The organisation reply, read in one pass without a JSON document. It accepts only what
// is JSON: a reply it takes must also be a JSON object to Qt's own parser, except that it
// reads bytes that are not UTF-8 as U+FFFD where Qt refuses the whole text.
#include <QJsonDocument>

#include "colleague.h"
#include "orgreplyparser.h"
#include "support/fuzzcheck.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray body = QByteArray::fromRawData(reinterpret_cast<const char*>(data), int(size));
    int departments = 0, colleagues = 0;
    OrgReplyParser parser([&](OrgReplyParser::Department&&) { ++departments; },
                          [&](Colleague&&) { ++colleagues; });
    const bool ok = parser.parse(body);
    if (ok) {
        QJsonParseError error;
        QByteArray plain = body;
        if (plain.startsWith("\xEF\xBB\xBF")) plain.remove(0, 3);
        const QJsonDocument doc = QJsonDocument::fromJson(plain, &error);
        FUZZ_CHECK(error.error == QJsonParseError::DeepNesting ||
                   error.error == QJsonParseError::IllegalUTF8String || doc.isObject());
    }
    return 0;
}
