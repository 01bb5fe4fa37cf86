#include "sdk/message_codec.h"

#include <QXmppElement.h>
#include <QXmppMessage.h>
#include <QFileInfo>
#include <QJsonDocument>
#include <QUrl>

#include "openim/im_message_content.h"

namespace {

bool isWebUrl(const QString& text) {
    QUrl url(text, QUrl::StrictMode);
    return url.isValid() &&
           (url.scheme() == QLatin1String("http") || url.scheme() == QLatin1String("https")) &&
           !url.host().isEmpty();
}

StoredMessage hidden(StoredMessage m) {
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

std::optional<StoredMessage> MessageCodec::decode(const QXmppMessage& stanza) {
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
    if (content.isNull()) {
        if (body.isEmpty()) return std::nullopt;
        if (body.size() > kMaxBodyChars) return hidden(m);
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
    if (!ok || body.size() > kMaxBodyChars) return hidden(m);
    m.kind = kind;
    switch (kind) {
        case openim::kContentText:
            m.content = body;
            return m;
        case openim::kContentCustom: {
            const QString json = content.value();
            if (json.size() > kMaxBodyChars) return hidden(m);
            QJsonParseError error;
            QJsonDocument doc = QJsonDocument::fromJson(json.toUtf8(), &error);
            if (error.error != QJsonParseError::NoError || !doc.isObject()) return hidden(m);
            m.content = json;
            m.summary = body;
            return m;
        }
        case openim::kContentImage:
        case openim::kContentFile: {
            const QString url = stanza.outOfBandUrl().isEmpty() ? body : stanza.outOfBandUrl();
            if (!isWebUrl(url)) return hidden(m);
            m.url = url;
            m.summary = content.attribute(QStringLiteral("name"));
            if (m.summary.isEmpty()) m.summary = QFileInfo(QUrl(url).path()).fileName();
            m.fileSize = content.attribute(QStringLiteral("size")).toLongLong();
            m.width = content.attribute(QStringLiteral("width")).toInt();
            m.height = content.attribute(QStringLiteral("height")).toInt();
            return m;
        }
        default:
            return hidden(m);
    }
}
