#pragma once

#include <cstdint>

#include "openim/im_message_content.h"
#include "openim/im_tribe_id.h"
#include "openim/im_user_id.h"

namespace openim {

// A tribe message as stored and reported by the SDK.
struct IMTribeMessage {
    std::uint64_t msgId = 0;
    std::int64_t msgTime = 0;  // seconds since 1970 (UTC)
    std::int64_t msgSeq = 0;   // order among the conversation's messages of the same second
    IMTribeID tribe;
    IMUserID sender;
    IMMessageContent content;
};

}  // namespace openim
