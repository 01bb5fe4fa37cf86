#pragma once

#include <QObject>
#include <QString>

class ImEngine;
class MediaTransfer;

// Received pictures and files: fetched into the receive folder as they arrive (and those
// still pending at the next sign-in), or again when the client asks; each reported when
// done. A download holds back what its sender sent after it, for kWaitMs at most. SDK
// thread only.
class MediaDownloads : public QObject {
    Q_OBJECT
public:
    static constexpr int kWaitMs = 8000;

    MediaDownloads(ImEngine* engine, MediaTransfer* transfer);

    void setReceiveFolder(const QString& folder) { receiveFolder_ = folder; }
    // Fetches a stored message's picture or file; with `notify`, a new unread message is
    // reported once it is here.
    void start(quint64 id, bool notify);
    // What the store still waits for (a session ended during the download).
    void resumePending();
    // The client asks for a received message's file; an unknown one is reported not found.
    void download(quint64 msgId);

private:
    ImEngine* engine_;
    MediaTransfer* transfer_;
    QString receiveFolder_;
};
