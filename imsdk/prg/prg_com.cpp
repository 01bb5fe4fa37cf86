#include "prg/prg_com.h"

namespace prg {

PrgCom::PrgCom(InitHook onInit) : onInit_(std::move(onInit)) {}

PrgCom::~PrgCom() { clear(); }

bool PrgCom::IsInitialized() const {
    std::lock_guard<std::recursive_mutex> guard(lock_);
    return initialized_;
}

PrgResult PrgCom::Init(const base::FilePath& programPath) {
    if (programPath.empty()) return PRG_E_FAIL;
    std::lock_guard<std::recursive_mutex> guard(lock_);
    if (initialized_) return PRG_OK;
    programPath_ = programPath;
    initialized_ = true;
    if (onInit_) onInit_(*this, programPath);
    return PRG_OK;
}

void PrgCom::Uninit() {
    std::lock_guard<std::recursive_mutex> guard(lock_);
    clear();
    initialized_ = false;
}

void PrgCom::clear() {
    std::map<std::string, IPrgComponent*> old;
    {
        std::lock_guard<std::recursive_mutex> guard(lock_);
        old.swap(components_);
    }
    for (auto& entry : old) entry.second->Release();
}

PrgResult PrgCom::GetComponent(const char* moduleGuid, IPrgComponent** out) {
    if (!out) return PRG_E_INVALIDARG;
    *out = nullptr;
    if (!moduleGuid) return PRG_E_INVALIDARG;
    std::lock_guard<std::recursive_mutex> guard(lock_);
    auto it = components_.find(moduleGuid);
    if (it == components_.end()) return PRG_E_NOINTERFACE;
    it->second->AddRef();
    *out = it->second;
    return PRG_OK;
}

PrgResult PrgCom::RegisterComponent(const char* moduleGuid, IPrgComponent* component) {
    if (!moduleGuid) return PRG_E_INVALIDARG;
    if (component) component->AddRef();
    IPrgComponent* old = nullptr;
    {
        std::lock_guard<std::recursive_mutex> guard(lock_);
        auto it = components_.find(moduleGuid);
        if (it != components_.end()) {
            old = it->second;
            components_.erase(it);
        }
        if (component) components_[moduleGuid] = component;
    }
    if (old) old->Release();
    return PRG_OK;
}

}  // namespace prg
