#pragma once

#include <QMetaType>
#include <QString>

// What the IM core tells the main window about the conversation of a live message.
struct ConversationRecord {
    QString id;        // decimal id of the user or tribe
    QString name;      // display name; may be empty
    QString nickName;  // used when name is empty
    // The window is not flashed for a message the user sent from another device, nor for
    // a conversation the user has muted.
    bool fromSelf = false;
    bool muted = false;

    QString displayName() const { return name.isEmpty() ? nickName : name; }
};

Q_DECLARE_METATYPE(ConversationRecord)
