#pragma once

#include <cstdint>

#include "openim/result_code.h"
#include "prg/prg_string.h"

namespace openim {

// The push channel: notices the server itself sends (headline messages from the domain).
struct XPushStartOkParam {
    prg::PrgStringT<wchar_t> domain;
};

struct XPushKickedParam {
    prg::PrgStringT<wchar_t> reason;
};

struct XPushStopedParam {
    ResultCode result;
};

struct XPushErrorParam {
    ResultCode result;
};

struct XPushMsg {
    prg::PrgStringT<wchar_t> msgId;
    std::int64_t msgTime = 0;  // seconds since 1970
    prg::PrgStringT<wchar_t> subject;
    prg::PrgStringT<wchar_t> content;
};

}  // namespace openim
