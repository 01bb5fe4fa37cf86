#pragma once

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QString>
#include <optional>

#include <QXmppMessage.h>

#include "store/stored_message.h"

class ArchiveCatchUp;
class ArchiveOrder;
class ImEngine;
class StoreBatcher;

// One-to-one messages received, live, as carbons or from the account's archive: decoded,
// checked (the company's domain, who may relay or send cards), stored once under the
// sender's origin id and reported after their batch is committed, received pictures and
// files fetched first. The back end's notices go to the tribes. SDK thread only.
class IncomingMessages : public QObject {
    Q_OBJECT
public:
    enum class Source { Live, CatchUp, History };

    IncomingMessages(ImEngine* engine, StoreBatcher* batcher, ArchiveCatchUp* catchUp);

    // `archiveId` is the server's id when our own archive stamped or listed the message;
    // `order` places a message of an archive read among those stored (none for live ones).
    void store(const QXmppMessage& message, const QString& archiveId, const QDateTime& stamp,
               Source source, ArchiveOrder* order = nullptr);
    // Stores the delayed messages held back while the catch-up ran (it ended, or the
    // session did).
    void releaseDelayed();

private:
    struct Delayed {
        QXmppMessage message;
        QString archiveId;
        QDateTime stamp;
    };
    // Held messages beyond this go in at once, placed as well as they can be without the
    // rest of the catch-up: a flood must not grow memory without end.
    static constexpr int kMaxHeld = 20000;

    std::optional<quint64> insertReceived(StoredMessage& m, const QXmppMessage& message,
                                          Source source, ArchiveOrder* order);
    std::optional<quint64> insertOnce(StoredMessage& m, const QXmppMessage& message, Source source);
    // Whether a stored message may go into its conversation; `peer` becomes the
    // conversation a relaying back end names. False with the reason in `problem`.
    bool relayedPeer(const QXmppMessage& message, bool outgoing, int kind, QString* peer,
                     QString* problem) const;
    void logRefused(const QXmppMessage& message, const QString& why);

    ImEngine* engine_;
    StoreBatcher* batcher_;
    ArchiveCatchUp* catchUp_;
    QList<Delayed> held_;
};
