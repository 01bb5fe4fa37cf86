#pragma once

#include <cstdint>

#include "openim/im_message_content.h"
#include "openim/im_user_id.h"

namespace openim {

// A one-to-one message as stored and reported by the SDK.
struct IMMessage {
    std::uint64_t msgId = 0;   // unique within the account's store
    std::int64_t msgTime = 0;  // seconds since 1970 (UTC)
    std::int64_t msgSeq = 0;   // order among the conversation's messages of the same second
    IMUserID sender;
    IMUserID receiver;
    IMMessageContent content;
    bool hasRead = false;
};

}  // namespace openim
