#pragma once

#include <QMetaType>
#include <QString>

namespace BaseMsg {

// Content kinds as the SDK reports them.
enum Kind { Text = 1, Media = 2, MediaFile = 4, Hidden = 8, Custom = 16 };

// Custom kinds: the "msgType" of the client's own custom-message JSON (-1 when absent).
enum CustomType {
    CustomTip = 0,
    CustomTask = 1,
    CustomTable = 2,
    CustomFile = 3,
    CustomShake = 4,
    CustomCard = 5  // a colleague's card, shared from the organisation or a tribe
};

// The client's view of one chat message, as the conversation views take it.
struct MMessage {
    quint64 msgId = 0;
    QString conversationId;  // the user or tribe the message belongs to
    bool isTribe = false;
    QString senderId;
    QString senderName;
    qint64 time = 0;   // seconds since 1970; 0: unknown, no time separator
    qint64 order = 0;  // order among the conversation's messages of the same second
    bool isSelf = false;
    bool isHistory = false;
    int kind = Text;
    QString text;       // kind 1: the text, with emoticon short codes as sent
    QString mediaPath;  // kinds 2 and 4: local path of the picture or file, '/' separators
    // kind 16: the summary line and the compact JSON object handed on to the views
    // ("msgType", "summary", "content", "isCustomMsg" and the card's own keys).
    QString summary;
    QString contentJson;
    // A message of the user's that did not go out: its content as it was handed to the
    // service (a custom message's own JSON), for sending it again.
    QString sentContent;
};

}  // namespace BaseMsg

Q_DECLARE_METATYPE(BaseMsg::MMessage)
