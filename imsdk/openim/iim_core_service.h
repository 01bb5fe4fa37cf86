#pragma once

#include <vector>

#include "base/file_path.h"
#include "openim/ihost_application.h"
#include "openim/im_emotion_item.h"
#include "prg/iprg_unknown.h"
#include "prg/prg_string.h"

namespace openim {

// The SDK core: takes the client's host object and start-up settings.
class IIMCoreService : public prg::IPrgUnknown {
public:
    // Keeps its own reference to `host` (nullptr drops it).
    virtual void SetHostApplication(IHostApplication* host) = 0;
    // The client's resource folder and application key; the key goes into every IMUserID
    // the SDK makes.
    virtual void Start(const base::FilePath& resourceFolder,
                       const prg::PrgStringT<wchar_t>& appKey) = 0;
    virtual prg::PrgStringT<wchar_t> GetAppKey() = 0;
    // The emoticon catalogue, in panel order.
    virtual void GetEmotionItems(std::vector<IMEmotionItem>* items) = 0;
};

}  // namespace openim
