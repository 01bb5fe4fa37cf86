#pragma once

#include <cstdint>

#include "prg/prg_string.h"

namespace openim {

// Online state of a user as the server shares it.
struct IMUserStatus {
    enum State : std::int32_t { kOffline = 0, kOnline = 1, kAway = 2, kBusy = 3 };
    std::int32_t state = kOffline;
    prg::PrgStringT<wchar_t> statusText;
};

}  // namespace openim
