#include "unseenledger.h"

#include "base/scoped_refptr.h"
#include "openim/iconversation_service.h"
#include "openim/service_guids.h"
#include "openimmanager.h"
#include "prg/iprg_com.h"
#include "sdk/wide_text.h"

namespace {

base::scoped_refptr<openim::IConversationService> conversations() {
    base::scoped_refptr<openim::IConversationService> out;
    if (prg::IPrgCOM* root = GetPrgCOM())
        out.adopt(root->GetService<openim::IConversationService>(openim::kConversationModule,
                                                                 openim::kConversationInterface));
    return out;
}

}  // namespace

QVector<UnseenLedger::Entry> UnseenLedger::waiting() {
    QVector<Entry> out;
    auto service = conversations();
    if (!service) return out;
    std::vector<openim::IMUnseen> rows;
    service->GetUnseen(&rows);
    for (const openim::IMUnseen& row : rows) {
        Entry e;
        e.id = row.isTribe ? QString::number(row.tribe.tribeId) : wide_text::toQ(row.account);
        e.count = row.count;
        e.lastTime = row.lastTime;
        if (!e.id.isEmpty() && e.id != QLatin1String("0") && e.count > 0) out.append(e);
    }
    return out;
}

void UnseenLedger::markSeen(const QString& id, bool isTribe) {
    auto service = conversations();
    if (!service || id.isEmpty()) return;
    if (isTribe) {
        bool ok = false;
        const quint64 tribe = id.toULongLong(&ok);
        if (ok) service->MarkTribeSeen(openim::IMTribeID(tribe));
        return;
    }
    service->MarkSeen(openim::IMUserID(wide_text::fromQ(QLatin1String(OpenIMManager::kAppKey)),
                                       wide_text::fromQ(id)));
}
