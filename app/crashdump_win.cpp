// Windows crash dumps through MiniDumpWriteDump, at four levels of detail.
#include <windows.h>

#include <dbghelp.h>

#include <cwchar>

#include "crashdump.h"

namespace crashdump {

namespace {

// The module whose data segments the level-2 dump keeps besides ntdll's; replaced by the
// program's own path when the handler is installed.
wchar_t g_moduleName[MAX_PATH] = L".\\AppDump";
wchar_t g_dumpFolder[MAX_PATH] = L"";
int g_level = 1;

// The file name of a path without folder or extension.
void baseName(const wchar_t* path, wchar_t* out, size_t outSize) {
    const wchar_t* start = path;
    for (const wchar_t* p = path; *p; ++p)
        if (*p == L'\\' || *p == L'/') start = p + 1;
    size_t n = 0;
    while (start[n] && start[n] != L'.' && n + 1 < outSize) {
        out[n] = start[n];
        ++n;
    }
    out[n] = L'\0';
}

bool sameModule(const wchar_t* path, const wchar_t* other) {
    wchar_t a[MAX_PATH];
    wchar_t b[MAX_PATH];
    baseName(path, a, MAX_PATH);
    baseName(other, b, MAX_PATH);
    return _wcsicmp(a, b) == 0;
}

BOOL CALLBACK normalCallback(PVOID, const PMINIDUMP_CALLBACK_INPUT input,
                             PMINIDUMP_CALLBACK_OUTPUT) {
    if (!input) return FALSE;
    switch (input->CallbackType) {
        case ModuleCallback:
        case ThreadCallback:
        case ThreadExCallback:
            return TRUE;
        default:
            return FALSE;
    }
}

BOOL CALLBACK referencedCallback(PVOID, const PMINIDUMP_CALLBACK_INPUT input,
                                 PMINIDUMP_CALLBACK_OUTPUT output) {
    if (!input || !output) return FALSE;
    if (input->CallbackType == ModuleCallback &&
        !(output->ModuleWriteFlags & ModuleReferencedByMemory))
        output->ModuleWriteFlags &= ~ModuleWriteModule;
    return input->CallbackType <= IncludeModuleCallback ? TRUE : FALSE;
}

BOOL CALLBACK dataSegmentsCallback(PVOID, const PMINIDUMP_CALLBACK_INPUT input,
                                   PMINIDUMP_CALLBACK_OUTPUT output) {
    if (!input || !output) return FALSE;
    if (input->CallbackType == ModuleCallback && (output->ModuleWriteFlags & ModuleWriteDataSeg)) {
        const wchar_t* path = input->Module.FullPath;
        if (!path || (!sameModule(path, L"ntdll") && !sameModule(path, g_moduleName)))
            output->ModuleWriteFlags &= ~ModuleWriteDataSeg;
    }
    return input->CallbackType <= IncludeModuleCallback ? TRUE : FALSE;
}

bool writeDump(HANDLE file, EXCEPTION_POINTERS* info, MINIDUMP_TYPE type,
               MINIDUMP_CALLBACK_ROUTINE routine) {
    MINIDUMP_EXCEPTION_INFORMATION exception;
    exception.ThreadId = GetCurrentThreadId();
    exception.ExceptionPointers = info;
    exception.ClientPointers = FALSE;
    MINIDUMP_CALLBACK_INFORMATION callback;
    callback.CallbackRoutine = routine;
    callback.CallbackParam = nullptr;
    return MiniDumpWriteDump(GetCurrentProcess(), GetCurrentProcessId(), file, type,
                             info ? &exception : nullptr, nullptr,
                             routine ? &callback : nullptr) != FALSE;
}

bool level0(HANDLE file, EXCEPTION_POINTERS* info) {
    return writeDump(file, info, MiniDumpNormal, normalCallback);
}

bool level1(HANDLE file, EXCEPTION_POINTERS* info) {
    return writeDump(file, info,
                     MINIDUMP_TYPE(MiniDumpScanMemory | MiniDumpWithIndirectlyReferencedMemory),
                     referencedCallback);
}

bool level2(HANDLE file, EXCEPTION_POINTERS* info) {
    return writeDump(
        file, info,
        MINIDUMP_TYPE(MiniDumpWithDataSegs | MiniDumpWithHandleData | MiniDumpWithUnloadedModules |
                      MiniDumpWithPrivateReadWriteMemory | MiniDumpWithFullMemoryInfo |
                      MiniDumpWithThreadInfo),
        dataSegmentsCallback);
}

bool level3(HANDLE file, EXCEPTION_POINTERS* info) {
    return writeDump(file, info,
                     MINIDUMP_TYPE(MiniDumpWithFullMemory | MiniDumpWithHandleData |
                                   MiniDumpWithUnloadedModules | MiniDumpWithFullMemoryInfo |
                                   MiniDumpWithThreadInfo),
                     nullptr);
}

using Writer = bool (*)(HANDLE, EXCEPTION_POINTERS*);
const Writer kWriters[4] = {level0, level1, level2, level3};

LONG WINAPI unhandledException(EXCEPTION_POINTERS* info) {
    SYSTEMTIME now;
    GetLocalTime(&now);
    wchar_t path[MAX_PATH * 2];
    _snwprintf(path, MAX_PATH * 2, L"%ls\\%04u%02u%02u_%02u%02u%02u_%lu.dmp", g_dumpFolder,
               now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond,
               GetCurrentProcessId());
    path[MAX_PATH * 2 - 1] = L'\0';
    CreateDirectoryW(g_dumpFolder, nullptr);
    HANDLE file =
        CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file != INVALID_HANDLE_VALUE) {
        writeCrashDump(g_level, file, info);
        CloseHandle(file);
    }
    return EXCEPTION_EXECUTE_HANDLER;
}

}  // namespace

bool writeCrashDump(int level, void* fileHandle, void* exceptionInfo) {
    if (level < 0 || level > 3 || !fileHandle) return false;
    return kWriters[level](static_cast<HANDLE>(fileHandle),
                           static_cast<EXCEPTION_POINTERS*>(exceptionInfo));
}

bool installCrashHandler(const char* dumpFolder, int level) {
    if (!dumpFolder || level < 0 || level > 3) return false;
    if (MultiByteToWideChar(CP_UTF8, 0, dumpFolder, -1, g_dumpFolder, MAX_PATH) == 0) return false;
    GetModuleFileNameW(nullptr, g_moduleName, MAX_PATH);
    g_level = level;
    SetUnhandledExceptionFilter(unhandledException);
    return true;
}

void coverThisThread() {
    // Without reserve, a thread whose stack overflows has none left for the filter.
    ULONG reserve = 64 * 1024;
    SetThreadStackGuarantee(&reserve);
}

}  // namespace crashdump
