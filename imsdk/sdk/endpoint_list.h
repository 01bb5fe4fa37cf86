#pragma once

#include <QString>
#include <QVector>

// The XMPP endpoints of one service, tried in order: a cluster's nodes, or one server. A
// session keeps to the endpoint that worked and moves on to the next when it cannot get a
// stream from it, so a node going down costs a reconnect, not the service.
class EndpointList {
public:
    struct Endpoint {
        QString host;
        int port = 5222;
    };

    EndpointList() = default;
    // "host", "host:port" or several of them separated by commas; a host without a port
    // gets defaultPort. Square brackets keep an IPv6 address whole ("[::1]:5222"). Empty
    // when the text has a bad entry, which `error` then names.
    static EndpointList parse(const QString& text, int defaultPort, QString* error = nullptr);

    bool isEmpty() const { return endpoints_.isEmpty(); }
    int size() const { return int(endpoints_.size()); }
    const QVector<Endpoint>& endpoints() const { return endpoints_; }
    // The endpoint to try now.
    const Endpoint& current() const;
    // Moves to the next endpoint; true when that starts a new round through the list (the
    // moment a session's pause before trying again should grow).
    bool advance();
    // Back to the first endpoint (the preferred one).
    void rewind() { at_ = 0; }
    // "host:port,host:port", as parse() reads it.
    QString toString() const;

private:
    QVector<Endpoint> endpoints_;
    int at_ = 0;
};
