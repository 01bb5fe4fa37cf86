#pragma once

#include <QObject>
#include <QSet>
#include <deque>

#include "openim/im_message.h"
#include "openim/im_user_id.h"

class MessageDelivery;
class UnreadFetcher;
class UnreadWatermark;

// One-to-one messages on the display queue, shown a slice at a time so that a burst of
// thousands never holds the GUI thread for long; each slice's alerts go out once per
// conversation. A message is marked read (and passes the watermark) once it has been shown:
// one that a crash keeps from the screen comes back at the next start.
class DisplayBatcher : public QObject {
public:
    static constexpr int kShowSlice = 50;

    DisplayBatcher(MessageDelivery* delivery, UnreadWatermark* watermark, UnreadFetcher* fetcher,
                   QObject* parent = nullptr);

    // Whether a message is already waiting to be shown.
    bool isQueued(quint64 msgId) const { return queuedIds_.contains(msgId); }
    void enqueue(const openim::IMUserID& user, const openim::IMMessage& message);
    // Shows the next slice now and the rest from the event loop, a slice a turn.
    void showQueued();

private:
    struct QueuedMessage {
        openim::IMUserID user;
        openim::IMMessage message;
    };

    MessageDelivery* delivery_;
    UnreadWatermark* watermark_;
    UnreadFetcher* fetcher_;
    std::deque<QueuedMessage> queue_;
    QSet<quint64> queuedIds_;
    bool showScheduled_ = false;
};
