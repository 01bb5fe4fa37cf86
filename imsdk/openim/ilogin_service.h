#pragma once

#include "base/callback.h"
#include "openim/login_params.h"
#include "prg/iprg_unknown.h"

namespace openim {

// Sign-in and session events. Callbacks run on the SDK's thread.
class ILoginService : public prg::IPrgUnknown {
public:
    virtual void RegisterLoginStep(const base::Callback<void(LoginStep)>& cb) = 0;
    virtual void RegisterLoginOk(const base::Callback<void(LoginOkParam)>& cb) = 0;
    virtual void RegisterKicked(const base::Callback<void(KickedParam)>& cb) = 0;
    virtual void RegisterLoginFail(const base::Callback<void(LoginFailParam)>& cb) = 0;
    virtual void RegisterReLoginFail(const base::Callback<void(ReLoginFailParam)>& cb) = 0;
    virtual void RegisterReLoginOk(const base::Callback<void(ReLoginOkParam)>& cb) = 0;
    virtual void RegisterNetDisConnect(const base::Callback<void(NetDisConnectParam)>& cb) = 0;
    virtual void RegisterLogouted(const base::Callback<void(LogoutedParam)>& cb) = 0;

    virtual void Login(const LoginParam& param) = 0;
    // Signs in again with the last parameters (after a NetDisConnectParam).
    virtual void ReLogin() = 0;
    virtual void Logout() = 0;
};

}  // namespace openim
