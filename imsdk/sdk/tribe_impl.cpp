#include "sdk/tribe_impl.h"

#include "openim/im_message_content.h"
#include "sdk/im_engine.h"
#include "sdk/message_drafts.h"
#include "sdk/tribe_messages.h"
#include "sdk/tribe_rooms.h"
#include "sdk/wide_text.h"

using wide_text::fromQ;
using wide_text::toQ;

TribeImpl::TribeImpl(ImEngine* engine, quint64 tribe) : engine_(engine), tribe_(tribe) {}

openim::IMTribeID TribeImpl::GetTribeID() { return openim::IMTribeID(tribe_); }

prg::PrgStringT<wchar_t> TribeImpl::GetName() {
    ImEngine* e = engine_;
    return e ? fromQ(e->call([e, this] { return e->tribes()->name(tribe_); }))
             : prg::PrgStringT<wchar_t>();
}

prg::PrgStringT<wchar_t> TribeImpl::GetNotice() {
    ImEngine* e = engine_;
    return e ? fromQ(e->call([e, this] { return e->tribes()->subject(tribe_); }))
             : prg::PrgStringT<wchar_t>();
}

// The members in the room now; the full list is the company's (its project members).
void TribeImpl::GetMembers(std::vector<openim::IMUserID>* members) {
    ImEngine* e = engine_;
    if (!members || !e) return;
    *members = e->call([e, this] {
        std::vector<openim::IMUserID> out;
        for (const QString& a : e->tribes()->occupants(tribe_)) out.push_back(e->userId(a));
        return out;
    });
}

void TribeImpl::send(const StoredMessage& draft, const QString& file, const SendCallback& done) {
    ImEngine* e = engine_;
    if (!e) return;
    AddRef();
    e->post([this, e, draft, file, done] {
        TribeMessages* rooms = e->tribes()->messages();
        e->send(TribeRooms::key(tribe_), draft, file,
                ImEngine::Sent([rooms, done](const StoredMessage& m, openim::ResultCode sent,
                                             openim::ResultCode uploaded) {
                    if (!done.is_null()) done.Run(rooms->toIM(m), sent, uploaded);
                }));
        Release();
    });
}

void TribeImpl::SendText(const prg::PrgStringT<wchar_t>& text, const SendCallback& done) {
    send(message_drafts::text(toQ(text)), QString(), done);
}

void TribeImpl::SendCustom(const prg::PrgStringT<wchar_t>& json,
                           const prg::PrgStringT<wchar_t>& summary, const SendCallback& done) {
    send(message_drafts::custom(toQ(json), toQ(summary)), QString(), done);
}

void TribeImpl::SendImage(const base::FilePath& file, std::int32_t width, std::int32_t height,
                          const SendCallback& done) {
    send(message_drafts::image(width, height), wide_text::pathToQ(file), done);
}

void TribeImpl::SendFile(const base::FilePath& file, const SendCallback& done) {
    send(message_drafts::file(), wide_text::pathToQ(file), done);
}

void TribeImpl::GetHistory(std::int32_t count, const HistoryCallback& done) {
    ImEngine* e = engine_;
    if (!e) return;
    e->post(
        [e, tribe = tribe_, count, done] { e->tribes()->messages()->history(tribe, count, done); });
}

void TribeImpl::ResetHistory() {
    ImEngine* e = engine_;
    if (e)
        e->call([e, this] {
            e->tribes()->messages()->resetHistory(tribe_);
            return true;
        });
}

std::int32_t TribeImpl::GetUnreadCount() {
    ImEngine* e = engine_;
    return e ? e->call([e, this] { return e->unreadCount(TribeRooms::key(tribe_)); }) : 0;
}

void TribeImpl::GetUnreadMessages(std::vector<openim::IMTribeMessage>* messages) {
    ImEngine* e = engine_;
    if (!messages || !e) return;
    *messages = e->call([e, this] { return e->tribes()->messages()->unread(tribe_); });
}

void TribeImpl::MarkMessagesRead(const std::vector<std::uint64_t>& msgIds) {
    ImEngine* e = engine_;
    if (e && !msgIds.empty())
        e->call([e, &msgIds] {
            e->markRead(QList<quint64>(msgIds.begin(), msgIds.end()));
            return true;
        });
}

void TribeImpl::MarkRead() {
    ImEngine* e = engine_;
    if (e)
        e->call([e, this] {
            e->markRead(TribeRooms::key(tribe_));
            return true;
        });
}

bool TribeImpl::IsMember() {
    ImEngine* e = engine_;
    return e && e->call([e, this] { return e->tribes()->isMember(tribe_); });
}

bool TribeImpl::IsInRoom() {
    ImEngine* e = engine_;
    return e && e->call([e, this] { return e->tribes()->isJoined(tribe_); });
}
