#pragma once

#include <QHash>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <functional>

#include "sdk/im_engine.h"

class UploadSlots;

// The send path of one-to-one and tribe messages: a draft is checked and completed (peer,
// time, origin id), waits for its tribe's room to let us in, has its picture or file
// uploaded first, and then goes out in transmit(): the one place where a message stanza
// leaves the client and is stored. "Sent" is the server's word, not the socket's: on a
// stream with acknowledgements the callback first says kPending, then kOk once the server
// confirms; what a stream left unconfirmed goes again (same id, so receivers keep one) on
// the next, and what stays unconfirmed for kConfirmMs is reported failed and forgotten,
// for the user to send again. SDK thread only.
class OutgoingMessages : public QObject {
    Q_OBJECT
public:
    OutgoingMessages(ImEngine* engine, UploadSlots* uploads);

    // `draft` carries kind, content, summary and, for media, the size fields; `file` is the
    // picture or file to upload. `peer` is an account or a tribe's key.
    void send(const QString& peer, StoredMessage draft, const QString& file, ImEngine::Sent done);
    static constexpr int kConfirmMs = 60000;
    static constexpr int kLogOutWaitMs = 5000;

    // The stream is gone: uploads waiting on it fail; written messages wait for the next
    // one, unless the user signed out.
    void sessionEnded();
    // A new stream: what the last one left unconfirmed goes again, in the order written.
    void sessionStarted();
    // Runs `then` once the server confirmed everything written (at most kLogOutWaitMs from
    // now); what is still unconfirmed then fails when the stream ends.
    void whenConfirmed(std::function<void()> then);
    // Another account signs in: nothing of the last one goes on.
    void accountChanged();
    int awaitingConfirmation() const { return int(written_.size()); }

    // From the current stream's acknowledgements.
    void confirmed(const QString& originId);
    // A room refused a message of ours because it no longer had us: it goes again (same id)
    // once the room has let us back in.
    void roomRefused(const QString& originId);
    // We join the room again: every message it never reflected goes again (same id) once it
    // has let us back in. A room whose node died took some of them with it without a word
    // (our server confirmed them, the room never saw them); receivers keep one copy.
    void roomRejoining(quint64 tribe);
    // The room reflected it: it got there, nothing more to keep.
    void roomReflected(const QString& originId);
    // Tribe messages are kept for this after the server confirmed them until the room
    // reflects them, at most kKeptForRoomsMs (longer than the rooms' self-ping, so that a
    // room that forgot us quietly is found while they are still kept), the last
    // kKeptForRooms of them.
    static constexpr int kKeptForRoomsMs = 6 * 60 * 1000;
    static constexpr int kKeptForRooms = 2000;
    void unconfirmed(const QStringList& originIds);
    // Writes a confirmed one-to-one message again (same id, stamped with its first time)
    // for a receiver who never receipted it; false when it could not be written.
    bool writeAgain(const StoredMessage& m);

private:
    struct Written {
        StoredMessage draft;
        ImEngine::Sent done;
        qint64 deadline;  // ms since the epoch
    };

    void transmit(StoredMessage draft, const ImEngine::Sent& done);
    // Writes a stored message again on the current stream.
    void retransmit(const QString& originId);
    // False when it could not be written (offline); follows it when the stream confirms.
    bool write(Written& w);
    void finish(const QString& originId, const openim::ResultCode& result);
    void expire();
    void keep(const Written& w);
    // A kept tribe message goes again (same id), once its room has let us back in.
    void sendAgain(Written w);
    void failAll(const wchar_t* why);
    void releaseWaiters();

    ImEngine* engine_;
    UploadSlots* uploads_;
    QHash<QString, Written> written_;  // by origin id: written, not confirmed yet
    QStringList again_;                // handed back by a stream, for the next one
    QHash<QString, Written> kept_;     // tribe messages confirmed lately, by origin id
    QStringList keptOrder_;            // oldest first
    QSet<QString> awaitingRoom_;       // to go again once their room lets us back in
    QSet<QString> reflectedEarly_;     // reflected by their room before the server's ack
    QTimer expiry_;
    bool signingOut_ = false;
    std::vector<std::function<void()>> waiters_;
    QTimer waitLimit_;
};
