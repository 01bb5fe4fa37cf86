#pragma once

#include <QDateTime>
#include <QNetworkReply>
#include <QObject>
#include <QPair>
#include <QVector>

#include <functional>

class QNetworkAccessManager;

// The layer under every conversation with the company back end: GET and form POST with
// the content type the back end expects, the 30-minute authorisation rule, and the
// completion step that hands a body to its handler only when the transfer succeeded.
// Each requester keeps its own credentials, session and last authorisation time: every
// request carries the session, and a request the back end answers with "not signed in"
// (its session lapsed or the back end restarted) is repeated once after signing in again.
class Requester : public QObject {
    Q_OBJECT
public:
    using Form = QVector<QPair<QString, QString>>;
    using Handler = std::function<void(const QByteArray& body)>;
    using TaggedHandler =
        std::function<void(const QByteArray& body, const QString& a, const QString& b)>;
    // Told of transfers that failed (network error, refused request, failed authorisation).
    using ErrorHandler = std::function<void(const QString& reason)>;
    using Clock = std::function<QDateTime()>;

    static constexpr qint64 kAuthorisationSeconds = 1800;

    explicit Requester(QNetworkAccessManager* network = nullptr, QObject* parent = nullptr);

    bool get(const QString& url, Handler handler, ErrorHandler onError = {});
    bool get(const QString& url, TaggedHandler handler, const QString& a, const QString& b,
             ErrorHandler onError = {});
    bool post(const QString& url, const Form& form, Handler handler, ErrorHandler onError = {});
    // A POST that first renews the authorisation when it is older than 30 minutes.
    void postSigned(const QString& url, const Form& form, Handler handler,
                    ErrorHandler onError = {});
    // Runs `request` at once while the authorisation is fresh, else after renewing it;
    // when renewal fails the request is dropped and onError told.
    void whenAuthorised(std::function<void()> request, ErrorHandler onError = {});

    void setCredentials(const QString& userName, const QString& password);
    void setLoginUrl(const QString& url) { loginUrl_ = url; }
    void setAuthorised(const QDateTime& at, const QString& md5Sign);
    // The back end's session id from the last log-in; sent as the session cookie.
    void setSession(const QString& sessionId) { session_ = sessionId; }
    const QString& session() const { return session_; }
    const QString& userName() const { return userName_; }
    const QDateTime& lastAuthorised() const { return lastAuthorised_; }
    const QString& md5Sign() const { return md5Sign_; }
    void setClock(Clock clock) { clock_ = std::move(clock); }
    QNetworkAccessManager* network() const { return network_; }

    // The authorisation form: exactly these three pairs, in this order.
    static Form loginForm(const QString& userName, const QString& password);
    static QByteArray encodeForm(const Form& form);

signals:
    // After a renewal succeeded (the token may have changed).
    void authorised(const QString& md5Sign);

private:
    // One GET (empty `form`, !isPost) or form POST; `mayRetry`: a "not signed in" answer
    // signs in again and sends it once more.
    bool send(const QString& url, bool isPost, const Form& form, Handler handler,
              ErrorHandler onError, bool mayRetry);
    void finish(QNetworkReply* reply, const std::function<void(const QByteArray&)>& onBody,
                const ErrorHandler& onError);
    // Signs in with the stored credentials; `done(true)` once the new session is kept.
    bool signInAgain(std::function<void(bool)> done);
    QNetworkRequest request(const QString& url) const;

    QNetworkAccessManager* network_;
    QString userName_;
    QString password_;
    QString loginUrl_;
    QDateTime lastAuthorised_;
    QString md5Sign_;
    QString session_;
    Clock clock_;
};
