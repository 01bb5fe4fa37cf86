#pragma once

#include <cstdint>

#include "openim/im_tribe_id.h"
#include "prg/prg_string.h"

namespace openim {

// A conversation with messages the user has not seen yet: messages from others stored after
// the user last had the conversation in front of it. Kept in the store, so a restart, an
// update or a crash gives the same answer.
struct IMUnseen {
    bool isTribe = false;
    prg::PrgStringT<wchar_t> account;  // the peer of a one-to-one conversation
    IMTribeID tribe;                   // the tribe, for a tribe's conversation
    std::int32_t count = 0;
    std::int64_t lastTime = 0;  // of the newest unseen message, as msgTime
};

}  // namespace openim
