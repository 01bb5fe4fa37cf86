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
    virtual void GetHistory(std::int32_t count, const HistoryCallback& done) = 0;
};

}  // namespace openim
