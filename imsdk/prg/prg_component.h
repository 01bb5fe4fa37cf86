#pragma once

#include <map>
#include <mutex>
#include <string>

#include "base/ref_ptr_counted.h"
#include "prg/iprg_component.h"

namespace prg {

// A component that hands out the interfaces put into it, by exact interface GUID text.
// Each stored interface is held with one reference until it is replaced or the component
// goes away.
class PrgComponent : public base::RefPtrCounted<IPrgComponent> {
public:
    PrgComponent() = default;
    PrgResult QueryInterface(const char* interfaceGuid, IPrgUnknown** out) override;
    // Puts `object` under `interfaceGuid`; nullptr removes the entry.
    void SetInterface(const std::string& interfaceGuid, IPrgUnknown* object);

protected:
    ~PrgComponent() override;

private:
    std::mutex lock_;
    std::map<std::string, IPrgUnknown*> interfaces_;
};

}  // namespace prg
