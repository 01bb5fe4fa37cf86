#include "requester.h"

#include <QNetworkAccessManager>
#include <QNetworkRequest>
#include <QUrl>

#include "configstore.h"
#include "envelope.h"

namespace {
QNetworkRequest formRequest(const QString& url) {
    QNetworkRequest request(QUrl(url, QUrl::TolerantMode));
    // The back end wants the form content type on every request, GETs included.
    request.setHeader(QNetworkRequest::ContentTypeHeader,
                      QStringLiteral("application/x-www-form-urlencoded"));
    return request;
}
}  // namespace

Requester::Requester(QNetworkAccessManager* network, QObject* parent)
    : QObject(parent),
      network_(network ? network : new QNetworkAccessManager(this)),
      loginUrl_(ConfigStore::instance().url(UrlTable::UrlLogin)),
      clock_([] { return QDateTime::currentDateTime(); }) {}

Requester::Form Requester::loginForm(const QString& userName, const QString& password) {
    return {{QStringLiteral("username"), userName},
            {QStringLiteral("password"), password},
            {QStringLiteral("client"), QStringLiteral("3")}};
}

QByteArray Requester::encodeForm(const Form& form) {
    // Every byte outside the unreserved set is escaped. QUrlQuery would leave '+' (read as
    // a space by form decoders) and decode "%41" inside a value, changing passwords.
    QByteArray body;
    for (const auto& pair : form) {
        if (!body.isEmpty()) body += '&';
        body += QUrl::toPercentEncoding(pair.first) + '=' + QUrl::toPercentEncoding(pair.second);
    }
    return body;
}

void Requester::setCredentials(const QString& userName, const QString& password) {
    userName_ = userName;
    password_ = password;
}

void Requester::setAuthorised(const QDateTime& at, const QString& md5Sign) {
    lastAuthorised_ = at;
    md5Sign_ = md5Sign;
}

bool Requester::get(const QString& url, Handler handler, ErrorHandler onError) {
    QNetworkReply* reply = network_->get(formRequest(url));
    if (!reply) return false;
    connect(reply, &QNetworkReply::finished, this,
            [this, reply, handler = std::move(handler), onError = std::move(onError)] {
                finish(reply, handler, onError);
            });
    return true;
}

bool Requester::get(const QString& url, TaggedHandler handler, const QString& a, const QString& b,
                    ErrorHandler onError) {
    return get(
        url, [handler = std::move(handler), a, b](const QByteArray& body) { handler(body, a, b); },
        std::move(onError));
}

bool Requester::post(const QString& url, const Form& form, Handler handler, ErrorHandler onError) {
    QNetworkRequest request = formRequest(url);
    const QByteArray body = encodeForm(form);
    request.setHeader(QNetworkRequest::ContentLengthHeader, body.size());
    QNetworkReply* reply = network_->post(request, body);
    if (!reply) return false;
    connect(reply, &QNetworkReply::finished, this,
            [this, reply, handler = std::move(handler), onError = std::move(onError)] {
                finish(reply, handler, onError);
            });
    return true;
}

void Requester::finish(QNetworkReply* reply, const std::function<void(const QByteArray&)>& onBody,
                       const ErrorHandler& onError) {
    if (reply->error() == QNetworkReply::NoError) {
        if (onBody) onBody(reply->readAll());
    } else if (onError) {
        onError(reply->errorString());
    }
    reply->deleteLater();
}

void Requester::whenAuthorised(std::function<void()> request, ErrorHandler onError) {
    const QDateTime now = clock_();
    if (lastAuthorised_.isValid() && lastAuthorised_.secsTo(now) <= kAuthorisationSeconds) {
        request();
        return;
    }
    const bool sent = post(
        loginUrl_, loginForm(userName_, password_),
        [this, request, onError](const QByteArray& body) {
            const Envelope e = Envelope::parse(body);
            if (!e.isSuccess()) {
                if (onError)
                    onError(e.errorMsg().isEmpty() ? QStringLiteral("authorisation refused")
                                                   : e.errorMsg());
                return;
            }
            lastAuthorised_ = clock_();
            const QString sign = e.member(QStringLiteral("md5Sign")).toString();
            if (!sign.isEmpty()) md5Sign_ = sign;
            emit authorised(md5Sign_);
            request();
        },
        onError);
    if (!sent && onError) onError(QStringLiteral("request refused"));
}

void Requester::postSigned(const QString& url, const Form& form, Handler handler,
                           ErrorHandler onError) {
    whenAuthorised(
        [this, url, form, handler, onError] {
            if (!post(url, form, handler, onError) && onError)
                onError(QStringLiteral("request refused"));
        },
        onError);
}
