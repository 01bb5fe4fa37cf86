#pragma once

#include <QString>

#include "openim/im_message_content.h"
#include "store/stored_message.h"

// The drafts every send starts from, one per content kind, for one-to-one conversations
// and tribes alike; the engine fills in the rest (peer, time, ids, file details).
namespace message_drafts {

inline StoredMessage text(const QString& content) {
    StoredMessage m;
    m.kind = openim::kContentText;
    m.content = content;
    return m;
}

inline StoredMessage custom(const QString& json, const QString& summary) {
    StoredMessage m;
    m.kind = openim::kContentCustom;
    m.content = json;
    m.summary = summary;
    return m;
}

inline StoredMessage image(int width, int height) {
    StoredMessage m;
    m.kind = openim::kContentImage;
    m.width = width;
    m.height = height;
    return m;
}

inline StoredMessage file() {
    StoredMessage m;
    m.kind = openim::kContentFile;
    return m;
}

}  // namespace message_drafts
