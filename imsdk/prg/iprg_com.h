#pragma once

#include "base/file_path.h"
#include "prg/iprg_component.h"
#include "prg/prg_result.h"

namespace prg {

// The root of the SDK. Components are found by the exact module GUID text (braces as
// written, case included): "{ABC}" and "{{ABC}}" are different modules.
class IPrgCOM {
public:
    virtual bool IsInitialized() const = 0;
    // Starts the SDK for the program at `programPath`; PRG_E_FAIL when the path is empty.
    virtual PrgResult Init(const base::FilePath& programPath) = 0;
    virtual void Uninit() = 0;
    // On success *out holds a new reference the caller must release.
    virtual PrgResult GetComponent(const char* moduleGuid, IPrgComponent** out) = 0;
    // Puts `component` under `moduleGuid`, replacing what was there (tests register their
    // own services this way); nullptr removes the entry.
    virtual PrgResult RegisterComponent(const char* moduleGuid, IPrgComponent* component) = 0;

    // Fetches interface `interfaceGuid` of module `moduleGuid` as T in one step; nullptr
    // when either is missing. The caller releases the result.
    template <class T>
    T* GetService(const char* moduleGuid, const char* interfaceGuid) {
        IPrgComponent* component = nullptr;
        if (GetComponent(moduleGuid, &component) != PRG_OK || !component) return nullptr;
        IPrgUnknown* unknown = nullptr;
        component->QueryInterface(interfaceGuid, &unknown);
        component->Release();
        return static_cast<T*>(unknown);
    }

protected:
    virtual ~IPrgCOM() = default;
};

}  // namespace prg

// The process-wide root; nullptr when no base::AtExitManager lives (the root is torn down
// by the innermost one).
prg::IPrgCOM* GetPrgCOM();
