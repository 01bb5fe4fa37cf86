#pragma once

#include <cstdint>

#include "prg/prg_string.h"

namespace openim {

// Outcome of an SDK operation: 0 is success.
struct ResultCode {
    enum : std::int32_t {
        kOk = 0,
        kFailed = 1,
        kNotLoggedIn = 2,
        kTimeout = 3,
        kInvalidArgument = 4,
        kNetworkError = 5,
        kServerError = 6,
        kNotFound = 7,
        kAuthFailed = 8,  // the server refused the account or its secret
        kInsecure = 9,    // the server's connection could not be protected (TLS, certificate)
        // A message written to the server that has not confirmed it yet: its send callback
        // runs once more with the outcome (kOk when the server has it).
        kPending = 10,
    };

    ResultCode() = default;
    explicit ResultCode(std::int32_t code, prg::PrgStringT<wchar_t> text = {})
        : code(code), text(std::move(text)) {}

    std::int32_t code = kOk;
    prg::PrgStringT<wchar_t> text;  // what went wrong, for logs

    bool ok() const { return code == kOk; }
    bool pending() const { return code == kPending; }
};

}  // namespace openim
