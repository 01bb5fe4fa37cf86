#include "requester.h"

#include "companytrust.h"

#include <QNetworkAccessManager>
#include <QNetworkCookie>
#include <QNetworkRequest>
#include <QUrl>

#include "configstore.h"
#include "envelope.h"

namespace {
// The back end's "not signed in".
constexpr int kNotSignedIn = 1003;

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

QNetworkRequest Requester::request(const QString& url) const {
    QNetworkRequest r = formRequest(url);
    // The back end answers data addresses only within a session. The cookie jar would send
    // it too, but only for the host that set it; the session is ours whatever the jar holds.
    if (!session_.isEmpty() && url != loginUrl_) {
        r.setHeader(QNetworkRequest::CookieHeader,
                    QVariant::fromValue(QList<QNetworkCookie>{
                        QNetworkCookie(QByteArrayLiteral("QXSESSION"), session_.toLatin1())}));
    }
    return r;
}

bool Requester::get(const QString& url, Handler handler, ErrorHandler onError) {
    return send(url, false, {}, std::move(handler), std::move(onError), true);
}

bool Requester::send(const QString& url, bool isPost, const Form& form, Handler handler,
                     ErrorHandler onError, bool mayRetry) {
    for (const auto& pair : form) {
        if (pair.first == QLatin1String("password") && !CompanyTrust::mayCarrySecrets(QUrl(url))) {
            qWarning("Requester: a password is not sent in clear to %s",
                     qPrintable(QUrl(url).toString(QUrl::RemoveQuery | QUrl::RemoveUserInfo)));
            return false;
        }
    }
    QNetworkRequest r = request(url);
    QNetworkReply* reply = nullptr;
    if (isPost) {
        const QByteArray body = encodeForm(form);
        r.setHeader(QNetworkRequest::ContentLengthHeader, body.size());
        reply = network_->post(r, body);
    } else {
        reply = network_->get(r);
    }
    if (!reply) return false;
    // Log-ins are never repeated, and only once we know who to sign in as.
    const bool retry = mayRetry && url != loginUrl_ && !userName_.isEmpty();
    auto onBody = [this, url, isPost, form, handler, onError, retry](const QByteArray& body) {
        if (retry && Envelope::parse(body).errorCode() == kNotSignedIn) {
            const bool sent = signInAgain([=](bool signedIn) {
                // A failed sign-in hands the original refusal on: it is not a success.
                if (!signedIn || !send(url, isPost, form, handler, onError, false)) {
                    if (handler) handler(body);
                }
            });
            if (sent) return;
        }
        if (handler) handler(body);
    };
    connect(reply, &QNetworkReply::finished, this,
            [this, reply, onBody, onError] { finish(reply, onBody, onError); });
    return true;
}

bool Requester::signInAgain(std::function<void(bool)> done) {
    qInfo("Requester: the back end's session lapsed; signing in again");
    return send(
        loginUrl_, true, loginForm(userName_, password_),
        [this, done](const QByteArray& body) {
            const Envelope e = Envelope::parse(body);
            if (!e.isSuccess()) {
                qWarning("Requester: signing in again refused (%d)", e.errorCode());
                return done(false);
            }
            lastAuthorised_ = clock_();
            const QString session = e.member(QStringLiteral("sessionId")).toString();
            if (!session.isEmpty()) session_ = session;
            const QString sign = e.member(QStringLiteral("md5Sign")).toString();
            if (!sign.isEmpty()) md5Sign_ = sign;
            emit authorised(md5Sign_);
            done(true);
        },
        [done](const QString& reason) {
            qWarning("Requester: signing in again failed: %s", qPrintable(reason));
            done(false);
        },
        false);
}

bool Requester::get(const QString& url, TaggedHandler handler, const QString& a, const QString& b,
                    ErrorHandler onError) {
    return get(
        url, [handler = std::move(handler), a, b](const QByteArray& body) { handler(body, a, b); },
        std::move(onError));
}

bool Requester::post(const QString& url, const Form& form, Handler handler, ErrorHandler onError) {
    return send(url, true, form, std::move(handler), std::move(onError), true);
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
            const QString session = e.member(QStringLiteral("sessionId")).toString();
            if (!session.isEmpty()) session_ = session;
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
