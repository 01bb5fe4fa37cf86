#pragma once

#include <QHash>
#include <QObject>
#include <QString>

#include "sdk/im_engine.h"

class QTimer;
class QXmppIq;

// The client's presence requests (its heartbeat): a ping to the server, answered with the
// colleagues' online marks as the server shares them, or failed after kTimeoutMs or when
// the session ends. SDK thread only.
class PresenceRequests : public QObject {
    Q_OBJECT
public:
    static constexpr int kTimeoutMs = 10000;

    explicit PresenceRequests(ImEngine* engine);

    void request(const ImEngine::PresenceCallback& done);
    // An answer to one of our pings; false when the iq was not one.
    bool handleIq(const QXmppIq& iq);
    void sessionEnded();

private:
    struct Pending {
        ImEngine::PresenceCallback done;
        QTimer* timer;
    };

    ImEngine* engine_;
    QHash<QString, Pending> pending_;
};
