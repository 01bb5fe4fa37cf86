#include "attachmenthandler.h"

#include "apihelpers.h"
#include "avatarpainter.h"
#include "directory.h"
#include "filestore.h"
#include "gatedstream.h"
#include "replyenvelope.h"
#include "requestaccess.h"
#include "uploadreceiver.h"

#include <httplib.h>

#include <QJsonObject>
#include <QUrl>

using api::fail;
using api::ok;
using api::parseId;
using api::reply;

AttachmentHandler::AttachmentHandler(Directory* directory, const RequestAccess* access,
                                     FileStore* files, const QString& publicUrl)
    : directory_(directory), access_(access), files_(files), publicUrl_(publicUrl) {}

void AttachmentHandler::upload(const httplib::Request& req, httplib::Response& res,
                               const httplib::ContentReader& reader) {
    GatedStream* stream = GatedStream::current();
    // Until the body has been read to its end, the connection cannot carry another request.
    if (stream) stream->closeAfterReply();
    if (!req.is_multipart_form_data()) return fail(res, req, ReplyEnvelope::BadParameter);
    // Always in the caller's own name; a userId field is not trusted. Nobody else's body is
    // read at all.
    const qint64 owner = access_->signedIn(req, res);
    if (owner == 0) return;
    UploadReceiver upload(files_);
    const UploadReceiver::Outcome outcome = upload.receive(reader);
    if (outcome == UploadReceiver::TooLarge || (stream && stream->bodyTooLarge())) {
        res.status = 413;
        qInfo("%s refused (1007): file over %lld bytes", req.path.c_str(), files_->maxBytes());
        return fail(res, req, ReplyEnvelope::FileTooLarge);
    }
    if (outcome == UploadReceiver::WriteFailed) {
        qWarning("%s failed: cannot write the file: %s", req.path.c_str(),
                 qPrintable(upload.errorString()));
        res.status = 500;
        return fail(res, req, ReplyEnvelope::InternalError);
    }
    if (outcome != UploadReceiver::Received) {
        if (stream && stream->timedOut()) res.status = 408;
        qInfo("%s refused (1001): %s", req.path.c_str(),
              outcome == UploadReceiver::NoFile ? "no file part"
                                                : "the body ended early or too slowly");
        return fail(res, req, ReplyEnvelope::BadParameter);
    }
    if (stream) stream->keepAfterReply();
    const QString name = FileStore::sanitizeName(upload.clientName());
    if (name.isEmpty()) return fail(res, req, ReplyEnvelope::BadFileName);
    if (!upload.commit()) {
        qWarning("%s failed: cannot keep the file: %s", req.path.c_str(),
                 qPrintable(upload.errorString()));
        res.status = 500;
        return fail(res, req, ReplyEnvelope::InternalError);
    }
    const qint64 id = directory_->addAttachment(owner, name, upload.storedName(), upload.size());
    if (id == 0) {
        // Not recorded, so not kept: a file nobody can download is only a leak.
        files_->remove(upload.storedName());
        return;  // the database failure is answered by guarded()
    }
    ok(res, req,
       QJsonObject{
           {QStringLiteral("id"), QString::number(id)},
           {QStringLiteral("fileName"), name},
           {QStringLiteral("fileSize"), QString::number(upload.size())},
           {QStringLiteral("url"), publicUrl_ + QStringLiteral("/work/attachment/%1").arg(id)}});
}

void AttachmentHandler::download(const httplib::Request& req, httplib::Response& res,
                                 const QString& idText) {
    const qint64 caller = access_->signedIn(req, res);
    if (caller == 0) return;
    qint64 id = 0;
    if (!parseId(idText, &id)) return fail(res, req, ReplyEnvelope::BadParameter);
    QString name;
    QString stored;
    qint64 size = 0;
    qint64 owner = 0;
    if (!directory_->attachment(id, &name, &stored, &size, &owner))
        return fail(res, req, ReplyEnvelope::NotFound);
    if (!access_->sameCompany(req, res, caller, directory_->companyOf(owner))) return;
    const QString path = files_->pathOf(stored);
    // Streamed, so concurrent downloads do not each hold a whole file.
    if (path.isEmpty() || !api::replyFile(res, path, "application/octet-stream"))
        return fail(res, req, ReplyEnvelope::NotFound);
    res.set_header("Content-Disposition",
                   ("attachment; filename*=UTF-8''" + QUrl::toPercentEncoding(name)).toStdString());
}

void AttachmentHandler::avatar(httplib::Response& res, const QString& idText) {
    qint64 id = 0;
    if (!parseId(idText, &id) || directory_->companyOf(id) == 0) {
        res.status = 404;
        return reply(res, ReplyEnvelope::failure(ReplyEnvelope::NotFound));
    }
    reply(res, AvatarPainter::png(id), "image/png");
}
