#include "httpfixture.h"

#include <QPointer>
#include <QTcpSocket>
#include <QTimer>

HttpFixture::HttpFixture(Handler handler, QObject* parent)
    : QObject(parent), handler_(std::move(handler)) {
    server_.listen(QHostAddress::LocalHost, 0);
    connect(&server_, &QTcpServer::newConnection, this, &HttpFixture::onConnection);
}

QString HttpFixture::url(const QString& path) const {
    return QStringLiteral("http://127.0.0.1:%1%2").arg(server_.serverPort()).arg(path);
}

void HttpFixture::onConnection() {
    while (QTcpSocket* socket = server_.nextPendingConnection()) {
        auto buffer = std::make_shared<QByteArray>();
        auto busy = std::make_shared<bool>(false);
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QTcpSocket::readyRead, this, [this, socket, buffer, busy] {
            buffer->append(socket->readAll());
            if (*busy) return;
            const int end = buffer->indexOf("\r\n\r\n");
            if (end < 0) return;
            Request r;
            const QList<QByteArray> lines = buffer->left(end).split('\n');
            const QList<QByteArray> first = lines.value(0).trimmed().split(' ');
            r.method = first.value(0);
            r.target = first.value(1);
            for (int i = 1; i < lines.size(); ++i) {
                const int colon = lines[i].indexOf(':');
                if (colon > 0)
                    r.headers.insert(lines[i].left(colon).trimmed().toLower(),
                                     lines[i].mid(colon + 1).trimmed());
            }
            const int length = r.headers.value("content-length").toInt();
            if (buffer->size() < end + 4 + length) return;
            r.body = buffer->mid(end + 4, length);
            buffer->remove(0, end + 4 + length);
            requests_.append(r);
            *busy = true;
            maxConcurrent_ = qMax(maxConcurrent_, ++open_);
            const Response response = handler_ ? handler_(r) : Response();
            QPointer<QTcpSocket> guard(socket);
            QTimer::singleShot(response.delayMs, this, [this, guard, response, busy] {
                --open_;
                *busy = false;
                if (!guard) return;
                if (response.dropConnection) {
                    guard->abort();
                    return;
                }
                QByteArray out = "HTTP/1.1 " + QByteArray::number(response.status) + " X\r\n";
                out += "Content-Type: " + response.contentType + "\r\n";
                out += "Content-Length: " + QByteArray::number(response.body.size()) + "\r\n\r\n";
                out += response.body;
                guard->write(out);
            });
        });
    }
}
