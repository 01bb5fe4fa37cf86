#pragma once

#include <cstdint>

#include "openim/im_user_id.h"
#include "openim/result_code.h"
#include "prg/prg_string.h"

namespace openim {

// What the login service needs to sign in. The account and its IM secret come from the
// company back end's login reply, with the IM server's address.
struct LoginParam {
    IMUserID user;
    prg::PrgStringT<wchar_t> secret;
    prg::PrgStringT<wchar_t> host;  // server to connect to; empty: the domain itself
    std::uint16_t port = 5222;
    // A cluster's nodes, "host[:port],host[:port]" (port defaulting to `port`), tried in
    // order: a node that cannot be reached or drops the session costs a reconnect to the
    // next. Empty: host and port alone.
    prg::PrgStringT<wchar_t> endpoints;
    prg::PrgStringT<wchar_t> domain;  // accounts are account@domain
    // Where received pictures and files go; empty: "<data folder>/<account>/Receive".
    prg::PrgStringT<wchar_t> receiveFolder;
    // The company back end's own account on the IM server: only its notices about tribe
    // membership are believed. Empty: tribe news comes from the rooms alone.
    prg::PrgStringT<wchar_t> authority;
    // How long one sign-in attempt may take before it is given up (and, for a first
    // sign-in, tried again).
    std::int32_t signInTimeoutMs = 20000;
    // The company's own certificate authority (PEM), trusted beside the system's; empty:
    // the system's alone.
    prg::PrgStringT<wchar_t> caFile;
    // TLS is always required for a server that is not on this machine; this requires it on
    // loopback too.
    bool requireTls = false;
};

// The session records reported by the login service's callbacks.
struct LoginStep {
    enum Step : std::int32_t { kConnecting = 1, kAuthenticating = 2, kLoadingStore = 3 };
    std::int32_t step = kConnecting;
};

struct LoginOkParam {
    IMUserID user;
};

struct LoginFailParam {
    ResultCode result;
};

struct ReLoginOkParam {
    IMUserID user;
};

struct ReLoginFailParam {
    ResultCode result;
};

// Another desktop signed in with the same account; this session is over.
struct KickedParam {
    prg::PrgStringT<wchar_t> reason;
};

struct LogoutedParam {
    IMUserID user;
};

// The connection dropped without a logout; the client decides when to relogin.
struct NetDisConnectParam {
    ResultCode result;
};

}  // namespace openim
