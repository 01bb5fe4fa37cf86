#include "sdk/stream_acks.h"

#include "sdk/socket_guard.h"

#include <QXmppClient.h>
#include <QXmppOutgoingClient.h>
#include <QRegularExpression>

namespace {

// The h attribute of a start tag, or -1.
qint64 handledCount(const QByteArray& startTag) {
    static const QRegularExpression h(QStringLiteral("\\sh\\s*=\\s*['\"](\\d{1,10})['\"]"));
    const QRegularExpressionMatch m = h.match(QString::fromLatin1(startTag));
    if (!m.hasMatch()) return -1;
    const qint64 value = m.captured(1).toLongLong();
    return value <= 0xffffffffLL ? value : -1;
}

QByteArray elementName(const QByteArray& startTag) {
    int end = 1;
    while (end < startTag.size() && startTag[end] != ' ' && startTag[end] != '/' &&
           startTag[end] != '>' && startTag[end] != '\t' && startTag[end] != '\n')
        ++end;
    return startTag.mid(1, end - 1);
}

bool isStanza(const QString& text) {
    return text.startsWith(QLatin1String("<message")) || text.startsWith(QLatin1String("<iq")) ||
           text.startsWith(QLatin1String("<presence"));
}

}  // namespace

StreamAcks::StreamAcks(QXmppClient* client, SocketGuard* guard, QObject* parent)
    : QObject(parent), stream_(client->findChild<QXmppOutgoingClient*>()) {
    // Every write of the stream is logged through the client, whether or not a logger
    // listens: the one place where the stanzas QXmpp writes itself can be counted too.
    connect(client, &QXmppLoggable::logMessage, this, &StreamAcks::onLog);
    connect(guard, &SocketGuard::sessionElement, this, &StreamAcks::onSessionElement);
    connect(client, &QXmppClient::disconnected, this, [this] {
        managed_ = false;
        dropStreamCache();
        handBack();
    });
}

bool StreamAcks::follow(const QString& key) {
    if (!managed_) return false;
    waiting_.push_back({written_, key});
    return true;
}

bool StreamAcks::isWaiting(const QString& key) const {
    for (const Followed& f : waiting_)
        if (f.key == key) return true;
    return false;
}

void StreamAcks::forget(const QString& key) {
    for (auto it = waiting_.begin(); it != waiting_.end(); ++it) {
        if (it->key == key) {
            waiting_.erase(it);
            return;
        }
    }
}

void StreamAcks::onLog(QXmppLogger::MessageType type, const QString& text) {
    if (type != QXmppLogger::SentMessage || !managed_) return;
    if (isStanza(text)) ++written_;
}

void StreamAcks::onSessionElement(const QByteArray& startTag) {
    const QByteArray name = elementName(startTag);
    if (name == "a") {
        const qint64 h = handledCount(startTag);
        if (h >= 0 && managed_) confirmUpTo(quint32(h));
    } else if (name == "enabled") {
        // A new stream, counted from zero: what the old one left unconfirmed goes back.
        handBack();
        managed_ = true;
        written_ = 0;
    } else if (name == "resumed") {
        // The old stream goes on: the server says how far it got; what it did not get
        // goes back (the client's own copy of it was dropped when the connection broke).
        const qint64 h = handledCount(startTag);
        if (h < 0) return;
        confirmUpTo(quint32(h));
        handBack();
        managed_ = true;
        written_ = quint32(h);  // the server numbers the next stanza h + 1
    } else if (name == "failed") {
        const qint64 h = handledCount(startTag);
        if (h >= 0) confirmUpTo(quint32(h));
        handBack();
        managed_ = false;
    }
}

void StreamAcks::confirmUpTo(quint32 handled) {
    // The counter wraps at 2^32 on both sides: compare distances, not values.
    while (!waiting_.empty() && qint32(handled - waiting_.front().number) >= 0) {
        const QString key = waiting_.front().key;
        waiting_.pop_front();
        emit confirmed(key);
    }
}

void StreamAcks::handBack() {
    if (waiting_.empty()) return;
    QStringList keys;
    for (const Followed& f : waiting_) keys << f.key;
    waiting_.clear();
    emit unconfirmed(keys);
}

void StreamAcks::dropStreamCache() {
    // QXmpp would write its unconfirmed stanzas again on the next stream by itself, queries
    // of a session long gone included, and under new numbers we could not follow.
    if (stream_) stream_->resetPacketCache();
}
