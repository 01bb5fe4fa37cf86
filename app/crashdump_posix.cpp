// Crash reports on systems other than Windows: a text file with the signal, the program
// version and a backtrace, written from the signal handler with async-signal-safe calls
// only (plus backtrace(), which is loaded beforehand so it does not allocate then).
#include <execinfo.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#ifdef __linux__
#include <sys/prctl.h>
#endif

#include "crashdump.h"

namespace crashdump {

namespace {

char g_dumpFolder[1024];
int g_level = 1;
const int kSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP};

void put(int fd, const char* text) {
    size_t left = std::strlen(text);
    while (left > 0) {
        const ssize_t n = ::write(fd, text, left);
        if (n <= 0) return;
        text += n;
        left -= size_t(n);
    }
}

// Decimal text of a number into buf (at least 21 bytes), without the C library.
const char* decimal(unsigned long long value, char* buf) {
    char* p = buf + 20;
    *p = '\0';
    do {
        *--p = char('0' + value % 10);
        value /= 10;
    } while (value);
    return p;
}

// strsignal() may allocate; the handler names the signals it catches itself.
const char* signalName(int sig) {
    switch (sig) {
        case SIGSEGV:
            return "SIGSEGV";
        case SIGBUS:
            return "SIGBUS";
        case SIGFPE:
            return "SIGFPE";
        case SIGILL:
            return "SIGILL";
        case SIGABRT:
            return "SIGABRT";
        case SIGTRAP:
            return "SIGTRAP";
        default:
            return "signal";
    }
}

void copyMaps(int fd) {
    const int maps = ::open("/proc/self/maps", O_RDONLY);
    if (maps < 0) return;
    char buf[4096];
    ssize_t n;
    while ((n = ::read(maps, buf, sizeof buf)) > 0) {
        if (::write(fd, buf, size_t(n)) != n) break;
    }
    ::close(maps);
}

// A thread's own signal stack: given back, with the setting undone, when the thread ends.
struct AltStack {
    static constexpr size_t kSize = 64 * 1024;
    void* memory = nullptr;
    ~AltStack() {
        if (!memory) return;
        stack_t off{};
        off.ss_flags = SS_DISABLE;
        ::sigaltstack(&off, nullptr);
        ::munmap(memory, kSize);
    }
};

void onFatalSignal(int sig, siginfo_t* info, void*) {
    ::mkdir(g_dumpFolder, 0755);
    char number[24];
    char path[1200];
    path[0] = '\0';
    std::strncat(path, g_dumpFolder, sizeof path - 1);
    std::strncat(path, "/crash_", sizeof path - std::strlen(path) - 1);
    std::strncat(path, decimal((unsigned long long)::time(nullptr), number),
                 sizeof path - std::strlen(path) - 1);
    std::strncat(path, "_", sizeof path - std::strlen(path) - 1);
    std::strncat(path, decimal((unsigned long long)::getpid(), number),
                 sizeof path - std::strlen(path) - 1);
    std::strncat(path, ".txt", sizeof path - std::strlen(path) - 1);
    const int fd = ::open(path, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd >= 0) {
        writeCrashDump(g_level, reinterpret_cast<void*>(std::intptr_t(fd)), info);
        ::close(fd);
    }
    // Default action now, so the system still sees the crash (core file, exit status).
    ::signal(sig, SIG_DFL);
    ::raise(sig);
}

}  // namespace

bool writeCrashDump(int level, void* fileHandle, void* exceptionInfo) {
    if (level < 0 || level > 3) return false;
    const int fd = int(reinterpret_cast<std::intptr_t>(fileHandle));
    if (fd < 0) return false;
    const siginfo_t* info = static_cast<const siginfo_t*>(exceptionInfo);
    char number[24];
    put(fd, "Quelix crash report\nsignal: ");
    put(fd, info ? decimal((unsigned long long)info->si_signo, number) : "none");
    if (info) {
        put(fd, " (");
        put(fd, signalName(info->si_signo));
        put(fd, ")\naddress: ");
        put(fd, decimal((unsigned long long)(std::uintptr_t)info->si_addr, number));
    }
    put(fd, "\npid: ");
    put(fd, decimal((unsigned long long)::getpid(), number));
#ifdef __linux__
    // Which thread died: its id and the name Qt gave it (prctl and gettid are plain
    // system calls, safe here).
    char name[17] = {};
    ::prctl(PR_GET_NAME, name, 0, 0, 0);
    put(fd, "\nthread: ");
    put(fd, name[0] ? name : "?");
    put(fd, " (tid ");
    put(fd, decimal((unsigned long long)::syscall(SYS_gettid), number));
    put(fd, ")");
#endif
    put(fd, "\nbacktrace:\n");
    void* frames[128];
    const int count = ::backtrace(frames, level == 0 ? 32 : 128);
    ::backtrace_symbols_fd(frames, count, fd);
    // The memory map turns the addresses of a position-independent program into places.
    if (level >= 1) {
        put(fd, "memory map:\n");
        copyMaps(fd);
    }
    return true;
}

bool installCrashHandler(const char* dumpFolder, int level) {
    if (!dumpFolder || level < 0 || level > 3 || std::strlen(dumpFolder) >= sizeof g_dumpFolder)
        return false;
    std::strcpy(g_dumpFolder, dumpFolder);
    g_level = level;

    // backtrace() loads its unwinder on first use; do that now, not inside the handler.
    void* warmUp[1];
    ::backtrace(warmUp, 1);

    // A stack overflow leaves no stack for the handler: give it one of its own.
    coverThisThread();

    struct sigaction sa {};
    sa.sa_sigaction = onFatalSignal;
    sa.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_RESETHAND;
    sigemptyset(&sa.sa_mask);
    for (int sig : kSignals) ::sigaction(sig, &sa, nullptr);
    return true;
}

void coverThisThread() {
    static thread_local AltStack altStack;
    if (altStack.memory) return;
    void* memory = ::mmap(nullptr, AltStack::kSize, PROT_READ | PROT_WRITE,
                          MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return;
    stack_t ss{};
    ss.ss_sp = memory;
    ss.ss_size = AltStack::kSize;
    if (::sigaltstack(&ss, nullptr) != 0) {
        ::munmap(memory, AltStack::kSize);
        return;
    }
    altStack.memory = memory;
}

}  // namespace crashdump
