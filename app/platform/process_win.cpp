// Windows: version resources, the shell's "open" and ending processes by program path.
#include <windows.h>
// These need windows.h first.
#include <psapi.h>
#include <shellapi.h>

#include <string>
#include <vector>

#include "platform/process.h"

namespace platform {

namespace {

std::wstring wide(const std::string& utf8) {
    if (utf8.empty()) return std::wstring();
    const int n = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), int(utf8.size()), nullptr, 0);
    std::wstring out(std::size_t(n), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), int(utf8.size()), &out[0], n);
    return out;
}

std::uint32_t pack(DWORD ms, DWORD ls) {
    return ((HIWORD(ms) & 0xffu) << 24) | ((LOWORD(ms) & 0xffu) << 16) |
           ((HIWORD(ls) & 0xffu) << 8) | (LOWORD(ls) & 0xffu);
}

}  // namespace

FileVersion fileVersion(const std::string& path) {
    FileVersion v;
    const std::wstring file = wide(path);
    DWORD ignored = 0;
    const DWORD size = GetFileVersionInfoSizeW(file.c_str(), &ignored);
    if (size == 0) return v;
    std::vector<unsigned char> buffer(size > 2048 ? size : 2048);
    if (!GetFileVersionInfoW(file.c_str(), 0, DWORD(buffer.size()), buffer.data())) return v;
    VS_FIXEDFILEINFO* info = nullptr;
    UINT length = 0;
    if (!VerQueryValueW(buffer.data(), L"\\", reinterpret_cast<void**>(&info), &length) || !info ||
        length < sizeof(VS_FIXEDFILEINFO))
        return v;
    v.file = pack(info->dwFileVersionMS, info->dwFileVersionLS);
    v.product = pack(info->dwProductVersionMS, info->dwProductVersionLS);
    return v;
}

void openWithShell(const std::string& file, const std::string& parameters) {
    const std::wstring f = wide(file), p = wide(parameters);
    ShellExecuteW(nullptr, L"open", f.c_str(), p.empty() ? nullptr : p.c_str(), nullptr,
                  SW_SHOWNORMAL);
}

int terminateProcessesOf(const std::string& path) {
    const std::wstring target = wide(path);
    std::vector<DWORD> ids(1024);
    DWORD bytes = 0;
    for (;;) {
        if (!K32EnumProcesses(ids.data(), DWORD(ids.size() * sizeof(DWORD)), &bytes)) return 0;
        if (bytes < ids.size() * sizeof(DWORD)) break;
        ids.resize(ids.size() * 2);
    }
    const DWORD self = GetCurrentProcessId();
    int ended = 0;
    for (std::size_t i = 0; i < bytes / sizeof(DWORD); ++i) {
        if (ids[i] == 0 || ids[i] == self) continue;
        HANDLE process = OpenProcess(
            PROCESS_QUERY_INFORMATION | PROCESS_VM_READ | PROCESS_TERMINATE, FALSE, ids[i]);
        if (!process) continue;
        wchar_t name[MAX_PATH * 2] = {};
        const DWORD n = K32GetModuleFileNameExW(process, nullptr, name, MAX_PATH * 2);
        if (n > 0 && _wcsicmp(name, target.c_str()) == 0 && TerminateProcess(process, 0)) ++ended;
        CloseHandle(process);
    }
    return ended;
}

}  // namespace platform
