#pragma once

namespace base {

// Work that every long-lived thread of the program runs first, on that thread. The
// program sets it once at start (the crash reporter gives each thread a signal stack of
// its own there); the SDK and the IM core run it on the threads they start.
class ThreadHooks {
public:
    using Hook = void (*)();
    static void setStartHook(Hook hook);
    // Runs the hook on the calling thread; nothing when none is set.
    static void runStartHook();
};

}  // namespace base
