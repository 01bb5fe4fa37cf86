#include "base/thread_hooks.h"

#include <atomic>

namespace base {

namespace {
std::atomic<ThreadHooks::Hook> g_startHook{nullptr};
}

void ThreadHooks::setStartHook(Hook hook) { g_startHook.store(hook); }

void ThreadHooks::runStartHook() {
    if (Hook hook = g_startHook.load()) hook();
}

}  // namespace base
