#pragma once

#include <QMutex>
#include <QObject>
#include <QSet>

#include <set>
#include <vector>

#include "openim/im_tribe_message.h"

// Reads a tribe's unread messages from the SDK and marks shown ones read, on the IM core's
// reading thread: the SDK's calls wait for the SDK thread, which is busy storing during a
// burst or a catch-up, and the GUI thread must not wait with it. Reports for one tribe are
// merged while a read is pending; a message handed out once is not handed out again until
// it has been marked read.
class TribeUnreadReader : public QObject {
    Q_OBJECT
public:
    TribeUnreadReader();

    // Any thread.
    void requestRead(quint64 tribe);
    void markRead(quint64 tribe, const std::vector<std::uint64_t>& ids);
    void giveBack(const std::vector<std::uint64_t>& ids);

signals:
    void unreadReady(quint64 tribe, const std::vector<openim::IMTribeMessage>& messages);

private:
    void process();

    QMutex lock_;
    std::set<quint64> dirty_;
    bool scheduled_ = false;
    QSet<quint64> handedOut_;  // reading thread only
};
