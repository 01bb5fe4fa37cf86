#pragma once

#include "prg/prg_string.h"

namespace openim {

// A user: the application key of the client and the account (the colleague's directory id).
struct IMUserID {
    IMUserID() = default;
    IMUserID(prg::PrgStringT<wchar_t> appKey, prg::PrgStringT<wchar_t> account)
        : appKey(std::move(appKey)), account(std::move(account)) {}

    prg::PrgStringT<wchar_t> appKey;
    prg::PrgStringT<wchar_t> account;

    bool operator==(const IMUserID& o) const { return account == o.account && appKey == o.appKey; }
    bool operator!=(const IMUserID& o) const { return !(*this == o); }
    bool operator<(const IMUserID& o) const {
        return account != o.account ? account < o.account : appKey < o.appKey;
    }
};

}  // namespace openim
