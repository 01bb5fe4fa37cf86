#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QTcpServer>

#include <functional>

// A small HTTP/1.1 server on loopback for what a real back end cannot be made to do on
// demand: garbage replies, dropped connections, slow answers.
class HttpFixture : public QObject {
    Q_OBJECT
public:
    struct Request {
        QByteArray method;
        QByteArray target;                      // path and query as sent
        QHash<QByteArray, QByteArray> headers;  // names in lower case
        QByteArray body;
    };
    struct Response {
        int status = 200;
        QByteArray body;
        QByteArray contentType = "application/json;charset=UTF-8";
        bool dropConnection = false;  // close without answering
        int delayMs = 0;
    };
    using Handler = std::function<Response(const Request&)>;

    explicit HttpFixture(Handler handler, QObject* parent = nullptr);
    QString url(const QString& path = QString()) const;
    const QList<Request>& requests() const { return requests_; }
    int maxConcurrent() const { return maxConcurrent_; }
    void setHandler(Handler handler) { handler_ = std::move(handler); }

private:
    void onConnection();

    QTcpServer server_;
    Handler handler_;
    QList<Request> requests_;
    int open_ = 0;
    int maxConcurrent_ = 0;
};
