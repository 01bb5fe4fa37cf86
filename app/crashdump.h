#pragma once

// Crash reports. On Windows a minidump of one of four detail levels; elsewhere a text
// report with the signal and a backtrace. Both land in the "Dump" folder.
namespace crashdump {

// level 0..3, from a small dump to the full memory. fileHandle is an open, writable
// file (a HANDLE on Windows, a file descriptor cast to a pointer elsewhere);
// exceptionInfo is the EXCEPTION_POINTERS of the fault on Windows, the siginfo_t
// elsewhere (may be null). Returns true when the dump was written.
bool writeCrashDump(int level, void* fileHandle, void* exceptionInfo);

// Installs a handler for fatal errors that opens a new file in dumpFolder (created on
// demand) and writes a dump of the given level into it. The folder is copied.
bool installCrashHandler(const char* dumpFolder, int level);

// Lets the calling thread's own stack overflow still leave a report: on Windows it keeps
// stack in reserve for the handler, elsewhere it gives the thread an alternate signal
// stack (the main thread gets one from installCrashHandler). Every thread that runs
// deep work calls it once, first thing.
void coverThisThread();

}  // namespace crashdump
