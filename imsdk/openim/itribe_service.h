#pragma once

#include "base/callback.h"
#include "openim/im_tribe_id.h"
#include "openim/im_user_id.h"
#include "openim/itribe.h"
#include "prg/iprg_unknown.h"
#include "prg/prg_result.h"
#include "prg/prg_string.h"

namespace openim {

// Tribes (group chats, one per project). Declared now; the XMPP rooms behind them come
// with the tribe work.
class ITribeService : public prg::IPrgUnknown {
public:
    // Events, in the order a client registers them.
    virtual void RegisterTribesLoaded(const base::Callback<void()>& cb) = 0;
    virtual void RegisterMemberJoined(const base::Callback<void(IMTribeID, IMUserID)>& cb) = 0;
    virtual void RegisterMemberQuit(const base::Callback<void(IMTribeID, IMUserID)>& cb) = 0;
    virtual void RegisterMemberKicked(const base::Callback<void(IMTribeID, IMUserID)>& cb) = 0;
    // (tribe, member, who changed the role)
    virtual void RegisterRoleChanged(
        const base::Callback<void(IMTribeID, IMUserID, IMUserID)>& cb) = 0;
    virtual void RegisterNameChanged(
        const base::Callback<void(IMTribeID, prg::PrgStringT<wchar_t>)>& cb) = 0;
    virtual void RegisterNoticeChanged(
        const base::Callback<void(IMTribeID, prg::PrgStringT<wchar_t>)>& cb) = 0;
    virtual void RegisterTribeDismissed(const base::Callback<void(const IMTribeID&)>& cb) = 0;
    virtual void RegisterTribeInfoChanged(const base::Callback<void(IMTribeID)>& cb) = 0;
    // Runs with the tribe each time new messages of it are stored.
    virtual void RegisterNewMessage(const base::Callback<void(IMTribeID)>& cb) = 0;

    // *out gets a new reference (release it).
    virtual prg::PrgResult GetTribe(const IMTribeID& tribe, ITribe** out) = 0;
};

}  // namespace openim
