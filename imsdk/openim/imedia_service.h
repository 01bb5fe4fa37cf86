#pragma once

#include "base/callback.h"
#include "openim/download_media_result.h"
#include "openim/result_code.h"
#include "prg/iprg_unknown.h"

namespace openim {

// One-to-one media: received pictures and files are fetched into the receive folder as
// they arrive; each fetch is reported here.
class IMediaService : public prg::IPrgUnknown {
public:
    using DownloadCallback = base::Callback<void(ResultCode, DownloadMediaResult)>;

    virtual void RegisterDownloadCallback(const DownloadCallback& callback) = 0;
    // Fetches a received media message again (after a failure); reported the same way.
    virtual void DownloadMedia(std::uint64_t msgId) = 0;
};

}  // namespace openim
