#include "roomworker.h"

#include "directory.h"
#include "roomsync.h"
#include "xmppadminsession.h"

#include <QTimer>

namespace {

// Passes at a time: enough to check hundreds of rooms quickly after a reconnect without
// flooding the server with queries.
constexpr int kParallel = 4;

}  // namespace

RoomWorker::RoomWorker(Database* db, RoomQueue* queue, const RoomKeeper::Settings& settings,
                       std::atomic<bool>* online)
    : db_(db), queue_(queue), settings_(settings), online_(online) {}

RoomWorker::~RoomWorker() = default;

void RoomWorker::start() {
    // Made here, on the keeper's thread: the session's sockets and the directory's database
    // connection belong to the thread that made them.
    directory_ = std::make_unique<Directory>(db_, QString());
    XmppAdminSession::Settings s;
    s.host = settings_.host;
    s.port = settings_.port;
    s.jid = settings_.adminJid;
    s.secret = settings_.adminSecret;
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
        qInfo("rooms: %d rooms in step with the directory", checked_);
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
    if (!succeeded) {
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
