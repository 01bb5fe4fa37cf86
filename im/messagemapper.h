#pragma once

#include <QString>

#include "basemsg.h"
#include "openim/im_message.h"
#include "openim/im_tribe_message.h"

// The client's message records made from the SDK's messages, and the short text the talk
// list shows for each.
class MessageMapper {
public:
    // The text the talk list shows for a message text: one line, at most twelve characters.
    static QString previewOf(const QString& text);
    // The talk list's text for a record of any kind; empty for kinds it does not show.
    static QString preview(const BaseMsg::MMessage& m);
    // The record of a one-to-one message: its conversation is the peer, whoever sent it.
    static BaseMsg::MMessage toMessage(const openim::IMMessage& m, const QString& ownId,
                                       bool history);
    // The record of a tribe's message: its conversation is the tribe.
    static BaseMsg::MMessage toTribeMessage(const openim::IMTribeMessage& m, const QString& ownId,
                                            bool history);
};
