#pragma once

#include <QMutex>
#include <QObject>
#include <QSet>

#include <map>
#include <vector>

#include "openim/im_message.h"
#include "openim/im_user_id.h"

// Reads unread messages from the SDK and marks them read, on a thread of its own: the
// SDK's calls wait for the SDK's thread, which during a burst is busy storing what
// arrives, and the GUI thread must not wait with it. Notifications for one sender are
// merged while a read for it is pending, and a message handed out once is not handed
// out again until it has been marked read or given back.
class UnreadFetcher : public QObject {
    Q_OBJECT
public:
    UnreadFetcher();

    // Any thread.
    void requestFetch(const openim::IMUserID& user);
    // GUI thread: these were shown (mark them read), or not taken after all (hand them
    // out again with the next read).
    void markRead(const openim::IMUserID& user, const std::vector<std::uint64_t>& ids);
    void giveBack(const std::vector<std::uint64_t>& ids);

signals:
    void unreadReady(const openim::IMUserID& user, const std::vector<openim::IMMessage>& messages);

private:
    void process();

    QMutex lock_;
    std::map<openim::IMUserID, bool> dirty_;
    bool scheduled_ = false;
    QSet<quint64> handedOut_;  // worker thread only
};
