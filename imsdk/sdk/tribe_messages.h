#pragma once

#include <QXmppMessage.h>
#include <QDateTime>
#include <QHash>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <vector>

#include "base/callback.h"
#include "openim/im_tribe_message.h"
#include "openim/result_code.h"
#include "prg/prg_string.h"
#include "store/archive_order.h"
#include "store/stored_message.h"

class ImEngine;
class QTimer;
class TribeRooms;

// The tribes' messages beside the rooms: every one committed to the account's store before
// it is reported (duplicates dropped by the room archive's id), the catch-up on each
// room's archive from the last message stored, history pages, unread lists and received
// pictures. SDK thread only.
class TribeMessages : public QObject {
    Q_OBJECT
public:
    using HistoryCallback = base::Callback<void(prg::PrgStringT<wchar_t>, openim::ResultCode,
                                                std::vector<openim::IMTribeMessage>)>;
    // Each page of a room's archive costs the server a read of the whole archive (its file
    // store keeps one list per room), so a member catching up asks for big pages.
    static constexpr int kCatchUpPage = 500;

    TribeMessages(ImEngine* engine, TribeRooms* rooms);

    void accountOpened();
    void sessionEnded();

    // A live message from the room, its sender known.
    void received(quint64 tribe, const QXmppMessage& message, const QString& sender);
    // Reads what the room's archive holds after the last message we stored.
    void startCatchUp(quint64 tribe);
    bool handleArchived(const QString& queryId, const QString& archiveId,
                        const QXmppMessage& message, const QDateTime& stamp);
    bool handleArchiveFinished(const QString& queryId, bool ok, bool complete, const QString& first,
                               const QString& last);
    void mediaFinished(const StoredMessage& m, bool ok, const QString& result);

    void history(quint64 tribe, int count, const HistoryCallback& done);
    void resetHistory(quint64 tribe) { cursors_.remove(tribe); }
    QList<quint64> unreadTribes();
    std::vector<openim::IMTribeMessage> unread(quint64 tribe);
    openim::IMTribeMessage toIM(const StoredMessage& m) const;

private:
    enum class Source { Live, CatchUp, History };
    struct HeldMessage {
        QXmppMessage message;
        QString sender;
        QString archiveId;
        QDateTime received;
    };
    struct RoomState {
        QString catchUpQuery;
        // The catch-up asked after an archive id kept in the store, which a replaced or
        // emptied archive no longer knows: a refusal then asks again by time.
        bool catchUpFromStoredId = false;
        // Live messages that came while the archive was being read: stored after it, so
        // that the room's order is the archive's (times are only to the second).
        QList<HeldMessage> held;
    };
    struct HistoryQuery {
        quint64 tribe;
        int count;
        HistoryCallback done;
        // Asked before an archive id kept in the store, which the room may no longer know
        // (its archive emptied or replaced): a refusal then asks again by time.
        bool fromStoredId = false;
    };
    struct Cursor {
        qint64 time = 0;
        qint64 seq = 0;
        bool archiveDone = false;
    };

    void store(quint64 tribe, const QXmppMessage& message, const QString& sender,
               const QString& archiveId, const QDateTime& stamp, Source source);
    void catchUpEnded(quint64 tribe);
    void announce(quint64 tribe);
    void flushAnnouncements();
    void askArchiveBefore(HistoryQuery q, const QString& storedId);
    void deliverHistory(const HistoryQuery& q, openim::ResultCode result);

    ImEngine* engine_;
    TribeRooms* rooms_;
    QHash<quint64, RoomState> state_;
    QHash<QString, quint64> catchUps_;  // query id -> tribe
    QHash<QString, HistoryQuery> historyQueries_;
    QHash<quint64, Cursor> cursors_;
    ArchiveOrder catchUpOrder_;
    ArchiveOrder historyOrder_;
    QSet<quint64> dirty_;
    QTimer* announceTimer_;
};
