#pragma once

#include <QHash>
#include <QObject>
#include <QTimer>

class ImEngine;
class QXmppIq;
class QXmppMessage;

// Keeps us in the rooms we think we are in. A room whose node went down comes back without
// its occupants and tells nobody; it then refuses our messages (not-acceptable, or
// item-not-found while it is gone). Such a refusal, and a room that does not know us when we
// ping ourselves in it (every kPingMs, as rooms on any server answer), makes us join again:
// the catch-up after the join brings what we missed, and the refused message goes again.
// SDK thread only.
class RoomHealth : public QObject {
    Q_OBJECT
public:
    static constexpr int kPingMs = 5 * 60 * 1000;

    explicit RoomHealth(ImEngine* engine);

    void sessionStarted();
    void sessionEnded();
    // A message of type error; true when it came from one of our rooms.
    bool handleError(const QXmppMessage& message);
    // An answer to a query; true when it answered one of our pings.
    bool handleIq(const QXmppIq& iq);
    // Pings every room we are in now (the timer's work, callable at once).
    void pingRooms();

private:
    ImEngine* engine_;
    QTimer timer_;
    QHash<QString, quint64> pings_;  // by query id
};
