// Installs the crash handler on the folder given and then crashes, for the crash test.
#include <cstdint>

#include "crashdump.h"

namespace {
// Not inlined, so the backtrace shows a frame of this program's own.
__attribute__((noinline)) void crashHere() {
    // Through a volatile address so the compiler cannot turn the fault into a trap.
    volatile std::uintptr_t address = 0;
    *reinterpret_cast<volatile int*>(address) = 42;
}
}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || !crashdump::installCrashHandler(argv[1], 1)) return 2;
    crashHere();
    return 0;
}
