#pragma once

#include <functional>
#include <mutex>
#include <vector>

namespace base {

// Runs registered exit callbacks, newest first, when it is destroyed. The program creates
// one on the stack of its entry function so that the SDK's process-wide objects are torn
// down at a known point instead of during static destruction. A second manager created
// while one lives shadows it until it goes away (tests use this).
class AtExitManager {
public:
    using Callback = std::function<void()>;
    using CallbackWithParam = void (*)(void*);

    AtExitManager();
    ~AtExitManager();
    AtExitManager(const AtExitManager&) = delete;
    AtExitManager& operator=(const AtExitManager&) = delete;

    // Registers with the innermost live manager; returns false when none lives.
    static bool RegisterCallback(CallbackWithParam func, void* param);
    static bool RegisterTask(Callback task);

    // Runs and clears the callbacks of the innermost manager now.
    static void ProcessCallbacksNow();

private:
    void runAll();

    std::mutex lock_;
    std::vector<Callback> stack_;
    AtExitManager* next_;
};

}  // namespace base
