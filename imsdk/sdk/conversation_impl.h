#pragma once

#include <QPointer>
#include <QString>

#include "base/ref_ptr_counted.h"
#include "openim/iconversation.h"
#include "store/stored_message.h"

class ImEngine;

// A one-to-one conversation handed to the client; forwards to the engine on its thread.
class ConversationImpl : public base::RefPtrCounted<openim::IConversation> {
public:
    ConversationImpl(ImEngine* engine, QString peer);

    openim::IMUserID GetPeer() override;
    void SendText(const prg::PrgStringT<wchar_t>& text, const SendCallback& done) override;
    void SendCustom(const prg::PrgStringT<wchar_t>& json, const prg::PrgStringT<wchar_t>& summary,
                    const SendCallback& done) override;
    void SendImage(const base::FilePath& file, std::int32_t width, std::int32_t height,
                   const SendCallback& done) override;
    void SendFile(const base::FilePath& file, const SendCallback& done) override;
    std::int32_t GetUnreadCount() override;
    void GetUnreadMessages(std::vector<openim::IMMessage>* messages) override;
    void MarkRead() override;
    void MarkMessagesRead(const std::vector<std::uint64_t>& msgIds) override;
    void GetHistory(std::int32_t count, const HistoryCallback& done) override;
    void ResetHistory() override;

private:
    void send(const StoredMessage& draft, const QString& file, const SendCallback& done);

    QPointer<ImEngine> engine_;
    QString peer_;
};
