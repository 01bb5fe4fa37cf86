#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>

#include <QXmppLogger.h>

#include <deque>

class QXmppClient;
class QXmppOutgoingClient;
class SocketGuard;

// What the server has taken of ours, by its stream-management acknowledgements: stanzas
// written on a managed stream are counted as the server counts them, and its <a h='n'/>
// confirms every followed stanza up to the n-th. The client's own re-sending of unconfirmed
// stanzas is switched off: what the server never confirmed is handed back to the owner, who
// knows what is worth sending again (a message is; a query of a session gone is not).
// Lives on the session's thread.
class StreamAcks : public QObject {
    Q_OBJECT
public:
    StreamAcks(QXmppClient* client, SocketGuard* guard, QObject* parent = nullptr);

    // True while the current stream is managed: followed stanzas get confirmed.
    bool managed() const { return managed_; }
    // Follows the stanza that was just written, by the caller's key. False when the stream
    // is not managed: nothing will confirm it.
    bool follow(const QString& key);
    // Followed and not confirmed yet.
    int waiting() const { return int(waiting_.size()); }
    bool isWaiting(const QString& key) const;
    // Stops following a key (its owner gave up on it).
    void forget(const QString& key);

signals:
    void confirmed(const QString& key);
    // The stream ended or was replaced without confirming these (in the order written);
    // they are no longer followed.
    void unconfirmed(const QStringList& keys);

private:
    void onLog(QXmppLogger::MessageType type, const QString& text);
    void onSessionElement(const QByteArray& startTag);
    void confirmUpTo(quint32 handled);
    void handBack();
    void dropStreamCache();

    struct Followed {
        quint32 number;
        QString key;
    };

    QPointer<QXmppOutgoingClient> stream_;
    bool managed_ = false;
    quint32 written_ = 0;  // stanzas written on the managed stream
    std::deque<Followed> waiting_;
};
