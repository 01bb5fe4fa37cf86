#pragma once

#include <QHash>
#include <QList>
#include <QMutex>
#include <QSet>
#include <QString>

// The projects whose rooms wait to be brought in step with the directory. Marking is cheap
// and thread-safe (HTTP handlers mark right after their change is committed); the room
// keeper's thread takes ids one at a time. A project marked again while its room is being
// worked on is worked on once more afterwards, because the running pass may have read the
// directory before the change. Nothing leaves the queue until a pass over it succeeded.
class RoomQueue {
public:
    enum class State { Ready, Pending, Failed };

    void mark(qint64 projectId);
    void markAll(const QList<qint64>& projectIds);
    // The next project to work on, 0 when none waits.
    qint64 take();
    // Ends the pass over a taken project; a failure keeps its reason until the next success.
    void done(qint64 projectId, bool succeeded, const QString& error = QString());

    State state(qint64 projectId, QString* error = nullptr) const;
    int waiting() const;  // marked or being worked on

private:
    void markLocked(qint64 projectId);

    mutable QMutex mutex_;
    QList<qint64> order_;
    QSet<qint64> queued_;
    QSet<qint64> running_;
    QSet<qint64> again_;
    QHash<qint64, QString> failed_;
};
