// Look-ups of the SDK's services, conversations and tribes.
#include "imservices.h"

#include "openim/iconversation.h"
#include "openim/iconversation_service.h"
#include "openim/itribe.h"
#include "openim/itribe_service.h"
#include "openim/service_guids.h"
#include "openimmanager.h"
#include "sdk/wide_text.h"

base::scoped_refptr<openim::IConversation> ImServices::conversation(const QString& id) {
    base::scoped_refptr<openim::IConversation> out;
    auto single = get<openim::IConversationService>(openim::kConversationModule,
                                                    openim::kConversationInterface);
    openim::IConversation* raw = nullptr;
    const openim::IMUserID user(wide_text::fromQ(QLatin1String(OpenIMManager::kAppKey)),
                                wide_text::fromQ(id));
    if (single && single->GetConversation(user, &raw) == prg::PRG_OK && raw) out.adopt(raw);
    return out;
}

base::scoped_refptr<openim::ITribe> ImServices::tribe(const QString& id) {
    base::scoped_refptr<openim::ITribe> out;
    bool ok = false;
    const quint64 tribeId = id.toULongLong(&ok);
    auto tribes = get<openim::ITribeService>(openim::kTribeModule, openim::kTribeInterface);
    openim::ITribe* raw = nullptr;
    if (ok && tribes && tribes->GetTribe(openim::IMTribeID(tribeId), &raw) == prg::PRG_OK && raw)
        out.adopt(raw);
    return out;
}
