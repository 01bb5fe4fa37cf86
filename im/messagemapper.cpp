// SDK messages made into the client's message records and talk-list previews.
#include "messagemapper.h"

#include <QJsonDocument>
#include <QJsonObject>

#include "directorystore.h"
#include "sdk/wide_text.h"

using wide_text::toQ;

QString MessageMapper::previewOf(const QString& text) {
    QString flat = text;
    flat.remove(QLatin1Char('\r')).remove(QLatin1Char('\n')).remove(QLatin1Char('\t'));
    return flat.size() > 12 ? flat.left(12) + QStringLiteral("...") : flat;
}

QString MessageMapper::preview(const BaseMsg::MMessage& m) {
    switch (m.kind) {
        case BaseMsg::Text:
            return previewOf(m.text);
        case BaseMsg::Media:
            return QStringLiteral("[图片]");
        case BaseMsg::MediaFile:
            return QStringLiteral("[文件]");
        case BaseMsg::Custom:
            return m.summary;
        default:
            return QString();
    }
}

BaseMsg::MMessage MessageMapper::toMessage(const openim::IMMessage& im, const QString& ownId,
                                           bool history) {
    BaseMsg::MMessage m;
    m.msgId = im.msgId;
    m.time = im.msgTime;
    m.order = im.msgSeq;
    m.senderId = toQ(im.sender.account);
    m.isSelf = !ownId.isEmpty() && m.senderId == ownId;
    m.conversationId = m.isSelf ? toQ(im.receiver.account) : m.senderId;
    m.isHistory = history;
    m.kind = im.content.type;
    if (const DirectoryStore::Colleague* c = DirectoryStore::instance().colleague(m.senderId))
        m.senderName = c->displayName();
    const QString content = toQ(im.content.content);
    switch (m.kind) {
        case BaseMsg::Text:
            m.text = content;
            break;
        case BaseMsg::Media:
        case BaseMsg::MediaFile:
            m.mediaPath = QString(content).replace(QLatin1Char('\\'), QLatin1Char('/'));
            m.summary = toQ(im.content.summary);  // the file's name
            break;
        case BaseMsg::Custom: {
            m.summary = toQ(im.content.summary);
            const QJsonDocument doc = QJsonDocument::fromJson(content.toUtf8());
            QJsonObject o = doc.isObject() ? doc.object() : QJsonObject();
            const QJsonValue type = o.value(QStringLiteral("msgType"));
            o.insert(QStringLiteral("msgType"), type.isDouble() ? type.toInt() : -1);
            o.insert(QStringLiteral("summary"), m.summary);
            if (!o.contains(QStringLiteral("content")))
                o.insert(QStringLiteral("content"), content);
            o.insert(QStringLiteral("isCustomMsg"), true);
            m.contentJson = QString::fromUtf8(QJsonDocument(o).toJson(QJsonDocument::Compact));
            break;
        }
        default:
            m.kind = BaseMsg::Hidden;
            break;
    }
    return m;
}

BaseMsg::MMessage MessageMapper::toTribeMessage(const openim::IMTribeMessage& message,
                                                const QString& ownId, bool history) {
    openim::IMMessage single;
    single.msgId = message.msgId;
    single.msgTime = message.msgTime;
    single.msgSeq = message.msgSeq;
    single.sender = message.sender;
    single.content = message.content;
    BaseMsg::MMessage m = toMessage(single, ownId, history);
    m.conversationId = QString::number(message.tribe.tribeId);
    m.isTribe = true;
    return m;
}
