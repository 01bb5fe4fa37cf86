// One-to-one unread messages from the SDK's notification to the display queue.
#include "unreadinbox.h"

#include <QSet>

#include "configstore.h"
#include "directoryclient.h"
#include "directorystore.h"
#include "displaybatcher.h"
#include "functiontrace.h"
#include "imservices.h"
#include "logger.h"
#include "openim/iconversation.h"
#include "openim/iconversation_service.h"
#include "openim/service_guids.h"
#include "openimmanager.h"
#include "sdk/wide_text.h"
#include "unreadfetcher.h"
#include "unreadwatermark.h"

using wide_text::fromQ;
using wide_text::toQ;

namespace {

// The sender's unread messages, read on the calling thread; false when there are none.
bool fetchUnread(const openim::IMUserID& user, std::vector<openim::IMMessage>* unread) {
    auto single = ImServices::get<openim::IConversationService>(openim::kConversationModule,
                                                                openim::kConversationInterface);
    if (!single) return false;
    base::scoped_refptr<openim::IConversation> conversation;
    openim::IConversation* raw = nullptr;
    if (single->GetConversation(user, &raw) != prg::PRG_OK || !raw) return false;
    conversation.adopt(raw);
    single = nullptr;  // released before the work, as the conversation is enough
    if (conversation->GetUnreadCount() == 0) return false;
    conversation->GetUnreadMessages(unread);
    return true;
}

std::vector<std::uint64_t> idsOf(const std::vector<openim::IMMessage>& messages) {
    std::vector<std::uint64_t> ids;
    for (const openim::IMMessage& m : messages) ids.push_back(m.msgId);
    return ids;
}

}  // namespace

UnreadInbox::UnreadInbox(UnreadFetcher* fetcher, DisplayBatcher* display, Notify notify,
                         QObject* parent)
    : QObject(parent), fetcher_(fetcher), display_(display), notify_(std::move(notify)) {
    connect(fetcher_, &UnreadFetcher::unreadReady, this, &UnreadInbox::onUnreadReady,
            Qt::QueuedConnection);
}

bool UnreadInbox::fetchIfReady(const openim::IMUserID& sender) {
    if (!ready_) return false;
    // Read off the GUI thread; the messages come back through onUnreadReady.
    fetcher_->requestFetch(sender);
    return true;
}

void UnreadInbox::setRequester(Requester* requester) {
    delete directory_;
    directory_ = new DirectoryClient(requester, &DirectoryStore::instance(), this);
    connect(directory_, &DirectoryClient::colleaguesFetched, this, [this](const QStringList& ids) {
        for (const QString& id : ids) senderKnown(id);
    });
}

void UnreadInbox::senderKnown(const QString& userId) {
    const QString id = QString::number(userId.toULongLong());
    update(openim::IMUserID(fromQ(QLatin1String(OpenIMManager::kAppKey)), fromQ(id)));
}

void UnreadInbox::onUnreadReady(const openim::IMUserID& user,
                                const std::vector<openim::IMMessage>& unread) {
    const QString id = toQ(user.account);
    if (!DirectoryStore::instance().isUser(id) && directory_) {
        fetcher_->giveBack(idsOf(unread));
        directory_->fetchColleagues({id});  // senderKnown follows
        return;
    }
    // With no back end to ask, an unknown colleague's messages are still shown.
    FunctionTrace trace(&Logger::instance(), QStringLiteral("OpenIMManager::updateUnreadMsg"));
    handleUnread(user, unread, true);
}

void UnreadInbox::update(const openim::IMUserID& user) {
    FunctionTrace trace(&Logger::instance(), QStringLiteral("OpenIMManager::updateUnreadMsg"));
    std::vector<openim::IMMessage> unread;
    if (!fetchUnread(user, &unread)) return;
    handleUnread(user, unread, false);
}

void UnreadInbox::handleUnread(const openim::IMUserID& user,
                               const std::vector<openim::IMMessage>& unread, bool fromFetcher) {
    const QString id = toQ(user.account);
    if (!ready_) {
        Logger::instance().write(QStringLiteral("MsgReady: false   id:") + id);
        pending_.append(user);
        if (fromFetcher) fetcher_->giveBack(idsOf(unread));
        return;
    }
    Logger::instance().write(QStringLiteral("MsgReady: true   id:") + id);
    std::vector<std::uint64_t> skipped;
    for (const openim::IMMessage& m : unread) {
        if (display_->isQueued(m.msgId)) continue;  // already waiting to be shown
        if (!UnreadWatermark::passes(ConfigStore::instance().userConfig(), m.msgTime, m.msgId)) {
            skipped.push_back(m.msgId);
            continue;
        }
        display_->enqueue(user, m);
    }
    if (!skipped.empty()) fetcher_->markRead(user, skipped);
    display_->showQueued();
}

void UnreadInbox::drainPending() {
    const QList<openim::IMUserID> queued = pending_;
    pending_.clear();
    QSet<QString> done;
    for (const openim::IMUserID& user : queued) {
        update(user);
        done.insert(toQ(user.account));
    }
    auto single = ImServices::get<openim::IConversationService>(openim::kConversationModule,
                                                                openim::kConversationInterface);
    if (!single) return;
    std::vector<openim::IMUserID> peers;
    single->GetUnreadPeers(&peers);
    for (const openim::IMUserID& peer : peers)
        if (!done.contains(toQ(peer.account))) notify_(peer);
}
