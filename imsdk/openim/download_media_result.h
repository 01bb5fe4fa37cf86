#pragma once

#include <cstdint>

#include "openim/im_tribe_id.h"
#include "openim/im_user_id.h"
#include "prg/prg_string.h"

namespace openim {

// Outcome of fetching a received picture or file; the ResultCode beside it says whether
// it worked.
struct DownloadMediaResult {
    std::uint64_t msgId = 0;
    IMUserID sender;
    prg::PrgStringT<wchar_t> url;
    prg::PrgStringT<wchar_t> localPath;  // empty when the download failed
};

struct DownloadTribeMediaResult {
    std::uint64_t msgId = 0;
    IMTribeID tribe;
    IMUserID sender;
    prg::PrgStringT<wchar_t> url;
    prg::PrgStringT<wchar_t> localPath;
};

}  // namespace openim
