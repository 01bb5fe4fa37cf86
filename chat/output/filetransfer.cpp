#include "filetransfer.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHttpMultiPart>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QUrl>

#include "envelope.h"
#include "manager.h"

namespace qx_output {

FileTransfer::FileTransfer(QObject* parent) : QObject(parent) {}

FileTransfer::~FileTransfer() {
    if (reply_) reply_->abort();
    if (part_) part_->remove();
    delete part_;
}

int FileTransfer::percent() const {
    if (state_ == Uploaded || state_ == Downloaded) return 100;
    return total_ > 0 ? int(done_ * 100 / total_) : 0;
}

QString FileTransfer::safeFileName(const QString& name) {
    // Only the last path component counts, whichever separator the sender used.
    QString base = name.section(QLatin1Char('/'), -1).section(QLatin1Char('\\'), -1);
    QString clean;
    for (const QChar c : base) {
        if (c.unicode() < 0x20 || QStringLiteral("<>:\"|?*").contains(c))
            clean.append(QLatin1Char('_'));
        else
            clean.append(c);
    }
    // Trailing dots and spaces vanish on Windows; leading dots hide or climb.
    while (clean.endsWith(QLatin1Char('.')) || clean.endsWith(QLatin1Char(' '))) clean.chop(1);
    while (clean.startsWith(QLatin1Char('.'))) clean.remove(0, 1);
    // Windows opens a device instead of a file for these, whatever follows the first dot
    // ("NUL.txt", "aux.tar.gz") and with trailing spaces before it ("CON .txt"); the
    // superscript digits count as digits there too.
    static const QRegularExpression device(
        QStringLiteral("^(CON|PRN|AUX|NUL|COM[0-9\\x{00B9}\\x{00B2}\\x{00B3}]|"
                       "LPT[0-9\\x{00B9}\\x{00B2}\\x{00B3}])$"),
        QRegularExpression::CaseInsensitiveOption);
    if (device.match(clean.section(QLatin1Char('.'), 0, 0).trimmed()).hasMatch())
        clean.prepend(QLatin1Char('_'));
    if (clean.isEmpty()) clean = QStringLiteral("file");
    return clean.left(200);
}

QString FileTransfer::targetPath(const QString& folder, const QString& name) {
    return QDir(folder).filePath(safeFileName(name));
}

void FileTransfer::upload(const QString& url, const QString& userId, const QString& localPath) {
    cancel();
    localPath_ = localPath;
    failure_.clear();
    auto* file = new QFile(localPath);
    if (!file->open(QIODevice::ReadOnly)) {
        delete file;
        return fail(UploadFailed, QStringLiteral("上传文件出错。"));
    }
    auto* form = new QHttpMultiPart(QHttpMultiPart::FormDataType);
    QHttpPart user;
    user.setHeader(QNetworkRequest::ContentDispositionHeader,
                   QStringLiteral("form-data; name=\"userId\""));
    user.setBody(userId.toUtf8());
    form->append(user);
    QHttpPart body;
    const QString name = QFileInfo(localPath).fileName();
    // RFC 7578: the name goes as UTF-8 inside the quotes; quotes themselves are escaped.
    QString quoted = name;
    quoted.replace(QLatin1Char('"'), QStringLiteral("%22"));
    body.setHeader(QNetworkRequest::ContentDispositionHeader,
                   QStringLiteral("form-data; name=\"file\"; filename=\"%1\"").arg(quoted));
    body.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/octet-stream"));
    body.setBodyDevice(file);
    file->setParent(form);
    form->append(body);
    total_ = file->size();
    done_ = 0;
    state_ = Uploading;
    QNetworkReply* reply = Manager::instance()->network()->post(QNetworkRequest(QUrl(url)), form);
    form->setParent(reply);
    reply_ = reply;
    connect(reply, &QNetworkReply::uploadProgress, this, &FileTransfer::progress);
    connect(reply, &QNetworkReply::finished, this, &FileTransfer::finishUpload);
    emit changed();
}

void FileTransfer::finishUpload() {
    QNetworkReply* reply = reply_;
    if (!reply) return;
    reply->deleteLater();
    reply_.clear();
    if (state_ != Uploading) return;  // cancelled
    if (reply->error() != QNetworkReply::NoError)
        return fail(UploadFailed, QStringLiteral("上传文件出错。"));
    const Envelope envelope = Envelope::parse(reply->readAll());
    const QJsonObject r = envelope.results().toObject();
    fileId_ = r.value(QStringLiteral("id")).toVariant().toString();
    if (!envelope.isSuccess() || fileId_.isEmpty())
        return fail(UploadFailed, envelope.errorMsg().isEmpty() ? QStringLiteral("上传文件出错。")
                                                                : envelope.errorMsg());
    fileName_ = r.value(QStringLiteral("fileName")).toString();
    fileSize_ = r.value(QStringLiteral("fileSize")).toVariant().toLongLong();
    if (fileName_.isEmpty()) fileName_ = QFileInfo(localPath_).fileName();
    state_ = Uploaded;
    done_ = total_;
    emit changed();
    emit uploaded(fileId_, fileName_, fileSize_);
    emit finished(true);
}

void FileTransfer::download(const QString& url, const QString& targetPath) {
    cancel();
    failure_.clear();
    localPath_ = targetPath;
    QDir().mkpath(QFileInfo(targetPath).absolutePath());
    part_ = new QFile(targetPath + QStringLiteral(".part"));
    if (!part_->open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        delete part_;
        part_ = nullptr;
        return fail(DownloadFailed, QStringLiteral("保存文件：%1 失败。").arg(targetPath));
    }
    done_ = total_ = 0;
    state_ = Downloading;
    QNetworkReply* reply = Manager::instance()->network()->get(QNetworkRequest(QUrl(url)));
    reply_ = reply;
    connect(reply, &QNetworkReply::downloadProgress, this, &FileTransfer::progress);
    connect(reply, &QNetworkReply::readyRead, this, [this, reply] {
        if (part_ && part_->write(reply->readAll()) < 0) {
            reply->abort();
        }
    });
    connect(reply, &QNetworkReply::finished, this, &FileTransfer::finishDownload);
    emit changed();
}

void FileTransfer::finishDownload() {
    QNetworkReply* reply = reply_;
    if (!reply) return;
    reply->deleteLater();
    reply_.clear();
    if (state_ != Downloading || !part_) return;
    if (reply->bytesAvailable() > 0) part_->write(reply->readAll());
    const bool attachment = reply->hasRawHeader("Content-Disposition");
    const bool ok = reply->error() == QNetworkReply::NoError && attachment && part_->flush();
    part_->close();
    const QString partPath = part_->fileName();
    delete part_;
    part_ = nullptr;
    if (!ok) {
        QFile::remove(partPath);
        return fail(DownloadFailed,
                    QStringLiteral("下载文件：%1 失败。").arg(QFileInfo(localPath_).fileName()));
    }
    QFile::remove(localPath_);  // the user agreed to replace it
    if (!QFile::rename(partPath, localPath_)) {
        QFile::remove(partPath);
        return fail(DownloadFailed, QStringLiteral("保存文件：%1 失败。").arg(localPath_));
    }
    state_ = Downloaded;
    emit changed();
    emit finished(true);
}

void FileTransfer::cancel() {
    if (!busy()) return;
    const State was = state_;
    state_ = was == Uploading ? UploadFailed : DownloadFailed;
    if (reply_) reply_->abort();
    if (part_) {
        part_->remove();
        delete part_;
        part_ = nullptr;
    }
    failure_.clear();
    emit changed();
    emit finished(false);
}

void FileTransfer::progress(qint64 done, qint64 total) {
    done_ = done;
    if (total > 0) total_ = total;
    emit changed();
}

void FileTransfer::fail(State state, const QString& why) {
    state_ = state;
    failure_ = why;
    emit changed();
    emit finished(false);
}

}  // namespace qx_output
