#pragma once

#include "openim/im_user_id.h"
#include "prg/iprg_unknown.h"

namespace openim {

// The account of the current (or last) session.
class ILoginAccountService : public prg::IPrgUnknown {
public:
    virtual IMUserID GetLoginUserID() = 0;
    virtual bool IsLoggedIn() = 0;
};

}  // namespace openim
