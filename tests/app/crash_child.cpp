// Installs the crash handler on the folder given and then crashes, for the crash test:
// with "thread" as second argument, by a stack overflow on a named second thread.
#include <pthread.h>

#include <cstdint>
#include <cstring>
#include <thread>

#include "crashdump.h"

namespace {
// Not inlined, so the backtrace shows a frame of this program's own. The fault is the
// point, so the undefined-behaviour checker (scripts/test --sanitize) lets it happen.
__attribute__((noinline, no_sanitize("undefined"))) void crashHere() {
    // Through a volatile address so the compiler cannot turn the fault into a trap.
    volatile std::uintptr_t address = 0;
    *reinterpret_cast<volatile int*>(address) = 42;
}

// Recursion deeper than any stack, which the optimiser cannot turn into a loop.
volatile long g_limit = 1L << 40;
__attribute__((noinline)) int recurse(long depth) {
    volatile char frame[512];
    frame[0] = char(depth);
    if (depth >= g_limit) return frame[0];
    return recurse(depth + 1) + frame[0];
}
}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || !crashdump::installCrashHandler(argv[1], 1)) return 2;
    if (argc > 2 && std::strcmp(argv[2], "thread") == 0) {
        std::thread worker([] {
            pthread_setname_np(pthread_self(), "deep-worker");
            crashdump::coverThisThread();
            recurse(0);
        });
        worker.join();
        return 0;
    }
    crashHere();
    return 0;
}
