#pragma once

#include <QDateTime>
#include <QObject>
#include <QString>

class ArchiveCatchUp;
class HistoryPager;
class ImEngine;
class IncomingMessages;
class PresenceRequests;
class QXmppIq;
class QXmppMessage;
class StoreBatcher;

// Where each stanza the session receives goes: the server's push channel, the tribes'
// rooms, invitations and notices, one-to-one messages (live, carbons, the account's
// archive for the catch-up or a history page), and answers to our pings. What a stanza
// stores falls into the open batch. SDK thread only.
class StanzaRouter : public QObject {
    Q_OBJECT
public:
    StanzaRouter(ImEngine* engine, StoreBatcher* batcher, IncomingMessages* incoming,
                 ArchiveCatchUp* catchUp, HistoryPager* history, PresenceRequests* presence);

    void onMessage(const QXmppMessage& message);
    // A copy of a message another of the account's desktops sent or received.
    void onCarbon(const QXmppMessage& message);
    void onIq(const QXmppIq& iq);
    void onArchived(const QString& queryId, const QString& archiveId, const QXmppMessage& message,
                    const QDateTime& stamp);
    void onArchiveFinished(const QString& queryId, bool ok, bool complete, const QString& first,
                           const QString& last);

private:
    // The server itself speaks on the push channel.
    void push(const QXmppMessage& message);

    ImEngine* engine_;
    StoreBatcher* batcher_;
    IncomingMessages* incoming_;
    ArchiveCatchUp* catchUp_;
    HistoryPager* history_;
    PresenceRequests* presence_;
};
