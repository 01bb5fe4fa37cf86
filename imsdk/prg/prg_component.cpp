#include "prg/prg_component.h"

namespace prg {

PrgComponent::~PrgComponent() {
    for (auto& entry : interfaces_) entry.second->Release();
}

PrgResult PrgComponent::QueryInterface(const char* interfaceGuid, IPrgUnknown** out) {
    if (!out) return PRG_E_INVALIDARG;
    *out = nullptr;
    if (!interfaceGuid) return PRG_E_INVALIDARG;
    std::lock_guard<std::mutex> guard(lock_);
    auto it = interfaces_.find(interfaceGuid);
    if (it == interfaces_.end()) return PRG_E_NOINTERFACE;
    it->second->AddRef();
    *out = it->second;
    return PRG_OK;
}

void PrgComponent::SetInterface(const std::string& interfaceGuid, IPrgUnknown* object) {
    if (object) object->AddRef();
    IPrgUnknown* old = nullptr;
    {
        std::lock_guard<std::mutex> guard(lock_);
        auto it = interfaces_.find(interfaceGuid);
        if (it != interfaces_.end()) {
            old = it->second;
            interfaces_.erase(it);
        }
        if (object) interfaces_[interfaceGuid] = object;
    }
    if (old) old->Release();
}

}  // namespace prg
