#include "roomkeeper.h"

#include "directory.h"
#include "roomworker.h"

#include <QMutexLocker>

#include <utility>

RoomKeeper::RoomKeeper(Database* db, const Settings& settings) : db_(db), settings_(settings) {
    if (settings_.mucDomain.isEmpty())
        settings_.mucDomain = QStringLiteral("conference.") + settings_.domain;
    thread_.setObjectName(QStringLiteral("rooms"));
}

RoomKeeper::~RoomKeeper() { stop(); }

void RoomKeeper::start() {
    QMutexLocker lock(&workerMutex_);
    if (worker_) return;
    // Every room counts as waiting until the first check after signing in has seen it, so
    // nobody takes a room for ready before the keeper looked.
    queue_.markAll(Directory(db_, QString()).roomIds());
    worker_ = new RoomWorker(db_, &queue_, settings_, &online_);
    worker_->moveToThread(&thread_);
    thread_.start();
    QMetaObject::invokeMethod(worker_, &RoomWorker::start, Qt::QueuedConnection);
}

void RoomKeeper::stop() {
    RoomWorker* worker = nullptr;
    {
        QMutexLocker lock(&workerMutex_);
        std::swap(worker, worker_);
    }
    if (!worker) return;
    QMetaObject::invokeMethod(
        worker,
        [worker] {
            worker->stop();
            delete worker;
        },
        Qt::BlockingQueuedConnection);
    thread_.quit();
    thread_.wait();
    online_ = false;
}

void RoomKeeper::projectChanged(qint64 projectId) {
    queue_.mark(projectId);
    wake();
}

void RoomKeeper::wake() {
    // A wake-up posted just before stop() takes the worker is dropped with it: Qt discards
    // the events of a deleted object.
    QMutexLocker lock(&workerMutex_);
    if (worker_) QMetaObject::invokeMethod(worker_, &RoomWorker::pump, Qt::QueuedConnection);
}

RoomQueue::State RoomKeeper::state(qint64 projectId, QString* error) const {
    return queue_.state(projectId, error);
}

QString RoomKeeper::roomJid(qint64 projectId) const {
    return QStringLiteral("%1@%2").arg(projectId).arg(settings_.mucDomain);
}
