#pragma once

#include <vector>

#include "base/callback.h"
#include "openim/xpush_params.h"
#include "prg/iprg_unknown.h"

namespace openim {

// The push channel: notices from the server itself. It starts with each session.
class IXPushService : public prg::IPrgUnknown {
public:
    virtual void RegisterStartOk(const base::Callback<void(XPushStartOkParam)>& cb) = 0;
    virtual void RegisterKicked(const base::Callback<void(XPushKickedParam)>& cb) = 0;
    virtual void RegisterStoped(const base::Callback<void(XPushStopedParam)>& cb) = 0;
    virtual void RegisterError(const base::Callback<void(XPushErrorParam)>& cb) = 0;
    virtual void RegisterMsgs(const base::Callback<void(std::vector<XPushMsg>)>& cb) = 0;
};

}  // namespace openim
