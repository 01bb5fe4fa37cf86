#pragma once

#include <cstdint>
#include <vector>

#include "base/callback.h"
#include "base/file_path.h"
#include "openim/im_message.h"
#include "openim/result_code.h"
#include "prg/iprg_unknown.h"
#include "prg/prg_string.h"

namespace openim {

// A one-to-one conversation with one peer.
class IConversation : public prg::IPrgUnknown {
public:
    // (message as stored, send result, upload result: 0 unless media failed to upload)
    using SendCallback = base::Callback<void(IMMessage, ResultCode, ResultCode)>;
    // (peer account, result, page of messages oldest first)
    using HistoryCallback =
        base::Callback<void(prg::PrgStringT<wchar_t>, ResultCode, std::vector<IMMessage>)>;

    virtual IMUserID GetPeer() = 0;
    virtual void SendText(const prg::PrgStringT<wchar_t>& text, const SendCallback& done) = 0;
    // `json` is the client's own payload; `summary` is what plain XMPP clients show.
    virtual void SendCustom(const prg::PrgStringT<wchar_t>& json,
                            const prg::PrgStringT<wchar_t>& summary, const SendCallback& done) = 0;
    virtual void SendImage(const base::FilePath& file, std::int32_t width, std::int32_t height,
                           const SendCallback& done) = 0;
    virtual void SendFile(const base::FilePath& file, const SendCallback& done) = 0;

    // A received picture or file counts (and is listed) once its download has finished or
    // failed; the new-message callback comes at that moment too.
    virtual std::int32_t GetUnreadCount() = 0;
    // Unread messages, oldest first.
    virtual void GetUnreadMessages(std::vector<IMMessage>* messages) = 0;
    virtual void MarkRead() = 0;
    // Marks just these messages read: what arrived after the caller fetched its unread
    // list stays unread for the next notification.
    virtual void MarkMessagesRead(const std::vector<std::uint64_t>& msgIds) = 0;
    // The next older page of at most `count` messages: first from the local store, then
    // from the server's archive. An empty page means the beginning was reached.
    virtual void GetHistory(std::int32_t count, const HistoryCallback& done) = 0;
    // Starts paging from the newest message again.
    virtual void ResetHistory() = 0;
};

}  // namespace openim
