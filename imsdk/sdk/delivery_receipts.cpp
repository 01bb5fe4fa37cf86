// Receipts between colleagues' clients: what the server confirmed but never delivered goes again.
#include "sdk/delivery_receipts.h"

#include <QXmppClient.h>
#include <QXmppMessage.h>
#include <QXmppRosterManager.h>
#include <QXmppUtils.h>
#include <QDateTime>
#include <QDebug>

#include "sdk/im_engine.h"
#include "sdk/message_codec.h"

namespace {

const char kReceived[] = "received";
constexpr int kMaxIdLength = 100;

}  // namespace

DeliveryReceipts::DeliveryReceipts(ImEngine* engine,
                                   std::function<bool(const StoredMessage&)> writeAgain)
    : QObject(engine), engine_(engine), writeAgain_(std::move(writeAgain)) {
    flushTimer_.setSingleShot(true);
    flushTimer_.setInterval(kFlushMs);
    connect(&flushTimer_, &QTimer::timeout, this, &DeliveryReceipts::flush);
    if (const int ms = qEnvironmentVariableIntValue("QUELIX_RECEIPT_WAIT_MS"); ms > 0) waitMs_ = ms;
    checkTimer_.setInterval(waitMs_ / 2);
    connect(&checkTimer_, &QTimer::timeout, this, &DeliveryReceipts::check);
}

void DeliveryReceipts::await(const StoredMessage& m) {
    if (m.originId.isEmpty() || m.peer == engine_->account()) return;
    while (awaited_.size() >= kMaxAwaited && !awaitedOrder_.isEmpty())
        awaited_.remove(awaitedOrder_.takeFirst());
    if (!awaited_.contains(m.originId)) awaitedOrder_.append(m.originId);
    awaited_.insert(m.originId, {m, QDateTime::currentMSecsSinceEpoch(), 0});
    if (!checkTimer_.isActive()) checkTimer_.start();
}

void DeliveryReceipts::stored(const QString& peer, const QString& originId, qint64 time) {
    // A sender waits kKeepMs at most: older messages (a long catch-up) need no receipt.
    if (originId.isEmpty() || originId.size() > kMaxIdLength ||
        time * 1000 < QDateTime::currentMSecsSinceEpoch() - kKeepMs)
        return;
    QStringList& ids = toReceipt_[peer];
    ids << originId;
    if (ids.size() >= kBatch)
        flush();
    else if (!flushTimer_.isActive())
        flushTimer_.start();
}

void DeliveryReceipts::flush() {
    flushTimer_.stop();
    const QHash<QString, QStringList> all = std::exchange(toReceipt_, {});
    // Offline, the receipts are dropped: the senders write again, and the copies are
    // receipted then.
    if (!engine_->isOnline()) return;
    for (auto it = all.cbegin(); it != all.cend(); ++it) {
        for (int from = 0; from < it.value().size(); from += kBatch) {
            QXmppElement received;
            received.setTagName(QLatin1String(kReceived));
            received.setAttribute(QStringLiteral("xmlns"), QLatin1String(MessageCodec::kNamespace));
            received.setAttribute(QStringLiteral("ids"),
                                  it.value().mid(from, kBatch).join(QLatin1Char(' ')));
            QXmppMessage receipt;
            receipt.setTo(engine_->bareJid(it.key()));
            receipt.setType(QXmppMessage::Headline);
            // Nothing for the archive or the offline store: it matters only now.
            receipt.addHint(QXmppMessage::NoStore);
            receipt.setExtensions({received});
            engine_->xmppClient()->sendPacket(receipt);
        }
    }
}

bool DeliveryReceipts::handle(const QXmppMessage& message) {
    QXmppElement received;
    for (const QXmppElement& e : message.extensions())
        if (e.tagName() == QLatin1String(kReceived) &&
            e.attribute(QStringLiteral("xmlns")) == QLatin1String(MessageCodec::kNamespace)) {
            received = e;
            break;
        }
    if (received.isNull()) return false;
    // Who receipted is the server's stamp on the stanza: only the message's receiver can
    // settle it.
    const QString from = QXmppUtils::jidToBareJid(message.from());
    if (QXmppUtils::jidToDomain(from) != engine_->domain()) {
        qWarning().noquote() << "imsdk: a receipt from" << from << "ignored: not a colleague";
        return true;
    }
    const QString peer = QXmppUtils::jidToUser(from);
    const QStringList ids = received.attribute(QStringLiteral("ids"))
                                .split(QLatin1Char(' '), Qt::SkipEmptyParts)
                                .mid(0, 2 * kBatch);
    for (const QString& id : ids) {
        auto it = awaited_.find(id);
        if (it == awaited_.end() || it->message.peer != peer) continue;
        awaited_.erase(it);  // its place in the order goes at the next check
    }
    if (awaited_.isEmpty()) {
        awaitedOrder_.clear();
        checkTimer_.stop();
    }
    return true;
}

void DeliveryReceipts::sessionEnded() {
    flushTimer_.stop();
    toReceipt_.clear();
}

bool DeliveryReceipts::isOnline(const QString& peer) const {
    auto* roster = engine_->xmppClient()->findExtension<QXmppRosterManager>();
    return roster && !roster->getResources(engine_->bareJid(peer)).isEmpty();
}

// Runs every half wait while something waits for its receipt.
void DeliveryReceipts::check() {
    if (!engine_->isOnline()) return;
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    int again = 0, givenUp = 0;
    bool writable = true;
    const QStringList order = std::exchange(awaitedOrder_, {});
    for (const QString& id : order) {
        auto it = awaited_.find(id);
        if (it == awaited_.end()) continue;  // receipted
        awaitedOrder_.append(id);
        if (now - it->since < waitMs_) continue;
        const qint64 sent = it->message.time * 1000;
        if (it->tries >= kTries || now - sent > kKeepMs) {
            awaited_.erase(it);
            awaitedOrder_.removeLast();
            ++givenUp;
            continue;
        }
        // An offline colleague gets it from the offline store; it is written again once
        // they are back and still have not receipted it.
        if (!writable || !isOnline(it->message.peer)) continue;
        if (!(writable = writeAgain_(it->message))) continue;
        it->since = now;
        ++it->tries;
        ++again;
    }
    if (again)
        qInfo().noquote() << "imsdk:" << again
                          << "messages the server confirmed but their receivers never receipted "
                             "are written again";
    if (givenUp)
        qWarning().noquote() << "imsdk: no receipt for" << givenUp
                             << "messages after all tries; they stay as the server confirmed them";
    if (awaited_.isEmpty()) checkTimer_.stop();
}
