// Conversation history, a page at a time.
#include "historyloader.h"

#include "base/bind.h"
#include "directorystore.h"
#include "imservices.h"
#include "logger.h"
#include "openim/iconversation.h"
#include "openim/itribe.h"
#include "openimmanager.h"

namespace {

bool isKnownTribe(const QString& id) {
    const DirectoryStore& store = DirectoryStore::instance();
    return !store.isUser(id) && store.tribe(id);
}

}  // namespace

void HistoryLoader::latest(const QString& id) {
    if (auto tribe = isKnownTribe(id) ? ImServices::tribe(id) : nullptr)
        tribe->ResetHistory();
    else if (auto conversation = ImServices::conversation(id))
        conversation->ResetHistory();
    more(id);
}

void HistoryLoader::more(const QString& id) {
    if (auto tribe = isKnownTribe(id) ? ImServices::tribe(id) : nullptr)
        tribe->GetHistory(kPageSize, base::Bind(&OpenIMManager::OnTribeHistory, core_, id));
    else if (auto conversation = ImServices::conversation(id))
        conversation->GetHistory(kPageSize, base::Bind(&OpenIMManager::OnHistory, core_, id));
}

void HistoryLoader::noteResult(const QString& id, const openim::ResultCode& result, size_t stored) {
    if (result.ok()) return;
    Logger::instance().write(QStringLiteral("history of %1: archive error %2, %3 stored shown")
                                 .arg(id)
                                 .arg(result.code)
                                 .arg(stored));
}

void HistoryLoader::showPage(const std::vector<openim::IMMessage>& messages) {
    for (const openim::IMMessage& m : messages) core_->showChatMsg(true, m);
}

void HistoryLoader::showTribePage(const std::vector<openim::IMTribeMessage>& messages) {
    for (const openim::IMTribeMessage& m : messages) core_->showTribeChatMsg(true, m);
}
