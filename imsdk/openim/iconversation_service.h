#pragma once

#include "base/callback.h"
#include "openim/iconversation.h"
#include "openim/im_unseen.h"
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

    // "Unread" above is the host's delivery queue: a message stops being unread once the
    // host has taken it. Whether the user saw it is kept apart, for every conversation,
    // one-to-one and tribes alike: a received message is unseen until the host says the
    // user had its conversation open. GetUnseen lists what the host already took (no longer
    // unread) and the user has not seen; what is still unread comes to the host as new.
    virtual void GetUnseen(std::vector<IMUnseen>* conversations) = 0;
    virtual void MarkSeen(const IMUserID& peer) = 0;
    virtual void MarkTribeSeen(IMTribeID tribe) = 0;
};

}  // namespace openim
