#include "alertcoalescer.h"

#include <algorithm>

void AlertCoalescer::add(const ConversationRecord& record, const QString& preview) {
    if (depth_ == 0) {
        if (sink_) sink_({record, preview, 1});
        return;
    }
    auto it = std::find_if(pending_.begin(), pending_.end(),
                           [&](const Alert& a) { return a.record.id == record.id; });
    int count = 1;
    if (it != pending_.end()) {
        count += it->count;
        pending_.erase(it);  // goes to the back: its latest message is now the newest
    }
    pending_.push_back({record, preview, count});
}

void AlertCoalescer::end() {
    if (--depth_ > 0) return;
    std::vector<Alert> due = std::move(pending_);
    pending_.clear();
    if (!sink_) return;
    for (const Alert& a : due) sink_(a);
}
