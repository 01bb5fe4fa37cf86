#pragma once

#include <cstdint>

#include "base/callback.h"
#include "prg/iprg_unknown.h"
#include "prg/prg_string.h"

namespace openim {

// Copies of the account's messages exchanged on its other devices. Registered after each
// login: mode 1 turns the copies on, 0 off; the callback gets the session's full address
// once the server agreed (or an empty text when it refused).
class ISyncService : public prg::IPrgUnknown {
public:
    virtual void RegisterSync(std::int32_t mode,
                              const base::Callback<void(prg::PrgStringT<wchar_t>)>& done) = 0;
};

}  // namespace openim
