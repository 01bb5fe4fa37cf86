#include "roomworker.h"

#include "directory.h"
#include "noticeoutbox.h"
#include "roomsync.h"
#include "taskcardoutbox.h"
#include "xmppadminsession.h"

#include <QXmppElement.h>
#include <QXmppMessage.h>
#include <QTimer>

namespace {

// Passes at a time: enough to check hundreds of rooms quickly after a reconnect without
// flooding the server with queries.
constexpr int kParallel = 4;
constexpr int kNoticeBatch = 200;

// A task card as the client's custom message (kind 16).
QXmppElement cardContent(const QByteArray& payload) {
    QXmppElement content;
    content.setTagName(QStringLiteral("content"));
    content.setAttribute(QStringLiteral("xmlns"), QStringLiteral("urn:quelix:im:1"));
    content.setAttribute(QStringLiteral("kind"), QStringLiteral("16"));
    content.setValue(QString::fromUtf8(payload));
    return content;
}

}  // namespace

RoomWorker::RoomWorker(Database* db, RoomQueue* queue, const RoomKeeper::Settings& settings,
                       std::atomic<bool>* online)
    : db_(db), queue_(queue), settings_(settings), online_(online) {}

RoomWorker::~RoomWorker() = default;

void RoomWorker::start() {
    // Made here, on the keeper's thread: the session's sockets and the directory's database
    // connection belong to the thread that made them.
    directory_ = std::make_unique<Directory>(db_, QString());
    notices_ = std::make_unique<NoticeOutbox>(db_);
    cards_ = std::make_unique<TaskCardOutbox>(db_);
    XmppAdminSession::Settings s;
    s.host = settings_.host;
    s.port = settings_.port;
    s.jid = settings_.adminJid;
    s.secret = settings_.adminSecret;
    s.caFile = settings_.caFile;
    s.retryMaxMs = settings_.retryMaxMs;
    s.replyTimeoutMs = settings_.replyTimeoutMs;
    session_ = new XmppAdminSession(s, this);
    connect(session_, &XmppAdminSession::online, this, &RoomWorker::onOnline);
    connect(session_, &XmppAdminSession::offline, this, &RoomWorker::onOffline);
    session_->start();
    if (settings_.recheckMs > 0) {
        auto* recheck = new QTimer(this);
        connect(recheck, &QTimer::timeout, this, [this] {
            if (session_->isOnline()) checkAll("time for the regular check");
        });
        recheck->start(settings_.recheckMs);
    }
}

void RoomWorker::stop() {
    if (session_) session_->stop();  // passes waiting for answers end here, as offline
    // Whatever is still running waits for the next start.
    for (auto it = running_.constBegin(); it != running_.constEnd(); ++it) {
        queue_->done(it.key(), false, QStringLiteral("stopped"));
        queue_->mark(it.key());
    }
    running_.clear();
}

void RoomWorker::onOnline() {
    *online_ = true;
    checkAll(qPrintable(QStringLiteral("signed in as ") + session_->bareJid()));
}

void RoomWorker::checkAll(const char* why) {
    const QList<qint64> ids = directory_->roomIds();
    qInfo("rooms: %s; checking %d rooms against the directory", why, int(ids.size()));
    checkingAll_ = true;
    checked_ = ids.size();
    refused_ = 0;
    queue_->markAll(ids);
    pump();
}

void RoomWorker::onOffline() {
    *online_ = false;
    qWarning("rooms: XMPP session lost; changes wait until it is back");
}

void RoomWorker::pump() {
    if (!session_ || !session_->isOnline()) return;
    while (running_.size() < kParallel) {
        const qint64 id = queue_->take();
        if (id == 0) break;
        const ProjectRoom plan = directory_->projectRoom(id);
        running_.insert(id, plan.dissolved);
        auto* sync = new RoomSync(session_, plan, settings_.mucDomain, settings_.domain, this);
        connect(sync, &RoomSync::finished, this, &RoomWorker::onFinished);
        sync->run();
    }
    if (checkingAll_ && running_.isEmpty() && queue_->waiting() == 0) {
        checkingAll_ = false;
        if (refused_ == 0) {
            qInfo("rooms: %d rooms in step with the directory", checked_);
        } else {
            qWarning("rooms: check done, %d of %d rooms refused by the server", refused_, checked_);
        }
    }
}

void RoomWorker::onFinished(qint64 projectId, bool succeeded, const QString& error) {
    const bool destroyed = running_.take(projectId);
    if (succeeded && destroyed && !directory_->roomDestroyed(projectId)) {
        // The room is gone; the directory only forgot to note it, so it is destroyed again
        // (harmlessly) on the next check.
        qWarning("rooms: room of dissolved project %lld destroyed but not noted", projectId);
    }
    queue_->done(projectId, succeeded, error);
    // After the pass: a colleague told "joined" finds the room ready to let them in.
    if (succeeded) {
        sendNotices(projectId);
        if (!destroyed) sendCards(projectId);
        // They need no room, so a dissolved project's cards still reach their executors.
        sendDirectCards(projectId);
    }
    if (!succeeded) {
        if (checkingAll_ && session_->isOnline()) ++refused_;
        if (session_->isOnline()) {
            qWarning("rooms: project %lld: %s; trying again in %d s", projectId, qPrintable(error),
                     settings_.failedRetryMs / 1000);
            QTimer::singleShot(settings_.failedRetryMs, this, [this, projectId] {
                queue_->mark(projectId);
                pump();
            });
        } else {
            // Checked again with every other room once the session is back.
            queue_->mark(projectId);
        }
    }
    QTimer::singleShot(0, this, &RoomWorker::pump);
}

void RoomWorker::sendNotices(qint64 projectId) {
    const QList<NoticeOutbox::Notice> notices = notices_->pending(projectId, kNoticeBatch);
    if (notices.isEmpty()) return;
    QList<qint64> sent;
    for (const NoticeOutbox::Notice& n : notices) {
        QXmppMessage m(QString(), QStringLiteral("%1@%2").arg(n.recipient).arg(settings_.domain),
                       QStringLiteral("%1 %2 %3").arg(n.user).arg(n.event).arg(projectId));
        m.setType(QXmppMessage::Normal);
        // The same id every time it is sent: the client acts on it once.
        m.setId(QStringLiteral("tribe-notice-%1-%2").arg(n.id).arg(n.recipient));
        QXmppElement tribe;
        tribe.setTagName(QStringLiteral("tribe"));
        tribe.setAttribute(QStringLiteral("xmlns"), QStringLiteral("urn:quelix:tribe:1"));
        tribe.setAttribute(QStringLiteral("id"), QString::number(projectId));
        tribe.setAttribute(QStringLiteral("event"), n.event);
        tribe.setAttribute(QStringLiteral("user"), QString::number(n.user));
        if (!n.title.isEmpty()) tribe.setAttribute(QStringLiteral("name"), n.title);
        m.setExtensions({tribe});
        if (!session_->sendMessage(m)) break;
        sent << n.id;
    }
    if (sent.isEmpty()) return;
    // The server handles a stream's stanzas in order: once it answers this ping it has taken
    // every notice before it. Without the answer they are sent again with the next pass.
    QXmppElement ping;
    ping.setTagName(QStringLiteral("ping"));
    ping.setAttribute(QStringLiteral("xmlns"), QStringLiteral("urn:xmpp:ping"));
    const bool more = notices.size() == kNoticeBatch;
    session_->sendIq(
        QXmppIq::Get, settings_.domain, ping,
        [this, sent, projectId, more](const QDomElement&, const QString& error) {
            // Any answer will do, an error too (a server without ping): only
            // no answer leaves it unknown whether the notices arrived.
            if (error == QLatin1String("offline") || error == QLatin1String("timeout") ||
                error == QLatin1String("superseded"))
                return;
            if (!notices_->drop(sent)) {
                qWarning("rooms: notices of project %lld sent but not dropped", projectId);
            }
            if (more) {
                queue_->mark(projectId);
                pump();
            }
        });
}

void RoomWorker::sendCards(qint64 projectId) {
    if (posting_.contains(projectId)) return;  // the next pass picks up what came meanwhile
    const QList<TaskCardOutbox::Card> cards = cards_->pending(projectId, kNoticeBatch);
    if (cards.isEmpty()) return;
    posting_.insert(projectId, true);
    const QString room = QStringLiteral("%1@%2").arg(projectId).arg(settings_.mucDomain);
    // The card's sender is the back end, under the same name as when it makes the room.
    const QString occupant = room + QStringLiteral("/quelix-backend");
    session_->enterRoom(occupant, [this, projectId, room, occupant, cards](const QDomElement&,
                                                                           const QString& error) {
        if (!error.isEmpty()) {
            posting_.remove(projectId);
            qWarning("rooms: task cards of project %lld wait: entering the room: %s", projectId,
                     qPrintable(error));
            // Offline: the check after the reconnect passes the room again.
            if (session_->isOnline()) {
                QTimer::singleShot(settings_.failedRetryMs, this, [this, projectId] {
                    queue_->mark(projectId);
                    pump();
                });
            }
            return;
        }
        QList<qint64> sent;
        for (const TaskCardOutbox::Card& c : cards) {
            // What plain clients show, and the card itself as the client's custom message.
            QXmppMessage m(QString(), room, QStringLiteral("[任务]"));
            m.setType(QXmppMessage::GroupChat);
            // The same id every time it is posted: the clients keep it once.
            const QString id = QStringLiteral("task-card-%1").arg(c.id);
            m.setId(id);
            m.setOriginId(id);
            m.setExtensions({cardContent(c.payload)});
            if (!session_->sendMessage(m)) break;
            sent << c.id;
        }
        session_->leaveRoom(occupant);
        if (sent.isEmpty()) {
            posting_.remove(projectId);
            return;
        }
        // As with notices: once the server answers a ping sent after them it has them all.
        QXmppElement ping;
        ping.setTagName(QStringLiteral("ping"));
        ping.setAttribute(QStringLiteral("xmlns"), QStringLiteral("urn:xmpp:ping"));
        const bool more = cards.size() == kNoticeBatch;
        session_->sendIq(
            QXmppIq::Get, settings_.domain, ping,
            [this, sent, projectId, more](const QDomElement&, const QString& error) {
                posting_.remove(projectId);
                if (error == QLatin1String("offline") || error == QLatin1String("timeout") ||
                    error == QLatin1String("superseded"))
                    return;
                if (!cards_->drop(sent))
                    qWarning("rooms: task cards of project %lld posted but not dropped", projectId);
                // Cards queued while these were on their way.
                if (more || !cards_->pending(projectId, 1).isEmpty()) {
                    queue_->mark(projectId);
                    pump();
                }
            });
    });
}

void RoomWorker::sendDirectCards(qint64 projectId) {
    if (sendingDirect_.contains(projectId)) return;  // the next pass picks up the rest
    const QList<TaskCardOutbox::Card> cards = cards_->pendingDirect(projectId, kNoticeBatch);
    if (cards.isEmpty()) return;
    QList<qint64> sent;
    for (const TaskCardOutbox::Card& c : cards) {
        QXmppMessage m(QString(), QStringLiteral("%1@%2").arg(c.recipient).arg(settings_.domain),
                       QStringLiteral("[任务]"));
        m.setType(QXmppMessage::Chat);
        const QString id = QStringLiteral("task-direct-%1").arg(c.id);
        m.setId(id);
        m.setOriginId(id);
        const QXmppElement content = cardContent(c.payload);
        // Whose conversation it belongs in; clients believe this only from our account.
        QXmppElement relay;
        relay.setTagName(QStringLiteral("relay"));
        relay.setAttribute(QStringLiteral("xmlns"), QStringLiteral("urn:quelix:im:1"));
        relay.setAttribute(QStringLiteral("for"), QString::number(c.sender));
        m.setExtensions({content, relay});
        if (!session_->sendMessage(m)) break;
        sent << c.id;
    }
    if (sent.isEmpty()) return;
    sendingDirect_.insert(projectId, true);
    const bool more = cards.size() == kNoticeBatch;
    confirm([this, sent, projectId, more](bool arrived) {
        sendingDirect_.remove(projectId);
        if (!arrived) return;
        if (!cards_->dropDirect(sent))
            qWarning("rooms: direct task cards of project %lld sent but not dropped", projectId);
        if (more || !cards_->pendingDirect(projectId, 1).isEmpty()) {
            queue_->mark(projectId);
            pump();
        }
    });
}

void RoomWorker::confirm(std::function<void(bool)> done) {
    QXmppElement ping;
    ping.setTagName(QStringLiteral("ping"));
    ping.setAttribute(QStringLiteral("xmlns"), QStringLiteral("urn:xmpp:ping"));
    session_->sendIq(
        QXmppIq::Get, settings_.domain, ping, [done](const QDomElement&, const QString& error) {
            // Any answer will do, an error too (a server without ping): only no
            // answer leaves it unknown whether they arrived.
            done(error != QLatin1String("offline") && error != QLatin1String("timeout") &&
                 error != QLatin1String("superseded"));
        });
}
