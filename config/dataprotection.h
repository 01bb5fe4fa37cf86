#pragma once

#include <string>

// The Windows data protection API over plain byte strings: sealed for the signed-in
// Windows user, opened only by them.
namespace dpapi {
bool protect(const std::string& plain, std::string* sealed);
bool unprotect(const std::string& sealed, std::string* plain);
}  // namespace dpapi
