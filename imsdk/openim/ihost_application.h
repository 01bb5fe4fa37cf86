#pragma once

#include "base/file_path.h"
#include "prg/iprg_unknown.h"

namespace openim {

// Implemented by the client and handed to the SDK core, which keeps a reference.
class IHostApplication : public prg::IPrgUnknown {
public:
    // Folder for the SDK's own data (one store per account below it); empty for the default
    // "<Documents>/Quelix/OpenIM".
    virtual base::FilePath GetDataFolder() = 0;
};

}  // namespace openim
