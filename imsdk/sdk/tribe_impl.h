#pragma once

#include <QPointer>

#include "base/ref_ptr_counted.h"
#include "openim/itribe.h"
#include "store/stored_message.h"

class ImEngine;

// A tribe handed to the client; forwards to the engine's rooms on the SDK thread.
class TribeImpl : public base::RefPtrCounted<openim::ITribe> {
public:
    TribeImpl(ImEngine* engine, quint64 tribe);

    openim::IMTribeID GetTribeID() override;
    prg::PrgStringT<wchar_t> GetName() override;
    prg::PrgStringT<wchar_t> GetNotice() override;
    void GetMembers(std::vector<openim::IMUserID>* members) override;
    void SendText(const prg::PrgStringT<wchar_t>& text, const SendCallback& done) override;
    void SendCustom(const prg::PrgStringT<wchar_t>& json, const prg::PrgStringT<wchar_t>& summary,
                    const SendCallback& done) override;
    void SendImage(const base::FilePath& file, std::int32_t width, std::int32_t height,
                   const SendCallback& done) override;
    void SendFile(const base::FilePath& file, const SendCallback& done) override;
    void GetHistory(std::int32_t count, const HistoryCallback& done) override;
    void ResetHistory() override;
    std::int32_t GetUnreadCount() override;
    void GetUnreadMessages(std::vector<openim::IMTribeMessage>* messages) override;
    void MarkMessagesRead(const std::vector<std::uint64_t>& msgIds) override;
    void MarkRead() override;
    bool IsMember() override;
    bool IsInRoom() override;

private:
    void send(const StoredMessage& draft, const QString& file, const SendCallback& done);

    QPointer<ImEngine> engine_;
    quint64 tribe_;
};
