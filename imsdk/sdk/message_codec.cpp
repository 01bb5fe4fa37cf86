#include "sdk/message_codec.h"

#include <QXmppElement.h>
#include <QXmppMessage.h>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUrl>

#include "openim/im_message_content.h"

namespace {

bool isWebUrl(const QString& text) {
    QUrl url(text, QUrl::StrictMode);
    return url.isValid() &&
           (url.scheme() == QLatin1String("http") || url.scheme() == QLatin1String("https")) &&
           !url.host().isEmpty();
}

StoredMessage hidden(StoredMessage m, QString* problem, const QString& why) {
    if (problem) *problem = why;
    m.kind = openim::kContentHidden;
    m.content.clear();
    m.summary.clear();
    m.url.clear();
    return m;
}

}  // namespace

QXmppMessage MessageCodec::encode(const StoredMessage& m, const QString& toJid) {
    QXmppMessage stanza(QString(), toJid);
    stanza.setType(QXmppMessage::Chat);
    stanza.setId(m.originId);
    stanza.setOriginId(m.originId);
    QXmppElement content;
    content.setTagName(QStringLiteral("content"));
    content.setAttribute(QStringLiteral("xmlns"), QLatin1String(kNamespace));
    content.setAttribute(QStringLiteral("kind"), QString::number(m.kind));
    switch (m.kind) {
        case openim::kContentCustom:
            stanza.setBody(m.summary);
            content.setValue(m.content);
            break;
        case openim::kContentImage:
        case openim::kContentFile:
            stanza.setBody(m.url);
            stanza.setOutOfBandUrl(m.url);
            content.setAttribute(QStringLiteral("name"), m.summary);
            content.setAttribute(QStringLiteral("size"), QString::number(m.fileSize));
            if (m.kind == openim::kContentImage) {
                content.setAttribute(QStringLiteral("width"), QString::number(m.width));
                content.setAttribute(QStringLiteral("height"), QString::number(m.height));
            }
            break;
        default:
            stanza.setBody(m.content);
            break;
    }
    stanza.setExtensions({content});
    return stanza;
}

QString MessageCodec::wireText(const QString& text) {
    QString out;
    out.reserve(text.size());
    for (int i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c.isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate()) {
            out.append(c).append(text.at(++i));
            continue;
        }
        const ushort u = c.unicode();
        const bool allowed =
            u == 0x9 || u == 0xA || u == 0xD || (u >= 0x20 && u <= 0xFFFD && !c.isSurrogate());
        if (allowed) out.append(c);
    }
    return out;
}

QStringList MessageCodec::split(const QString& text, int maxChars) {
    QStringList parts;
    for (int from = 0; from < text.size();) {
        int n = std::min(maxChars, int(text.size()) - from);
        if (n > 1 && from + n < text.size() && text.at(from + n - 1).isHighSurrogate()) --n;
        parts << text.mid(from, n);
        from += n;
    }
    return parts;
}

// Nothing a reader would see: white space of any script, and the invisible joiners and
// marks that would otherwise make an empty bubble.
bool MessageCodec::isMedia(int kind) {
    return kind == openim::kContentImage || kind == openim::kContentFile;
}

bool MessageCodec::isBlank(const QString& text) {
    for (const QChar c : text) {
        if (c.isSpace()) continue;
        const ushort u = c.unicode();
        if ((u >= 0x200B && u <= 0x200F) || u == 0x2060 || u == 0xFEFF || u == 0x180E) continue;
        return false;
    }
    return true;
}

QList<StoredMessage> MessageCodec::rows(const StoredMessage& m) {
    if (m.kind != openim::kContentText || m.content.size() <= kMaxBodyChars) return {m};
    const QStringList parts = split(m.content);
    QList<StoredMessage> out;
    for (int i = 0; i < parts.size(); ++i) {
        StoredMessage part = m;
        part.content = parts.at(i);
        if (i > 0) {
            const QString suffix = QStringLiteral("#part%1").arg(i + 1);
            if (!part.originId.isEmpty()) part.originId += suffix;
            if (!part.stanzaId.isEmpty()) part.stanzaId += suffix;
        }
        out << part;
    }
    return out;
}

bool MessageCodec::keepAsText(StoredMessage& m) {
    m.kind = openim::kContentText;
    m.content = m.summary;
    return !isBlank(m.content);
}

// Tips, task and table cards speak for the company; colleagues share files, shakes and
// contact cards.
bool MessageCodec::speaksForCompany(const QString& customJson) {
    const QJsonDocument doc = QJsonDocument::fromJson(customJson.toUtf8());
    if (!doc.isObject()) return false;
    const QJsonValue type = doc.object().value(QStringLiteral("msgType"));
    if (!type.isDouble()) return false;
    const int t = type.toInt(-1);
    return t == 0 || t == 1 || t == 2;
}

std::optional<StoredMessage> MessageCodec::decode(const QXmppMessage& stanza, QString* problem) {
    StoredMessage m;
    const QString body = stanza.body();
    QXmppElement content;
    for (const QXmppElement& e : stanza.extensions()) {
        if (e.tagName() == QLatin1String("content") &&
            e.attribute(QStringLiteral("xmlns")) == QLatin1String(kNamespace)) {
            content = e;
            break;
        }
    }
    const bool blank = isBlank(body);
    if (content.isNull()) {
        if (body.isEmpty()) return std::nullopt;
        if (blank) {
            if (problem) *problem = QStringLiteral("the text is blank");
            return std::nullopt;
        }
        // Plain clients share files as an address in the body plus the same address as oob.
        if (!stanza.outOfBandUrl().isEmpty() && stanza.outOfBandUrl() == body && isWebUrl(body)) {
            m.kind = openim::kContentFile;
            m.url = body;
            m.summary = QFileInfo(QUrl(body).path()).fileName();
            return m;
        }
        m.kind = openim::kContentText;
        m.content = body;
        return m;
    }

    bool ok = false;
    const int kind = content.attribute(QStringLiteral("kind")).toInt(&ok);
    if (!ok) return hidden(m, problem, QStringLiteral("no message kind"));
    if (kind != openim::kContentText && body.size() > kMaxBodyChars)
        return hidden(m, problem, QStringLiteral("a body longer than %1").arg(kMaxBodyChars));
    m.kind = kind;
    switch (kind) {
        case openim::kContentText:
            if (blank) {
                if (problem) *problem = QStringLiteral("the text is blank");
                return std::nullopt;
            }
            m.content = body;
            return m;
        case openim::kContentCustom: {
            const QString json = content.value();
            if (json.size() > kMaxBodyChars)
                return hidden(m, problem,
                              QStringLiteral("a custom payload longer than %1").arg(kMaxBodyChars));
            QJsonParseError error;
            QJsonDocument doc = QJsonDocument::fromJson(json.toUtf8(), &error);
            if (error.error != QJsonParseError::NoError || !doc.isObject())
                return hidden(m, problem,
                              QStringLiteral("a custom payload that is not a JSON object"));
            m.content = json;
            m.summary = body;
            return m;
        }
        case openim::kContentImage:
        case openim::kContentFile: {
            const QString url = stanza.outOfBandUrl().isEmpty() ? body : stanza.outOfBandUrl();
            if (!isWebUrl(url))
                return hidden(m, problem, QStringLiteral("a file address that is not http(s)"));
            m.url = url;
            m.summary = content.attribute(QStringLiteral("name"));
            if (m.summary.isEmpty()) m.summary = QFileInfo(QUrl(url).path()).fileName();
            m.fileSize = content.attribute(QStringLiteral("size")).toLongLong();
            m.width = content.attribute(QStringLiteral("width")).toInt();
            m.height = content.attribute(QStringLiteral("height")).toInt();
            return m;
        }
        default:
            return hidden(m, problem, QStringLiteral("an unknown kind %1").arg(kind));
    }
}
