#include "sdk/media_transfer.h"

#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSaveFile>
#include <QSslConfiguration>
#include <QTimer>
#include <memory>

#include "sdk/stream_security.h"

namespace {
constexpr int kTransferTimeoutMs = 60000;
}

MediaTransfer::MediaTransfer(QObject* parent)
    : QObject(parent), network_(new QNetworkAccessManager(this)) {}

QNetworkRequest MediaTransfer::request(const QUrl& url) const {
    QNetworkRequest request(url);
    request.setTransferTimeout(kTransferTimeoutMs);
    if (!authorities_.isEmpty()) {
        QSslConfiguration ssl = QSslConfiguration::defaultConfiguration();
        ssl.setCaCertificates(authorities_);
        request.setSslConfiguration(ssl);
    }
    return request;
}

void MediaTransfer::upload(const QUrl& putUrl, const QMap<QString, QString>& headers,
                           const QString& file, const QString& mimeType, Done done) {
    if (!StreamSecurity::mayTransfer(putUrl)) {
        done(false, QStringLiteral("the upload address %1 is not encrypted")
                        .arg(putUrl.toString(QUrl::RemoveQuery | QUrl::RemoveUserInfo)));
        return;
    }
    auto* source = new QFile(file);
    if (!source->open(QIODevice::ReadOnly)) {
        delete source;
        done(false, QStringLiteral("cannot read %1").arg(file));
        return;
    }
    QNetworkRequest request = this->request(putUrl);
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
    if (!StreamSecurity::mayTransfer(url)) {
        done(false, QStringLiteral("the file's address %1 is not encrypted")
                        .arg(url.toString(QUrl::RemoveQuery | QUrl::RemoveUserInfo)));
        return;
    }
    auto out = std::make_shared<QSaveFile>(target);
    if (!out->open(QIODevice::WriteOnly)) {
        done(false, QStringLiteral("cannot write %1").arg(target));
        return;
    }
    QNetworkRequest request = this->request(url);
    // A redirect is followed only where the file could have been fetched in the first place.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::UserVerifiedRedirectPolicy);
    QNetworkReply* reply = network_->get(request);
    // Why the download was cut short, when it was.
    auto refused = std::make_shared<QString>();
    auto cut = [reply, refused](const QString& why) {
        if (!refused->isEmpty()) return;
        *refused = why;
        reply->abort();
    };
    connect(reply, &QNetworkReply::redirected, reply, [reply, cut](const QUrl& to) {
        if (StreamSecurity::mayTransfer(to))
            emit reply->redirectAllowed();
        else
            cut(QStringLiteral("redirected to %1, which is not encrypted")
                    .arg(to.toString(QUrl::RemoveQuery | QUrl::RemoveUserInfo)));
    });
    // Both timers are the reply's children and go with it.
    auto* deadline = new QTimer(reply);
    deadline->setSingleShot(true);
    connect(deadline, &QTimer::timeout, reply, [cut, ms = limits_.deadlineMs] {
        cut(QStringLiteral("not finished within %1 s").arg(ms / 1000));
    });
    deadline->start(limits_.deadlineMs);
    auto* rate = new QTimer(reply);
    auto windowStart = std::make_shared<qint64>(0);
    connect(rate, &QTimer::timeout, reply, [out, windowStart, cut, limits = limits_] {
        const qint64 got = out->size() - *windowStart;
        *windowStart = out->size();
        if (got < limits.minBytesPerWindow)
            cut(QStringLiteral("slower than %1 bytes in %2 s")
                    .arg(limits.minBytesPerWindow)
                    .arg(limits.rateWindowMs / 1000.0));
    });
    rate->start(limits_.rateWindowMs);
    connect(reply, &QNetworkReply::readyRead, this, [reply, out, refused, cut] {
        if (!refused->isEmpty()) return;
        if (out->size() + reply->bytesAvailable() > kMaxDownloadBytes) {
            cut(QStringLiteral("file too large"));
            return;
        }
        out->write(reply->readAll());
    });
    connect(reply, &QNetworkReply::finished, this, [reply, out, refused, target, done] {
        reply->deleteLater();
        if (refused->isEmpty() && reply->error() == QNetworkReply::NoError) {
            out->write(reply->readAll());
            if (out->commit()) {
                done(true, target);
                return;
            }
        }
        out->cancelWriting();
        const QString why = refused->isEmpty() ? reply->errorString() : *refused;
        qWarning().noquote() << "imsdk: download of" << reply->url().toString() << "failed:" << why;
        done(false, why);
    });
}
