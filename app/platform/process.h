#pragma once

#include <cstdint>
#include <string>

// Process and file helpers around an update. Paths are UTF-8; plain types only, so the
// Windows side needs no toolkit headers.
namespace platform {

// A file's version resource, packed (8 bits a part, most significant first). Zero for a
// file without one. Elsewhere than Windows a program carries its version in a text file
// beside it ("<program>.version", "1.2.3.4"), written by the build and the package.
struct FileVersion {
    std::uint32_t file = 0;
    std::uint32_t product = 0;
};
FileVersion fileVersion(const std::string& path);

// Opens a file or address with the desktop's handler.
void openWithShell(const std::string& file, const std::string& parameters);

// Ends every other process whose program file is exactly this absolute path. Returns how
// many were ended.
int terminateProcessesOf(const std::string& path);

}  // namespace platform
