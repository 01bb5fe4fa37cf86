#pragma once

#include "base/file_path.h"

namespace base {

// Keys for PathService::Get.
enum PathKey {
    DIR_CURRENT = 1,  // the working folder
    DIR_EXE = 2,      // the folder of the running program
    DIR_MODULE = 3,   // same as DIR_EXE: the SDK is linked into the program
    FILE_EXE = 4,     // the running program's file
    FILE_MODULE = 5,  // same as FILE_EXE
};

}  // namespace base

// Well-known paths of the running process.
class PathService {
public:
    // Fills `result` and returns true when the key is known and the path can be found.
    static bool Get(int key, base::FilePath* result);
};
