#include "sdk/conversation_impl.h"

#include "openim/im_message_content.h"
#include "sdk/im_engine.h"
#include "sdk/message_drafts.h"
#include "sdk/wide_text.h"

using wide_text::toQ;

ConversationImpl::ConversationImpl(ImEngine* engine, QString peer)
    : engine_(engine), peer_(std::move(peer)) {}

openim::IMUserID ConversationImpl::GetPeer() {
    ImEngine* e = engine_;
    return e ? e->call([e, this] { return e->userId(peer_); }) : openim::IMUserID();
}

void ConversationImpl::send(const StoredMessage& draft, const QString& file,
                            const SendCallback& done) {
    ImEngine* e = engine_;
    if (!e) return;
    // The conversation may be released before the engine gets to it; keep it alive.
    AddRef();
    e->post([this, e, draft, file, done] {
        e->send(peer_, draft, file, done);
        Release();
    });
}

void ConversationImpl::SendText(const prg::PrgStringT<wchar_t>& text, const SendCallback& done) {
    send(message_drafts::text(toQ(text)), QString(), done);
}

void ConversationImpl::SendCustom(const prg::PrgStringT<wchar_t>& json,
                                  const prg::PrgStringT<wchar_t>& summary,
                                  const SendCallback& done) {
    send(message_drafts::custom(toQ(json), toQ(summary)), QString(), done);
}

void ConversationImpl::SendImage(const base::FilePath& file, std::int32_t width,
                                 std::int32_t height, const SendCallback& done) {
    send(message_drafts::image(width, height), wide_text::pathToQ(file), done);
}

void ConversationImpl::SendFile(const base::FilePath& file, const SendCallback& done) {
    send(message_drafts::file(), wide_text::pathToQ(file), done);
}

std::int32_t ConversationImpl::GetUnreadCount() {
    ImEngine* e = engine_;
    return e ? e->call([e, this] { return e->unreadCount(peer_); }) : 0;
}

void ConversationImpl::GetUnreadMessages(std::vector<openim::IMMessage>* messages) {
    ImEngine* e = engine_;
    if (!messages || !e) return;
    *messages = e->call([e, this] { return e->unread(peer_); });
}

void ConversationImpl::MarkRead() {
    ImEngine* e = engine_;
    if (e)
        e->call([e, this] {
            e->markRead(peer_);
            return true;
        });
}

void ConversationImpl::MarkMessagesRead(const std::vector<std::uint64_t>& msgIds) {
    ImEngine* e = engine_;
    if (e && !msgIds.empty())
        e->call([e, &msgIds] {
            e->markRead(QList<quint64>(msgIds.begin(), msgIds.end()));
            return true;
        });
}

void ConversationImpl::GetHistory(std::int32_t count, const HistoryCallback& done) {
    ImEngine* e = engine_;
    if (!e) return;
    AddRef();
    e->post([this, e, count, done] {
        e->history(peer_, count, done);
        Release();
    });
}

void ConversationImpl::ResetHistory() {
    ImEngine* e = engine_;
    if (e)
        e->call([e, this] {
            e->resetHistory(peer_);
            return true;
        });
}
