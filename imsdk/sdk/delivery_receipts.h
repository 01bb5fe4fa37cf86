#pragma once

#include <QHash>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <functional>

#include "store/stored_message.h"

class ImEngine;
class QXmppMessage;

// Receipts between colleagues' clients, one-to-one only. The server's acknowledgement says
// it has a message, not that it reached the other side: a cluster node that dies while
// routing a message to a session on it loses that message although the sender's node
// confirmed it (and neither archive nor offline store has it for the receiver). So the
// receiver tells the sender which origin ids it stored (a headline, batched, neither
// archived nor kept offline), and the sender writes again, same id and first time, what a
// colleague who is online has not receipted after kWaitMs; at most kTries times, for
// kKeepMs. Rooms need none of this: a room reflects every message to its sender.
// SDK thread only.
class DeliveryReceipts : public QObject {
    Q_OBJECT
public:
    static constexpr int kWaitMs = 10000;
    static constexpr int kKeepMs = 10 * 60 * 1000;
    static constexpr int kTries = 3;
    static constexpr int kMaxAwaited = 5000;
    static constexpr int kBatch = 50;
    static constexpr int kFlushMs = 300;

    // `writeAgain` writes a message again on the current stream; false when it could not.
    DeliveryReceipts(ImEngine* engine, std::function<bool(const StoredMessage&)> writeAgain);

    // Sender: the server confirmed this one-to-one message; it waits for its receipt.
    void await(const StoredMessage& m);
    // Receiver: a colleague's message (or a copy of one) is stored; `time` in seconds.
    void stored(const QString& peer, const QString& originId, qint64 time);
    // A receipt from a colleague; false when the message is not one.
    bool handle(const QXmppMessage& message);
    void sessionEnded();

private:
    struct Awaited {
        StoredMessage message;
        qint64 since = 0;  // ms: confirmed, or last written again
        int tries = 0;
    };
    void flush();
    void check();
    bool isOnline(const QString& peer) const;

    ImEngine* engine_;
    std::function<bool(const StoredMessage&)> writeAgain_;
    QHash<QString, Awaited> awaited_;        // by origin id
    QStringList awaitedOrder_;               // oldest first
    QHash<QString, QStringList> toReceipt_;  // by peer
    QTimer flushTimer_;
    QTimer checkTimer_;
    int waitMs_ = kWaitMs;  // QUELIX_RECEIPT_WAIT_MS, for tests
};
