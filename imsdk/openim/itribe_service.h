#pragma once

#include "base/callback.h"
#include "openim/im_tribe_id.h"
#include "openim/im_user_id.h"
#include "openim/itribe.h"
#include "prg/iprg_unknown.h"
#include "prg/prg_result.h"
#include "prg/prg_string.h"

#include <vector>

namespace openim {

// Tribes (group chats, one per project): members-only rooms on the XMPP server whose
// membership the company back end keeps. The SDK joins every room the user belongs to at
// sign-in and after every reconnect, and catches up on each room's archive.
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

    // *out gets a new reference (release it). Any tribe id gives a tribe; IsMember() says
    // whether the user belongs to it.
    virtual prg::PrgResult GetTribe(const IMTribeID& tribe, ITribe** out) = 0;
    // The tribes the company says the user belongs to (its project list). Rooms not yet
    // known are joined; a room left out is kept until the server says the user is gone,
    // since the list may be older than the room's own news.
    virtual void SyncTribes(const std::vector<IMTribeID>& tribes,
                            const std::vector<prg::PrgStringT<wchar_t>>& names) = 0;
    // Tribes with unread messages.
    virtual void GetUnreadTribes(std::vector<IMTribeID>* tribes) = 0;
};

}  // namespace openim
