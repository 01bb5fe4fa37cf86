// The watermark of unread messages already shown, kept in the user's settings.
#include "unreadwatermark.h"

#include <algorithm>

#include "configstore.h"
#include "userconfig_t.h"

UnreadWatermark::UnreadWatermark() {
    save_.setSingleShot(true);
    save_.setInterval(1000);
    QObject::connect(&save_, &QTimer::timeout, [] { ConfigStore::instance().userConfig().save(); });
}

bool UnreadWatermark::passes(const quelix::userconfig_t& user, qint64 time, quint64 msgId) {
    if (time > user.thisTime) return true;
    // Stored after everything shown so far: a message the server's archive brought late
    // (after a reconnect, while newer ones came live). It goes in its place on the page.
    if (user.lastShownId != 0 && msgId > user.lastShownId) return true;
    // In the mark's own second the ids shown decide: a burst of that second still gets
    // through, what was shown (in this run or before a restart) stays out.
    return time == user.thisTime && user.shownAtThisTimeKnown &&
           !user.shownAtThisTime.contains(msgId);
}

void UnreadWatermark::advance(quelix::userconfig_t& user, qint64 time, quint64 msgId) {
    if (time > user.thisTime) {
        user.thisTime = time;
        user.shownAtThisTime.clear();
        user.shownAtThisTimeKnown = true;
    }
    if (time == user.thisTime) user.shownAtThisTime.insert(msgId);
    user.lastShownId = std::max(user.lastShownId, msgId);
}

void UnreadWatermark::saveSoon() {
    if (!save_.isActive()) save_.start();
}

void UnreadWatermark::flush() {
    if (!save_.isActive()) return;
    save_.stop();
    ConfigStore::instance().userConfig().save();
}
