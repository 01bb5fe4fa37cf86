#pragma once

#include <cstdint>
#include <vector>

#include "base/callback.h"
#include "base/file_path.h"
#include "openim/im_tribe_id.h"
#include "openim/im_tribe_message.h"
#include "openim/im_user_id.h"
#include "openim/result_code.h"
#include "prg/iprg_unknown.h"
#include "prg/prg_string.h"

namespace openim {

// A tribe conversation.
class ITribe : public prg::IPrgUnknown {
public:
    using SendCallback = base::Callback<void(IMTribeMessage, ResultCode, ResultCode)>;
    using HistoryCallback =
        base::Callback<void(prg::PrgStringT<wchar_t>, ResultCode, std::vector<IMTribeMessage>)>;

    virtual IMTribeID GetTribeID() = 0;
    virtual prg::PrgStringT<wchar_t> GetName() = 0;
    virtual prg::PrgStringT<wchar_t> GetNotice() = 0;
    virtual void GetMembers(std::vector<IMUserID>* members) = 0;
    virtual void SendText(const prg::PrgStringT<wchar_t>& text, const SendCallback& done) = 0;
    virtual void SendCustom(const prg::PrgStringT<wchar_t>& json,
                            const prg::PrgStringT<wchar_t>& summary, const SendCallback& done) = 0;
    virtual void SendImage(const base::FilePath& file, std::int32_t width, std::int32_t height,
                           const SendCallback& done) = 0;
    virtual void SendFile(const base::FilePath& file, const SendCallback& done) = 0;
    // The next older page of at most `count` messages, oldest first: the local store, then
    // the room's archive. An empty page means the beginning was reached.
    virtual void GetHistory(std::int32_t count, const HistoryCallback& done) = 0;
    virtual void ResetHistory() = 0;

    // Received messages not yet read, oldest first; a picture still downloading holds back
    // what came after it.
    virtual std::int32_t GetUnreadCount() = 0;
    virtual void GetUnreadMessages(std::vector<IMTribeMessage>* messages) = 0;
    virtual void MarkMessagesRead(const std::vector<std::uint64_t>& msgIds) = 0;
    virtual void MarkRead() = 0;
    // True while the server counts the user a member (the room has been joined or can be).
    virtual bool IsMember() = 0;
    // True while the user is in the room now: sends go out at once (otherwise they wait
    // for the room, or fail when it will not have the user).
    virtual bool IsInRoom() = 0;
};

}  // namespace openim
