#pragma once

#include <map>

#include "base/callback.h"
#include "openim/im_user_id.h"
#include "openim/im_user_status.h"
#include "openim/result_code.h"
#include "prg/iprg_unknown.h"
#include "prg/prg_string.h"

namespace openim {

// The session heartbeat: a ping to the server; the answer also carries the presence of
// the colleagues the server shares with the user.
class IPresenceService : public prg::IPrgUnknown {
public:
    using PresenceCallback = base::Callback<void(ResultCode, std::map<IMUserID, IMUserStatus>)>;

    // `userId` and `companyId` name the requester (for logs); `withStatus` asks for the map.
    virtual void RequestPresence(const prg::PrgStringT<wchar_t>& userId,
                                 const prg::PrgStringT<wchar_t>& companyId, bool withStatus,
                                 const PresenceCallback& done) = 0;
};

}  // namespace openim
