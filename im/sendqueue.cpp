// The per-conversation order of sends, held behind uploads.
#include "sendqueue.h"

#include <QTimer>

SendQueue::SendQueue(int uploadReportMs, QObject* parent)
    : QObject(parent), uploadReportMs_(uploadReportMs) {}

void SendQueue::push(const QString& id, bool uploads, std::function<void()> send) {
    queues_[id].push_back({uploads, std::move(send)});
    if (!uploading_.contains(id)) pump(id);
}

void SendQueue::pump(const QString& id) {
    std::deque<QueuedSend>& queue = queues_[id];
    while (!queue.empty()) {
        QueuedSend next = std::move(queue.front());
        queue.pop_front();
        next.send();
        if (next.uploads) {
            const quint64 ticket = ++ticket_;
            uploading_.insert(id, ticket);
            QTimer::singleShot(uploadReportMs_, this, [this, id, ticket] {
                if (uploading_.value(id) == ticket) uploadFinished(id);
            });
            return;
        }
    }
    queues_.remove(id);
}

void SendQueue::uploadFinished(const QString& id) {
    uploading_.remove(id);
    pump(id);
}
