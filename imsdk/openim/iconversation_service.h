#pragma once

#include "base/callback.h"
#include "openim/iconversation.h"
#include "openim/im_user_id.h"
#include "prg/iprg_unknown.h"
#include "prg/prg_result.h"

namespace openim {

// One-to-one conversations.
class IConversationService : public prg::IPrgUnknown {
public:
    // Runs with the sender each time new messages from that sender are stored.
    using NewMessageCallback = base::Callback<void(IMUserID)>;

    virtual void RegisterNewMessageCallback(const NewMessageCallback& callback) = 0;
    // *out gets a new reference (release it); nullptr for an empty account.
    virtual prg::PrgResult GetConversation(const IMUserID& peer, IConversation** out) = 0;
    // Peers of all conversations with unread messages.
    virtual void GetUnreadPeers(std::vector<IMUserID>* peers) = 0;
};

}  // namespace openim
