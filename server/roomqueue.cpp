#include "roomqueue.h"

#include <QMutexLocker>

void RoomQueue::mark(qint64 projectId) {
    QMutexLocker lock(&mutex_);
    markLocked(projectId);
}

void RoomQueue::markAll(const QList<qint64>& projectIds) {
    QMutexLocker lock(&mutex_);
    for (qint64 id : projectIds) markLocked(id);
}

void RoomQueue::markLocked(qint64 projectId) {
    if (running_.contains(projectId)) {
        again_.insert(projectId);
    } else if (!queued_.contains(projectId)) {
        queued_.insert(projectId);
        order_.append(projectId);
    }
}

qint64 RoomQueue::take() {
    QMutexLocker lock(&mutex_);
    if (order_.isEmpty()) return 0;
    const qint64 id = order_.takeFirst();
    queued_.remove(id);
    running_.insert(id);
    return id;
}

void RoomQueue::done(qint64 projectId, bool succeeded, const QString& error) {
    QMutexLocker lock(&mutex_);
    if (!running_.remove(projectId)) return;
    if (succeeded) {
        failed_.remove(projectId);
    } else {
        failed_.insert(projectId, error);
    }
    if (again_.remove(projectId)) markLocked(projectId);
}

RoomQueue::State RoomQueue::state(qint64 projectId, QString* error) const {
    QMutexLocker lock(&mutex_);
    if (error) *error = failed_.value(projectId);
    if (queued_.contains(projectId) || running_.contains(projectId)) return State::Pending;
    return failed_.contains(projectId) ? State::Failed : State::Ready;
}

int RoomQueue::waiting() const {
    QMutexLocker lock(&mutex_);
    return queued_.size() + running_.size();
}
