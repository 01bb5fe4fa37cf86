#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <atomic>
#include <functional>
#include <vector>

#include "openim/im_message.h"
#include "openim/im_user_id.h"

class DirectoryClient;
class DisplayBatcher;
class Requester;
class UnreadFetcher;

// One-to-one unread messages on their way to the display queue. Until the client is ready to
// show messages every notification is kept, in order; then the messages are read off the GUI
// thread (UnreadFetcher), a sender the directory does not know is looked up first, and what
// the watermark holds out is marked read without being shown.
class UnreadInbox : public QObject {
public:
    // How a sender with unread messages is taken up again, as if the SDK had just told of it.
    using Notify = std::function<void(const openim::IMUserID&)>;

    UnreadInbox(UnreadFetcher* fetcher, DisplayBatcher* display, Notify notify,
                QObject* parent = nullptr);

    // Any thread.
    bool isReady() const { return ready_; }
    // Any thread: when ready, asks the reading thread for the sender's unread messages and
    // says true; false when the notification is to be kept for later.
    bool fetchIfReady(const openim::IMUserID& sender);

    // GUI thread from here on.
    void setReady(bool ready) { ready_ = ready; }
    // Reads a sender's unread messages here and now and queues what is to be shown.
    void update(const openim::IMUserID& user);
    // Once ready: the notifications kept meanwhile, then every conversation the store still
    // has unread messages in.
    void drainPending();
    void clearPending() { pending_.clear(); }
    const QList<openim::IMUserID>& pending() const { return pending_; }
    // Unknown senders are looked up through the signed-in requester.
    void setRequester(Requester* requester);
    // The directory knows the sender now (`userId` as the back end wrote it).
    void senderKnown(const QString& userId);

private:
    void onUnreadReady(const openim::IMUserID& user, const std::vector<openim::IMMessage>& unread);
    void handleUnread(const openim::IMUserID& user, const std::vector<openim::IMMessage>& unread,
                      bool fromFetcher);

    UnreadFetcher* fetcher_;
    DisplayBatcher* display_;
    Notify notify_;
    DirectoryClient* directory_ = nullptr;
    std::atomic<bool> ready_{false};  // also read on the SDK thread
    QList<openim::IMUserID> pending_;
};
