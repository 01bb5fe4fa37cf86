#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "prg/iprg_com.h"

namespace prg {

// The root: a table of components by module GUID text. `onInit` (if set) runs at the
// first successful Init and fills the table with the SDK's own components.
class PrgCom : public IPrgCOM {
public:
    using InitHook = std::function<void(PrgCom&, const base::FilePath& programPath)>;

    explicit PrgCom(InitHook onInit = nullptr);
    ~PrgCom() override;

    bool IsInitialized() const override;
    PrgResult Init(const base::FilePath& programPath) override;
    void Uninit() override;
    PrgResult GetComponent(const char* moduleGuid, IPrgComponent** out) override;
    PrgResult RegisterComponent(const char* moduleGuid, IPrgComponent* component) override;

    const base::FilePath& programPath() const { return programPath_; }

private:
    void clear();

    InitHook onInit_;
    mutable std::recursive_mutex lock_;
    bool initialized_ = false;
    base::FilePath programPath_;
    std::map<std::string, IPrgComponent*> components_;
};

}  // namespace prg
