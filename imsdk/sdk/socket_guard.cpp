#include "sdk/socket_guard.h"

#include <QXmppClient.h>
#include <QXmppOutgoingClient.h>
#include <QSslSocket>

// QXmpp declares a class of this name a friend of its stream (for its own unit tests). It is
// the one way to hand the stream bytes that were read and screened elsewhere; the class is
// defined nowhere else in this program.
class tst_QXmppStream {
public:
    static void process(QXmppStream* stream, const QByteArray& data) {
        stream->processData(QString::fromUtf8(data));
    }
};

SocketGuard::SocketGuard(QXmppClient* client, const StanzaGuard::Limits& limits,
                         const Reporting& reporting)
    : QObject(client), guard_(limits), reporting_(reporting) {
    stream_ = client->findChild<QXmppOutgoingClient*>();
    socket_ = stream_ ? stream_->socket() : nullptr;
    if (!socket_) {
        qWarning().noquote() << reporting_.logName + QStringLiteral(":")
                             << "no socket to guard; deep or huge stanzas are not refused";
        return;
    }
    // The stream's own reader goes; ours reads instead and passes on what is safe.
    QObject::disconnect(socket_, &QIODevice::readyRead, stream_, nullptr);
    connect(socket_, &QIODevice::readyRead, this, &SocketGuard::onReadyRead);
    connect(socket_, &QAbstractSocket::connected, this, [this] { guard_.reset(); });
    connect(socket_, &QAbstractSocket::disconnected, this, [this] { guard_.reset(); });
    installed_ = true;
}

void SocketGuard::onReadyRead() {
    if (!socket_ || !stream_) return;
    // One buffer for every read: a fresh one per read, sized to what the socket holds, cost
    // more in the allocator than the copy it saves.
    if (readBuffer_.size() != kReadChunk) readBuffer_.resize(kReadChunk);
    qint64 got = 0;
    while (socket_ && (got = socket_->read(readBuffer_.data(), kReadChunk)) > 0) {
        if (guard_.broken()) continue;  // drained and dropped
        const QByteArray& safe = guard_.feed(readBuffer_.constData(), got);
        for (const StanzaGuard::Refusal& r : guard_.takeRefusals()) {
            if (r.element != "message" || !reporting_.sessionReportsMessages)
                qWarning().noquote()
                    << reporting_.logName + QStringLiteral(": refused a <") +
                           QString::fromLatin1(r.element) + QStringLiteral("> from the server:")
                    << r.reason;
        }
        for (const QByteArray& tag : guard_.takeSessionTags()) emit sessionElement(tag);
        if (!safe.isEmpty() && stream_) tst_QXmppStream::process(stream_, safe);
        if (guard_.broken()) {
            qWarning().noquote() << reporting_.logName +
                                        QStringLiteral(": closing the connection, the server sent")
                                 << guard_.brokenReason();
            socket_->abort();
            return;
        }
        if (!stream_) return;
    }
}
