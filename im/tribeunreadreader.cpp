#include "tribeunreadreader.h"

#include <QMutexLocker>

#include "base/scoped_refptr.h"
#include "openim/itribe.h"
#include "openim/itribe_service.h"
#include "openim/service_guids.h"
#include "prg/iprg_com.h"

namespace {
base::scoped_refptr<openim::ITribe> tribeOf(quint64 id) {
    base::scoped_refptr<openim::ITribe> out;
    prg::IPrgCOM* root = GetPrgCOM();
    if (!root) return out;
    base::scoped_refptr<openim::ITribeService> tribes;
    tribes.adopt(
        root->GetService<openim::ITribeService>(openim::kTribeModule, openim::kTribeInterface));
    openim::ITribe* raw = nullptr;
    if (tribes && tribes->GetTribe(openim::IMTribeID(id), &raw) == prg::PRG_OK && raw)
        out.adopt(raw);
    return out;
}
}  // namespace

TribeUnreadReader::TribeUnreadReader() {
    qRegisterMetaType<std::vector<openim::IMTribeMessage>>("std::vector<openim::IMTribeMessage>");
}

void TribeUnreadReader::requestRead(quint64 tribe) {
    QMutexLocker guard(&lock_);
    dirty_.insert(tribe);
    if (scheduled_) return;
    scheduled_ = true;
    QMetaObject::invokeMethod(this, &TribeUnreadReader::process, Qt::QueuedConnection);
}

void TribeUnreadReader::process() {
    std::set<quint64> tribes;
    {
        QMutexLocker guard(&lock_);
        tribes.swap(dirty_);
        scheduled_ = false;
    }
    for (quint64 id : tribes) {
        base::scoped_refptr<openim::ITribe> tribe = tribeOf(id);
        if (!tribe || tribe->GetUnreadCount() == 0) continue;
        std::vector<openim::IMTribeMessage> unread;
        tribe->GetUnreadMessages(&unread);
        std::vector<openim::IMTribeMessage> fresh;
        for (openim::IMTribeMessage& m : unread) {
            if (handedOut_.contains(m.msgId)) continue;
            handedOut_.insert(m.msgId);
            fresh.push_back(std::move(m));
        }
        if (!fresh.empty()) emit unreadReady(id, fresh);
    }
}

void TribeUnreadReader::markRead(quint64 tribe, const std::vector<std::uint64_t>& ids) {
    QMetaObject::invokeMethod(this, [this, tribe, ids] {
        if (base::scoped_refptr<openim::ITribe> t = tribeOf(tribe)) t->MarkMessagesRead(ids);
        for (std::uint64_t id : ids) handedOut_.remove(id);
    });
}

void TribeUnreadReader::giveBack(const std::vector<std::uint64_t>& ids) {
    QMetaObject::invokeMethod(this, [this, ids] {
        for (std::uint64_t id : ids) handedOut_.remove(id);
    });
}
