#include "base/at_exit.h"

#include <atomic>

namespace base {

namespace {
std::atomic<AtExitManager*> g_top{nullptr};
}

AtExitManager::AtExitManager() : next_(g_top.exchange(this)) {}

AtExitManager::~AtExitManager() {
    runAll();
    g_top.store(next_);
}

bool AtExitManager::RegisterCallback(CallbackWithParam func, void* param) {
    if (!func) return false;
    return RegisterTask([func, param] { func(param); });
}

bool AtExitManager::RegisterTask(Callback task) {
    AtExitManager* top = g_top.load();
    if (!top || !task) return false;
    std::lock_guard<std::mutex> guard(top->lock_);
    top->stack_.push_back(std::move(task));
    return true;
}

void AtExitManager::ProcessCallbacksNow() {
    if (AtExitManager* top = g_top.load()) top->runAll();
}

void AtExitManager::runAll() {
    // A callback may register another one; keep popping until the stack is empty.
    for (;;) {
        Callback task;
        {
            std::lock_guard<std::mutex> guard(lock_);
            if (stack_.empty()) return;
            task = std::move(stack_.back());
            stack_.pop_back();
        }
        task();
    }
}

}  // namespace base
