#pragma once

#include <QObject>
#include <QPointer>
#include <QString>

class QFile;
class QNetworkReply;

namespace qx_output {

// One file moving between this desktop and the back end: an upload of a local file, or a
// download of an attachment into the download folder. The item widgets that show it come
// and go as the list scrolls; the transfer stays and tells its state by `changed`.
class FileTransfer : public QObject {
    Q_OBJECT
public:
    enum State { Idle, Uploading, Uploaded, UploadFailed, Downloading, Downloaded, DownloadFailed };

    explicit FileTransfer(QObject* parent = nullptr);
    ~FileTransfer() override;

    // Posts the file as a form upload ("userId" and the file) to `url`.
    void upload(const QString& url, const QString& userId, const QString& localPath);
    // Fetches `url` into `targetPath`, through a partial file that only replaces the
    // target once the whole body arrived.
    void download(const QString& url, const QString& targetPath);
    void cancel();

    State state() const { return state_; }
    bool busy() const { return state_ == Uploading || state_ == Downloading; }
    qint64 bytesDone() const { return done_; }
    qint64 bytesTotal() const { return total_; }
    int percent() const;
    const QString& localPath() const { return localPath_; }
    void setLocalPath(const QString& path) { localPath_ = path; }
    void setState(State state) { state_ = state; }
    // What the back end gave for an upload.
    const QString& fileId() const { return fileId_; }
    const QString& fileName() const { return fileName_; }
    qint64 fileSize() const { return fileSize_; }
    const QString& failure() const { return failure_; }

    // A received file name made safe to place in a folder: no folders, no parent
    // references, no characters that Windows refuses, not empty.
    static QString safeFileName(const QString& name);
    // Where a received file goes: always directly inside `folder`.
    static QString targetPath(const QString& folder, const QString& name);

signals:
    void changed();
    void uploaded(const QString& fileId, const QString& fileName, qint64 fileSize);
    void finished(bool ok);

private:
    void progress(qint64 done, qint64 total);
    void finishUpload();
    void finishDownload();
    void fail(State state, const QString& why);

    State state_ = Idle;
    qint64 done_ = 0;
    qint64 total_ = 0;
    QString localPath_;
    QString fileId_;
    QString fileName_;
    qint64 fileSize_ = 0;
    QString failure_;
    QPointer<QNetworkReply> reply_;
    QFile* part_ = nullptr;
};

}  // namespace qx_output
