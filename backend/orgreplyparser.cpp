#include "orgreplyparser.h"

#include <QtGlobal>
#include <cstring>

#include "colleague.h"

namespace {
constexpr int kMaxDepth = 64;

bool sameKey(const char* begin, int length, const char* key) {
    return int(std::strlen(key)) == length && std::memcmp(begin, key, size_t(length)) == 0;
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

QString toString(const QVarLengthArray<QChar, 256>& chars) {
    return QString(chars.constData(), chars.size());
}
}  // namespace

OrgReplyParser::OrgReplyParser(DepartmentSink departments, ColleagueSink colleagues)
    : departmentSink_(std::move(departments)), colleagueSink_(std::move(colleagues)) {}

void OrgReplyParser::ws() {
    while (p_ < end_ && (*p_ == ' ' || *p_ == '\n' || *p_ == '\r' || *p_ == '\t')) ++p_;
}

bool OrgReplyParser::expect(char c) {
    ws();
    if (p_ >= end_ || *p_ != c) return false;
    ++p_;
    return true;
}

OrgReplyParser::Next OrgReplyParser::enter(char open, char close) {
    if (!expect(open)) return Next::Broken;
    ws();
    if (p_ < end_ && *p_ == close) {
        ++p_;
        return Next::Done;
    }
    return Next::More;
}

OrgReplyParser::Next OrgReplyParser::afterItem(char close) {
    ws();
    if (p_ < end_ && *p_ == ',') {
        ++p_;
        return Next::More;
    }
    if (p_ < end_ && *p_ == close) {
        ++p_;
        return Next::Done;
    }
    return Next::Broken;
}

bool OrgReplyParser::parse(const QByteArray& body) {
    p_ = body.constData();
    end_ = p_ + body.size();
    // Some servers put a UTF-8 byte-order mark before the JSON text.
    if (body.startsWith("\xEF\xBB\xBF")) p_ += 3;
    codeSeen_ = success_ = deptListSeen_ = false;
    errorMsg_.clear();
    if (!object(Context::Top)) return false;
    ws();
    // A reply without a department list is a company without departments, not a failure.
    const bool ok = p_ == end_ && codeSeen_ && success_;
    if (ok && !deptListSeen_) qInfo("organisation reply without a department list: none are built");
    return ok;
}

bool OrgReplyParser::skipString() {
    ++p_;  // opening quote
    while (p_ < end_) {
        if (*p_ == '\\') {
            p_ += 2;
        } else if (*p_ == '"') {
            ++p_;
            return true;
        } else {
            ++p_;
        }
    }
    return false;
}

// Decodes a JSON string (UTF-8 with escapes) into UTF-16. Bytes that are not UTF-8 become
// U+FFFD rather than failing the whole reply.
bool OrgReplyParser::string(QVarLengthArray<QChar, 256>* out) {
    ws();
    if (p_ >= end_ || *p_ != '"') return false;
    ++p_;
    out->clear();
    while (p_ < end_) {
        const unsigned char c = static_cast<unsigned char>(*p_);
        if (c == '"') {
            ++p_;
            return true;
        }
        if (c == '\\') {
            if (p_ + 1 >= end_) return false;
            const char e = p_[1];
            p_ += 2;
            switch (e) {
                case '"':
                    out->append(QLatin1Char('"'));
                    break;
                case '\\':
                    out->append(QLatin1Char('\\'));
                    break;
                case '/':
                    out->append(QLatin1Char('/'));
                    break;
                case 'b':
                    out->append(QChar(0x08));
                    break;
                case 'f':
                    out->append(QChar(0x0c));
                    break;
                case 'n':
                    out->append(QLatin1Char('\n'));
                    break;
                case 'r':
                    out->append(QLatin1Char('\r'));
                    break;
                case 't':
                    out->append(QLatin1Char('\t'));
                    break;
                case 'u': {
                    if (end_ - p_ < 4) return false;
                    int code = 0;
                    for (int i = 0; i < 4; ++i) {
                        const int h = hexValue(p_[i]);
                        if (h < 0) return false;
                        code = code * 16 + h;
                    }
                    p_ += 4;
                    out->append(QChar(char16_t(code)));
                    break;
                }
                default:
                    return false;
            }
            continue;
        }
        if (c < 0x80) {
            out->append(QLatin1Char(char(c)));
            ++p_;
            continue;
        }
        // Multi-byte UTF-8.
        int extra = 0;
        uint code = 0;
        if ((c & 0xE0) == 0xC0) {
            extra = 1;
            code = c & 0x1F;
        } else if ((c & 0xF0) == 0xE0) {
            extra = 2;
            code = c & 0x0F;
        } else if ((c & 0xF8) == 0xF0) {
            extra = 3;
            code = c & 0x07;
        } else {
            out->append(QChar(QChar::ReplacementCharacter));
            ++p_;
            continue;
        }
        if (end_ - p_ <= extra) return false;
        bool valid = true;
        for (int i = 1; i <= extra; ++i) {
            const unsigned char b = static_cast<unsigned char>(p_[i]);
            if ((b & 0xC0) != 0x80) valid = false;
            code = (code << 6) | (b & 0x3F);
        }
        if (!valid) {
            out->append(QChar(QChar::ReplacementCharacter));
            ++p_;
            continue;
        }
        p_ += extra + 1;
        if (code >= 0x10000 && code <= 0x10FFFF) {
            out->append(QChar(QChar::highSurrogate(code)));
            out->append(QChar(QChar::lowSurrogate(code)));
        } else if (code < 0x10000) {
            out->append(QChar(char16_t(code)));
        } else {
            out->append(QChar(QChar::ReplacementCharacter));
        }
    }
    return false;
}

// A bare value is a number or one of the three literals; anything else is not JSON, and a
// reply that is not JSON is refused whole rather than half read.
static bool isJsonScalar(const char* p, const char* end) {
    const int n = int(end - p);
    if ((n == 4 && (qstrncmp(p, "null", 4) == 0 || qstrncmp(p, "true", 4) == 0)) ||
        (n == 5 && qstrncmp(p, "false", 5) == 0))
        return true;
    auto digits = [&] {
        const char* from = p;
        while (p < end && *p >= '0' && *p <= '9') ++p;
        return p > from;
    };
    if (p < end && *p == '-') ++p;
    if (p < end && *p == '0')
        ++p;
    else if (!digits())
        return false;
    if (p < end && *p == '.') {
        ++p;
        if (!digits()) return false;
    }
    if (p < end && (*p == 'e' || *p == 'E')) {
        ++p;
        if (p < end && (*p == '+' || *p == '-')) ++p;
        if (!digits()) return false;
    }
    return p == end;
}

// A member's value as text: strings decoded, numbers and literals as written; objects and
// arrays are skipped and give nothing.
bool OrgReplyParser::scalarText(QVarLengthArray<QChar, 256>* out) {
    ws();
    if (p_ >= end_) return false;
    out->clear();
    if (*p_ == '"') return string(out);
    if (*p_ == '{' || *p_ == '[') return skipValue();
    const char* start = p_;
    while (p_ < end_ && *p_ != ',' && *p_ != '}' && *p_ != ']' && *p_ != ' ' && *p_ != '\n' &&
           *p_ != '\r' && *p_ != '\t')
        ++p_;
    if (p_ == start || !isJsonScalar(start, p_)) return false;
    if (sameKey(start, int(p_ - start), "null")) return true;
    for (const char* q = start; q < p_; ++q) out->append(QLatin1Char(*q));
    return true;
}

bool OrgReplyParser::skipValue(int depth) {
    ws();
    if (p_ >= end_ || depth > kMaxDepth) return false;
    if (*p_ == '"') return skipString();
    if (*p_ == '{' || *p_ == '[') {
        const bool isObject = *p_ == '{';
        const char close = isObject ? '}' : ']';
        Next next = enter(*p_, close);
        while (next == Next::More) {
            if (isObject) {
                ws();
                if (p_ >= end_ || *p_ != '"' || !skipString() || !expect(':')) return false;
            }
            if (!skipValue(depth + 1)) return false;
            next = afterItem(close);
        }
        return next == Next::Done;
    }
    QVarLengthArray<QChar, 256> ignored;
    return scalarText(&ignored);
}

bool OrgReplyParser::key(const char** begin, int* length, QVarLengthArray<QChar, 256>* decoded) {
    ws();
    if (p_ >= end_ || *p_ != '"') return false;
    const char* start = p_ + 1;
    const char* q = start;
    while (q < end_ && *q != '"' && *q != '\\') ++q;
    if (q < end_ && *q == '"') {
        *begin = start;
        *length = int(q - start);
        p_ = q + 1;
    } else {
        // A key written with escapes: compare its decoded form.
        if (!string(decoded)) return false;
        static thread_local QByteArray latin;
        latin = toString(*decoded).toLatin1();
        *begin = latin.constData();
        *length = latin.size();
    }
    return expect(':');
}

bool OrgReplyParser::object(Context context) {
    Next next = enter('{', '}');
    QVarLengthArray<QChar, 256> text;
    while (next == Next::More) {
        const char* k = nullptr;
        int n = 0;
        if (!key(&k, &n, &text)) return false;
        bool ok = true;
        if (context == Context::Top && sameKey(k, n, "errorCode")) {
            ok = scalarText(&text);
            bool isNumber = false;
            const int code = toString(text).trimmed().toInt(&isNumber);
            codeSeen_ = true;
            success_ = isNumber && code == 0;
        } else if (context == Context::Top && sameKey(k, n, "errorMsg")) {
            ok = scalarText(&text);
            errorMsg_ = toString(text);
        } else if (context == Context::Top && sameKey(k, n, "results")) {
            ws();
            ok = p_ < end_ && *p_ == '{' ? object(Context::Results) : skipValue();
        } else if (sameKey(k, n, "allDeptList")) {
            ws();
            // A list of another kind is a broken reply; null is no list.
            ok = p_ < end_ && (*p_ == '[' ? departments() : *p_ == 'n' && skipValue());
        } else if (sameKey(k, n, "allUserList")) {
            ws();
            ok = p_ < end_ && *p_ == '[' ? colleagues() : skipValue();
        } else {
            ok = skipValue();
        }
        if (!ok) return false;
        next = afterItem('}');
    }
    return next == Next::Done;
}

bool OrgReplyParser::departments() {
    deptListSeen_ = true;
    Next next = enter('[', ']');
    QVarLengthArray<QChar, 256> text;
    while (next == Next::More) {
        ws();
        if (p_ < end_ && *p_ == '{') {
            Department d;
            Next member = enter('{', '}');
            while (member == Next::More) {
                const char* k = nullptr;
                int n = 0;
                if (!key(&k, &n, &text) || !scalarText(&text)) return false;
                if (sameKey(k, n, "id"))
                    d.id = toString(text);
                else if (sameKey(k, n, "orgName"))
                    d.orgName = toString(text);
                else if (sameKey(k, n, "parentId"))
                    d.parentId = toString(text);
                else if (sameKey(k, n, "fullNamePinyin"))
                    d.fullNamePinyin = toString(text);
                else if (sameKey(k, n, "shortNamePinyin"))
                    d.shortNamePinyin = toString(text);
                member = afterItem('}');
            }
            if (member == Next::Broken) return false;
            departmentSink_(std::move(d));
        } else if (!skipValue()) {  // not a department: left out
            return false;
        }
        next = afterItem(']');
    }
    return next == Next::Done;
}

bool OrgReplyParser::colleagues() {
    Next next = enter('[', ']');
    // One buffer for a whole record; each field is a slice of it.
    QVarLengthArray<QChar, 1024> record;
    QVarLengthArray<QChar, 256> text;
    int begin[Colleague::FieldCount];
    int length[Colleague::FieldCount];
    while (next == Next::More) {
        ws();
        if (p_ < end_ && *p_ == '{') {
            record.clear();
            std::fill(std::begin(length), std::end(length), 0);
            std::fill(std::begin(begin), std::end(begin), 0);
            Next member = enter('{', '}');
            while (member == Next::More) {
                const char* k = nullptr;
                int n = 0;
                if (!key(&k, &n, &text) || !scalarText(&text)) return false;
                const Colleague::Field f = Colleague::fieldOf(k, n);
                if (f != Colleague::FieldCount) {
                    begin[f] = record.size();
                    length[f] = text.size();
                    record.append(text.constData(), text.size());
                }
                member = afterItem('}');
            }
            if (member == Next::Broken) return false;
            QStringView views[Colleague::FieldCount];
            for (int f = 0; f < Colleague::FieldCount; ++f)
                views[f] = QStringView(record.constData() + begin[f], length[f]);
            colleagueSink_(Colleague(views));
        } else if (!skipValue()) {
            return false;
        }
        next = afterItem(']');
    }
    return next == Next::Done;
}
