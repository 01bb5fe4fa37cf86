#include <mutex>

#include "base/at_exit.h"
#include "prg/iprg_com.h"
#include "sdk/sdk_instance.h"

namespace {
std::mutex g_lock;
SdkInstance* g_instance = nullptr;
}  // namespace

prg::IPrgCOM* GetPrgCOM() {
    std::lock_guard<std::mutex> guard(g_lock);
    if (g_instance) return g_instance->root();
    auto* instance = new SdkInstance;
    // The SDK goes down with the program's AtExitManager, before static destruction.
    const bool registered = base::AtExitManager::RegisterTask([] {
        SdkInstance* doomed = nullptr;
        {
            std::lock_guard<std::mutex> inner(g_lock);
            doomed = std::exchange(g_instance, nullptr);
        }
        delete doomed;
    });
    if (!registered) {
        delete instance;
        return nullptr;
    }
    g_instance = instance;
    return instance->root();
}
