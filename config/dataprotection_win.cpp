// Windows data protection for remembered passwords.
#include <windows.h>

#include <wincrypt.h>

#include "dataprotection.h"

namespace dpapi {

namespace {
bool run(bool seal, const std::string& in, std::string* out) {
    DATA_BLOB input;
    input.pbData = reinterpret_cast<BYTE*>(const_cast<char*>(in.data()));
    input.cbData = DWORD(in.size());
    DATA_BLOB output{0, nullptr};
    const BOOL ok = seal ? CryptProtectData(&input, L"Quelix", nullptr, nullptr, nullptr,
                                            CRYPTPROTECT_UI_FORBIDDEN, &output)
                         : CryptUnprotectData(&input, nullptr, nullptr, nullptr, nullptr,
                                              CRYPTPROTECT_UI_FORBIDDEN, &output);
    if (!ok) return false;
    out->assign(reinterpret_cast<const char*>(output.pbData), output.cbData);
    LocalFree(output.pbData);
    return true;
}
}  // namespace

bool protect(const std::string& plain, std::string* sealed) { return run(true, plain, sealed); }

bool unprotect(const std::string& sealed, std::string* plain) { return run(false, sealed, plain); }

}  // namespace dpapi
