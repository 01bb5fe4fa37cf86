#pragma once

#include "prg/iprg_unknown.h"
#include "prg/prg_result.h"

namespace prg {

// A module of the SDK: hands out its interfaces by interface GUID text.
class IPrgComponent : public IPrgUnknown {
public:
    // On success *out holds a new reference the caller must release.
    virtual PrgResult QueryInterface(const char* interfaceGuid, IPrgUnknown** out) = 0;
};

}  // namespace prg
