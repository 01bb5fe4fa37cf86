#pragma once

#include <QString>

#include <memory>

class FileStore;
class QSaveFile;

namespace httplib {
class ContentReader;
}  // namespace httplib

// Receives an upload's multipart body straight into the file store as it arrives, so an
// upload never sits whole in memory. The first part with a file name is the file; other
// fields are read (within the body's cap) and dropped. Until commit() the file is only a
// temporary one, removed when the receiver goes away: an upload that breaks off, is too
// large or is refused later leaves nothing behind.
class UploadReceiver {
public:
    enum Outcome { Received, TooLarge, WriteFailed, BrokenOff, NoFile };

    explicit UploadReceiver(FileStore* files);
    ~UploadReceiver();
    UploadReceiver(const UploadReceiver&) = delete;
    UploadReceiver& operator=(const UploadReceiver&) = delete;

    Outcome receive(const httplib::ContentReader& reader);

    QString clientName() const { return clientName_; }
    qint64 size() const { return size_; }
    QString storedName() const { return storedName_; }
    QString errorString() const;
    // Keeps the received file under storedName(); false when it cannot be kept.
    bool commit();

private:
    FileStore* files_;
    std::unique_ptr<QSaveFile> file_;
    QString storedName_;
    QString clientName_;
    qint64 size_ = 0;
};
