#pragma once

#include <cstdint>

#include "base/callback.h"
#include "openim/download_media_result.h"
#include "openim/result_code.h"
#include "prg/iprg_unknown.h"

namespace openim {

// Tribe media: pictures and files received in tribes. Declared now, as IMediaService.
class ITribeMediaService : public prg::IPrgUnknown {
public:
    using DownloadCallback = base::Callback<void(ResultCode, DownloadTribeMediaResult)>;

    virtual void RegisterDownloadCallback(const DownloadCallback& callback) = 0;
    virtual void DownloadTribeMedia(std::uint64_t msgId) = 0;
};

}  // namespace openim
