#include "sdk/media_transfer.h"

#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSaveFile>
#include <memory>

namespace {
constexpr int kTransferTimeoutMs = 60000;
}

MediaTransfer::MediaTransfer(QObject* parent)
    : QObject(parent), network_(new QNetworkAccessManager(this)) {}

void MediaTransfer::upload(const QUrl& putUrl, const QMap<QString, QString>& headers,
                           const QString& file, const QString& mimeType, Done done) {
    auto* source = new QFile(file);
    if (!source->open(QIODevice::ReadOnly)) {
        delete source;
        done(false, QStringLiteral("cannot read %1").arg(file));
        return;
    }
    QNetworkRequest request(putUrl);
    request.setTransferTimeout(kTransferTimeoutMs);
    request.setHeader(QNetworkRequest::ContentTypeHeader, mimeType);
    request.setHeader(QNetworkRequest::ContentLengthHeader, source->size());
    for (auto it = headers.begin(); it != headers.end(); ++it)
        request.setRawHeader(it.key().toUtf8(), it.value().toUtf8());
    QNetworkReply* reply = network_->put(request, source);
    source->setParent(reply);
    connect(reply, &QNetworkReply::finished, this, [reply, done] {
        reply->deleteLater();
        if (reply->error() != QNetworkReply::NoError)
            done(false, reply->errorString());
        else
            done(true, QString());
    });
}

void MediaTransfer::download(const QUrl& url, const QString& target, Done done) {
    if (target.isEmpty()) {
        done(false, QStringLiteral("no receive folder"));
        return;
    }
    auto out = std::make_shared<QSaveFile>(target);
    if (!out->open(QIODevice::WriteOnly)) {
        done(false, QStringLiteral("cannot write %1").arg(target));
        return;
    }
    QNetworkRequest request(url);
    request.setTransferTimeout(kTransferTimeoutMs);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::NoLessSafeRedirectPolicy);
    QNetworkReply* reply = network_->get(request);
    auto tooBig = std::make_shared<bool>(false);
    connect(reply, &QNetworkReply::readyRead, this, [reply, out, tooBig] {
        if (*tooBig) return;
        if (out->size() + reply->bytesAvailable() > kMaxDownloadBytes) {
            *tooBig = true;
            reply->abort();
            return;
        }
        out->write(reply->readAll());
    });
    connect(reply, &QNetworkReply::finished, this, [reply, out, tooBig, target, done] {
        reply->deleteLater();
        if (!*tooBig && reply->error() == QNetworkReply::NoError) {
            out->write(reply->readAll());
            if (out->commit()) {
                done(true, target);
                return;
            }
        }
        out->cancelWriting();
        done(false, *tooBig ? QStringLiteral("file too large") : reply->errorString());
    });
}
