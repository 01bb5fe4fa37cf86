#include "uploadreceiver.h"

#include "filestore.h"

#include <httplib.h>

#include <QSaveFile>

UploadReceiver::UploadReceiver(FileStore* files) : files_(files) {}

UploadReceiver::~UploadReceiver() = default;

QString UploadReceiver::errorString() const {
    return file_ ? file_->errorString() : QStringLiteral("cannot create a file");
}

UploadReceiver::Outcome UploadReceiver::receive(const httplib::ContentReader& reader) {
    bool inFile = false;
    bool seenFile = false;
    bool tooLarge = false;
    bool writeFailed = false;
    const bool read = reader(
        [&](const httplib::MultipartFormData& part) {
            inFile = !seenFile && !part.filename.empty();
            if (inFile) {
                seenFile = true;
                clientName_ = QString::fromStdString(part.filename);
                file_ = files_->begin(&storedName_);
                writeFailed = !file_;
            }
            return !writeFailed;
        },
        [&](const char* data, size_t length) {
            if (!inFile) return true;
            size_ += qint64(length);
            if (size_ > files_->maxBytes()) {
                tooLarge = true;
                return false;
            }
            if (file_->write(data, qint64(length)) != qint64(length)) {
                writeFailed = true;
                return false;
            }
            return true;
        });
    if (tooLarge) return TooLarge;
    if (writeFailed) return WriteFailed;
    if (!read) return BrokenOff;
    return seenFile ? Received : NoFile;
}

bool UploadReceiver::commit() { return file_ && file_->commit(); }
