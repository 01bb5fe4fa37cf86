#include "unreadfetcher.h"

#include <QMutexLocker>

#include "base/scoped_refptr.h"
#include "openim/iconversation.h"
#include "openim/iconversation_service.h"
#include "openim/service_guids.h"
#include "prg/iprg_com.h"

namespace {
base::scoped_refptr<openim::IConversation> conversationWith(const openim::IMUserID& user) {
    base::scoped_refptr<openim::IConversation> out;
    prg::IPrgCOM* root = GetPrgCOM();
    if (!root) return out;
    base::scoped_refptr<openim::IConversationService> single;
    single.adopt(root->GetService<openim::IConversationService>(openim::kConversationModule,
                                                                openim::kConversationInterface));
    openim::IConversation* raw = nullptr;
    if (single && single->GetConversation(user, &raw) == prg::PRG_OK && raw) out.adopt(raw);
    return out;
}
}  // namespace

UnreadFetcher::UnreadFetcher() {
    qRegisterMetaType<openim::IMUserID>("openim::IMUserID");
    qRegisterMetaType<std::vector<openim::IMMessage>>("std::vector<openim::IMMessage>");
}

void UnreadFetcher::requestFetch(const openim::IMUserID& user) {
    QMutexLocker guard(&lock_);
    dirty_[user] = true;
    if (scheduled_) return;
    scheduled_ = true;
    QMetaObject::invokeMethod(this, &UnreadFetcher::process, Qt::QueuedConnection);
}

void UnreadFetcher::process() {
    std::map<openim::IMUserID, bool> users;
    {
        QMutexLocker guard(&lock_);
        users.swap(dirty_);
        scheduled_ = false;
    }
    for (const auto& entry : users) {
        base::scoped_refptr<openim::IConversation> conversation = conversationWith(entry.first);
        if (!conversation) continue;
        // No count first: an empty list says the same, for one call to the SDK thread less.
        std::vector<openim::IMMessage> unread;
        conversation->GetUnreadMessages(&unread);
        std::vector<openim::IMMessage> fresh;
        for (openim::IMMessage& m : unread) {
            if (handedOut_.contains(m.msgId)) continue;
            handedOut_.insert(m.msgId);
            fresh.push_back(std::move(m));
        }
        if (!fresh.empty()) emit unreadReady(entry.first, fresh);
    }
}

void UnreadFetcher::markRead(const openim::IMUserID& user, const std::vector<std::uint64_t>& ids) {
    QMetaObject::invokeMethod(this, [this, user, ids] {
        if (base::scoped_refptr<openim::IConversation> c = conversationWith(user))
            c->MarkMessagesRead(ids);
        for (std::uint64_t id : ids) handedOut_.remove(id);
    });
}

void UnreadFetcher::giveBack(const std::vector<std::uint64_t>& ids) {
    QMetaObject::invokeMethod(this, [this, ids] {
        for (std::uint64_t id : ids) handedOut_.remove(id);
    });
}
