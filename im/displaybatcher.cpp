// The one-to-one display queue, shown a slice at a time.
#include "displaybatcher.h"

#include <QTimer>
#include <map>
#include <vector>

#include "configstore.h"
#include "messagedelivery.h"
#include "sdk/wide_text.h"
#include "unreadfetcher.h"
#include "unreadwatermark.h"

DisplayBatcher::DisplayBatcher(MessageDelivery* delivery, UnreadWatermark* watermark,
                               UnreadFetcher* fetcher, QObject* parent)
    : QObject(parent), delivery_(delivery), watermark_(watermark), fetcher_(fetcher) {}

void DisplayBatcher::enqueue(const openim::IMUserID& user, const openim::IMMessage& message) {
    queuedIds_.insert(message.msgId);
    queue_.push_back({user, message});
}

void DisplayBatcher::showQueued() {
    std::map<QString, std::pair<openim::IMUserID, std::vector<std::uint64_t>>> shownByPeer;
    const AlertCoalescer::Slice slice(delivery_->alerts());
    for (int n = 0; n < kShowSlice && !queue_.empty(); ++n) {
        const QueuedMessage next = queue_.front();
        queue_.pop_front();
        delivery_->show(false, next.message);
        UnreadWatermark::advance(ConfigStore::instance().userConfig(), next.message.msgTime,
                                 next.message.msgId);
        queuedIds_.remove(next.message.msgId);
        auto& entry = shownByPeer[wide_text::toQ(next.user.account)];
        entry.first = next.user;
        entry.second.push_back(next.message.msgId);
    }
    if (!shownByPeer.empty()) {
        for (auto& peer : shownByPeer) fetcher_->markRead(peer.second.first, peer.second.second);
        // Saved within a second rather than per slice: a burst would otherwise write (and
        // sync) the settings file hundreds of times on the GUI thread.
        watermark_->saveSoon();
    }
    if (!queue_.empty() && !showScheduled_) {
        showScheduled_ = true;
        QTimer::singleShot(0, this, [this] {
            showScheduled_ = false;
            showQueued();
        });
    }
}
