#pragma once

#include <QHash>
#include <QObject>
#include <QString>
#include <deque>
#include <functional>

// Sends to one conversation leave in the order they were asked for: a picture or file takes a
// while to upload, and what is typed after it must not overtake it. A send that uploads holds
// back the ones after it until it is reported done, or until a long while passed without a
// report, so that a lost report cannot stall the conversation. Conversations do not wait for
// one another.
class SendQueue : public QObject {
public:
    static constexpr int kUploadReportMs = 120000;

    explicit SendQueue(int uploadReportMs = kUploadReportMs, QObject* parent = nullptr);

    // Runs `send` now, or after the upload the conversation is waiting for.
    void push(const QString& id, bool uploads, std::function<void()> send);
    // The conversation's upload was reported (sent or failed): the sends behind it go.
    void uploadFinished(const QString& id);

private:
    struct QueuedSend {
        bool uploads;
        std::function<void()> send;
    };
    void pump(const QString& id);

    int uploadReportMs_;
    QHash<QString, std::deque<QueuedSend>> queues_;
    QHash<QString, quint64> uploading_;
    quint64 ticket_ = 0;
};
