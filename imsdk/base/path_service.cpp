#include "base/path_service.h"

#include <system_error>

#ifdef _WIN32
#include <windows.h>
#endif

namespace {

base::FilePath programFile() {
#ifdef _WIN32
    wchar_t buf[32768];
    DWORD n = GetModuleFileNameW(nullptr, buf, sizeof(buf) / sizeof(buf[0]));
    return n ? base::FilePath(std::wstring(buf, n)) : base::FilePath();
#else
    std::error_code ec;
    auto p = std::filesystem::read_symlink("/proc/self/exe", ec);
    return ec ? base::FilePath() : base::FilePath(p.native());
#endif
}

}  // namespace

bool PathService::Get(int key, base::FilePath* result) {
    if (!result) return false;
    base::FilePath path;
    switch (key) {
        case base::DIR_CURRENT: {
            std::error_code ec;
            auto cwd = std::filesystem::current_path(ec);
            if (!ec) path = base::FilePath(cwd.native());
            break;
        }
        case base::DIR_EXE:
        case base::DIR_MODULE:
            path = programFile();
            if (!path.empty()) path = path.DirName();
            break;
        case base::FILE_EXE:
        case base::FILE_MODULE:
            path = programFile();
            break;
        default:
            return false;
    }
    if (path.empty()) return false;
    *result = path;
    return true;
}
