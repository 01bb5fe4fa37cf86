#pragma once

#include <QHash>
#include <QString>
#include <limits>

#include "store/stored_message.h"

class MessageStore;

// Places the messages of one read of the server's archive among those already stored.
// The archive lists a peer's messages in the server's order but stamps them only to the
// second, and a read runs while live messages keep coming (a catch-up) or after newer pages
// were stored (history). So each message goes right after the one the archive listed
// before it; the first one a read brings of a peer goes after what was stored before the
// read began (catch-up) or before everything of its second (history).
class ArchiveOrder {
public:
    enum class Direction { Forward, Backward };

    explicit ArchiveOrder(MessageStore& store) : store_(store) {}

    // A read starts: for `peer`, or for every peer when empty (the account's own archive
    // holds all one-to-one conversations). A backward read starts again for every page.
    void start(Direction direction, const QString& peer = QString());
    // Before `m` is stored: gives it its place (m.seq).
    void place(StoredMessage& m);
    // After: `m` was stored, or was a copy of a stored row; that row then marks the place
    // (and takes the archive's time when ours was later: the time we received it). Copies
    // from a stream that is not in the archive's order (delayed live messages: the offline
    // store and a replaced session's queue, interleaved) mark nothing: `listed` false.
    void placed(const StoredMessage& m, bool inserted, bool listed = true);

    // Room between a message and the next of its second for a run of archive messages.
    static constexpr qint64 kStep = 256;

private:
    struct Anchor {
        qint64 time = 0;
        qint64 seq = 0;
    };
    static constexpr qint64 kNone = std::numeric_limits<qint64>::min();

    qint64 floorOf(const QString& peer) const;
    // The greatest (`below`) or least (`above`) place in the peer's second, or kNone.
    qint64 bound(const QString& peer, qint64 time, qint64 limit, bool below);

    MessageStore& store_;
    Direction direction_ = Direction::Forward;
    qint64 floor_ = kNone;
    QHash<QString, qint64> floors_;
    QHash<QString, Anchor> anchors_;
};
