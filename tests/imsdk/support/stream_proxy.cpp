#include "stream_proxy.h"

#include <QHostAddress>
#include <QTcpSocket>

StreamProxy::StreamProxy(const QString& host, quint16 port) : host_(host), port_(port) {
    connect(&server_, &QTcpServer::newConnection, this, &StreamProxy::onConnection);
}

bool StreamProxy::listen() { return server_.listen(QHostAddress::LocalHost); }

void StreamProxy::onConnection() {
    while (QTcpSocket* client = server_.nextPendingConnection()) {
        clients_.append(client);
        auto* upstream = new QTcpSocket(client);
        connect(client, &QTcpSocket::readyRead, upstream, [this, client, upstream] {
            const QByteArray data = client->readAll();
            if (!swallowing_) upstream->write(data);
        });
        connect(upstream, &QTcpSocket::readyRead, client, [this, client, upstream] {
            QByteArray data = upstream->readAll();
            if (dropping_) return;
            bool rewritten = false;
            for (const auto& rule : qAsConst(rules_)) {
                if (!data.contains(rule.first)) continue;
                data.replace(rule.first, rule.second);
                ++rewrites_;
                rewritten = true;
            }
            client->write(data);
            if (rewritten) lastRewrite_.start();
        });
        connect(client, &QTcpSocket::disconnected, upstream, &QTcpSocket::disconnectFromHost);
        connect(upstream, &QTcpSocket::disconnected, client, &QTcpSocket::disconnectFromHost);
        connect(client, &QTcpSocket::disconnected, client, &QObject::deleteLater);
        // Data the client sends before the server answers waits in the socket's buffer.
        upstream->connectToHost(host_, port_);
    }
}

void StreamProxy::cut() {
    for (const QPointer<QTcpSocket>& client : qAsConst(clients_)) {
        if (!client) continue;
        for (QTcpSocket* upstream : client->findChildren<QTcpSocket*>()) upstream->abort();
        client->abort();
        client->deleteLater();
    }
    clients_.clear();
}
