#include "tribemanager.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QThread>
#include <QTimer>

#include "backendurls.h"
#include "base/scoped_refptr.h"
#include "configstore.h"
#include "envelope.h"
#include "log/logger.h"
#include "mainviewdelegate.h"
#include "openim/itribe_service.h"
#include "openim/service_guids.h"
#include "openimmanager.h"
#include "prg/iprg_com.h"
#include "requester.h"
#include "sdk/wide_text.h"
#include "tribeunreadreader.h"

using wide_text::fromQ;

namespace {

constexpr int kShowSlice = 50;

QString text(const QJsonObject& o, const char* key) {
    const QJsonValue v = o.value(QLatin1String(key));
    return v.isDouble() ? QString::number(qint64(v.toDouble())) : v.toString();
}

}  // namespace

QMessageBox::StandardButton TribeManager::askOver(QWidget* parent, const QString& text) {
    // Over the window the user acted in, never loose in the middle of the screen.
    QMessageBox box(QMessageBox::Question, QStringLiteral("提示"), text,
                    QMessageBox::Yes | QMessageBox::No, parent ? parent->window() : nullptr);
    box.setTextFormat(Qt::PlainText);
    box.setButtonText(QMessageBox::Yes, QStringLiteral("确定"));
    box.setButtonText(QMessageBox::No, QStringLiteral("取消"));
    box.setWindowFlags(box.windowFlags() | Qt::MSWindowsFixedSizeDialogHint);
    return QMessageBox::StandardButton(box.exec());
}

TribeManager::TribeManager(OpenIMManager* core, QThread* readingThread)
    : QObject(core), core_(core), reader_(new TribeUnreadReader), ask_(askOver) {
    reader_->moveToThread(readingThread);
    connect(reader_, &TribeUnreadReader::unreadReady, this, &TribeManager::onUnread,
            Qt::QueuedConnection);
}

TribeManager::~TribeManager() {
    // The reading thread is stopped by the core before it lets us go.
    delete reader_;
}

// ---- projects ----

bool TribeManager::parseProjects(const QByteArray& body, QVector<DirectoryStore::Tribe>* out,
                                 QString* error) {
    const Envelope reply = Envelope::parse(body);
    if (!reply.isSuccess()) {
        if (error)
            *error =
                reply.isValid()
                    ? QStringLiteral("error %1 %2").arg(reply.errorCode()).arg(reply.errorMsg())
                    : QStringLiteral("not an envelope");
        return false;
    }
    const QJsonValue list = reply.member(QStringLiteral("projectList"));
    if (!list.isArray()) {
        if (error) *error = QStringLiteral("no projectList");
        return false;
    }
    out->clear();
    for (const QJsonValue& v : list.toArray()) {
        const QJsonObject o = v.toObject();
        DirectoryStore::Tribe t;
        // The tribe id is the project's id; records may name it either way.
        t.id = text(o, "projectId");
        if (t.id.isEmpty()) t.id = text(o, "id");
        bool ok = false;
        if (t.id.toULongLong(&ok) == 0 || !ok) continue;
        t.id = QString::number(t.id.toULongLong());
        t.name = text(o, "title");
        t.ownerId = text(o, "projectOwnerId");
        t.sign = text(o, "sign");
        t.companyId = text(o, "companyId");
        out->append(t);
    }
    return true;
}

void TribeManager::syncWithSdk(const QVector<DirectoryStore::Tribe>& tribes) {
    prg::IPrgCOM* root = GetPrgCOM();
    if (!root) return;
    base::scoped_refptr<openim::ITribeService> service;
    service.adopt(
        root->GetService<openim::ITribeService>(openim::kTribeModule, openim::kTribeInterface));
    if (!service) return;
    std::vector<openim::IMTribeID> ids;
    std::vector<prg::PrgStringT<wchar_t>> names;
    for (const DirectoryStore::Tribe& t : tribes) {
        ids.push_back(openim::IMTribeID(t.id.toULongLong()));
        names.push_back(fromQ(t.name));
    }
    service->SyncTribes(ids, names);
}

void TribeManager::fetchProjects() {
    if (!requester_) return;
    DirectoryStore& store = DirectoryStore::instance();
    const QString url = BackendUrls::withQuery(ConfigStore::instance().url(UrlTable::UrlGroupList),
                                               QStringLiteral("userId=") + store.selfId());
    requester_->get(
        url,
        [this](const QByteArray& body) {
            QVector<DirectoryStore::Tribe> tribes;
            QString error;
            if (!parseProjects(body, &tribes, &error)) {
                Logger::instance().write(QStringLiteral("project list refused: ") + error);
                emit projectsFailed(error);
                return;
            }
            DirectoryStore& store = DirectoryStore::instance();
            // Keep what the events taught us about tribes we have left.
            for (DirectoryStore::Tribe& t : tribes)
                if (const DirectoryStore::Tribe* known = store.tribe(t.id)) {
                    if (t.companyId.isEmpty()) t.companyId = known->companyId;
                }
            store.setTribes(tribes);
            syncWithSdk(tribes);
            emit projectsLoaded(tribes.size());
            const auto waiting = std::exchange(joinsAwaitingProjects_, {});
            for (const auto& join : waiting) memberJoined(join.first, join.second);
        },
        [this](const QString& reason) {
            Logger::instance().write(QStringLiteral("project list failed: ") + reason);
            emit projectsFailed(reason);
        });
}

// ---- messages ----

void TribeManager::newMessages(quint64 tribe) {
    if (!ready_) {
        QMetaObject::invokeMethod(this, [this, tribe] {
            if (ready_)
                reader_->requestRead(tribe);
            else
                waiting_.insert(tribe);
        });
        return;
    }
    reader_->requestRead(tribe);
}

void TribeManager::setReady(bool ready) {
    ready_ = ready;
    if (!ready) return;
    QSet<quint64> tribes = std::exchange(waiting_, {});
    if (prg::IPrgCOM* root = GetPrgCOM()) {
        base::scoped_refptr<openim::ITribeService> service;
        service.adopt(
            root->GetService<openim::ITribeService>(openim::kTribeModule, openim::kTribeInterface));
        std::vector<openim::IMTribeID> unread;
        if (service) service->GetUnreadTribes(&unread);
        for (const openim::IMTribeID& t : unread) tribes.insert(t.tribeId);
    }
    for (quint64 t : tribes) reader_->requestRead(t);
}

void TribeManager::onUnread(quint64 tribe, const std::vector<openim::IMTribeMessage>& unread) {
    if (!ready_) {
        std::vector<std::uint64_t> ids;
        for (const openim::IMTribeMessage& m : unread) ids.push_back(m.msgId);
        reader_->giveBack(ids);
        waiting_.insert(tribe);
        return;
    }
    for (const openim::IMTribeMessage& m : unread) {
        if (queuedIds_.contains(m.msgId)) continue;
        queuedIds_.insert(m.msgId);
        queue_.push_back({tribe, m});
    }
    showQueued();
}

// A slice at a time, so that a catch-up of thousands never holds the GUI thread for long;
// marked read once shown.
void TribeManager::showQueued() {
    std::map<quint64, std::vector<std::uint64_t>> shown;
    const AlertCoalescer::Slice slice(core_->alerts());
    for (int n = 0; n < kShowSlice && !queue_.empty(); ++n) {
        const Queued next = queue_.front();
        queue_.pop_front();
        core_->showTribeChatMsg(false, next.message);
        queuedIds_.remove(next.message.msgId);
        shown[next.tribe].push_back(next.message.msgId);
    }
    for (auto& entry : shown) reader_->markRead(entry.first, entry.second);
    if (!queue_.empty() && !showScheduled_) {
        showScheduled_ = true;
        QTimer::singleShot(0, this, [this] {
            showScheduled_ = false;
            showQueued();
        });
    }
}

// ---- events ----

void TribeManager::memberJoined(quint64 tribe, const QString& userId) {
    const QString id = QString::number(tribe);
    DirectoryStore& store = DirectoryStore::instance();
    const DirectoryStore::Tribe* known = store.tribe(id);
    if (!known || (known->left && userId == store.selfId())) {
        // Added to a project we have not heard of yet: learn it, then report.
        if (userId == store.selfId()) {
            joinsAwaitingProjects_.append({tribe, userId});
            fetchProjects();
        }
        if (!known) return;
    }
    if (userId == store.selfId()) {
        DirectoryStore::Tribe record = *store.tribe(id);
        record.left = false;
        store.addTribe(record);
    }
    if (MainViewDelegate* shell = MainViewDelegate::instance())
        shell->tribeMemberJoined(id, userId);
}

void TribeManager::memberQuit(quint64 tribe, const QString& userId) {
    const QString id = QString::number(tribe);
    if (!DirectoryStore::instance().tribe(id)) return;
    if (userId == DirectoryStore::instance().selfId()) leftTribe(tribe);
    if (MainViewDelegate* shell = MainViewDelegate::instance()) shell->tribeMemberQuit(id, userId);
}

void TribeManager::memberKicked(quint64 tribe, const QString& userId) {
    const QString id = QString::number(tribe);
    if (!DirectoryStore::instance().tribe(id)) return;
    if (userId == DirectoryStore::instance().selfId()) leftTribe(tribe);
    if (MainViewDelegate* shell = MainViewDelegate::instance())
        shell->tribeMemberKicked(id, userId);
}

void TribeManager::dismissed(quint64 tribe) {
    const QString id = QString::number(tribe);
    if (!DirectoryStore::instance().tribe(id)) return;
    leftTribe(tribe);
    if (MainViewDelegate* shell = MainViewDelegate::instance()) shell->tribeDismissed(id);
}

// The tribe stays in the talk list with its history and the tip that says why, but takes
// no more messages: a row that vanished would leave the user guessing.
void TribeManager::leftTribe(quint64 tribe) {
    DirectoryStore& store = DirectoryStore::instance();
    const DirectoryStore::Tribe* known = store.tribe(QString::number(tribe));
    if (!known) return;
    DirectoryStore::Tribe record = *known;
    record.left = true;
    store.addTribe(record);
}

void TribeManager::infoChanged(quint64 tribe, const QString& name) {
    DirectoryStore& store = DirectoryStore::instance();
    const QString id = QString::number(tribe);
    DirectoryStore::Tribe record;
    if (const DirectoryStore::Tribe* known = store.tribe(id))
        record = *known;
    else
        return;  // the project list brings tribes; the SDK alone does not
    if (!name.isEmpty()) record.name = name;
    store.addTribe(record);
}

// ---- dissolving and leaving ----

QString TribeManager::actionUrl(quint64 tribe, bool* owner) {
    const DirectoryStore& store = DirectoryStore::instance();
    const DirectoryStore::Tribe* project = store.tribe(QString::number(tribe));
    if (!project) return QString();
    const bool isOwner = store.ownsTribe(*project);
    if (owner) *owner = isOwner;
    const QString base = ConfigStore::instance().url(UrlTable::UrlDelTribe);
    return isOwner ? BackendUrls::deleteProject(base, tribe, project->sign)
                   : BackendUrls::removeMember(base, QString::number(store.selfId().toULongLong()),
                                               tribe);
}

void TribeManager::dissolveOrLeave(quint64 tribe) {
    bool owner = false;
    const QString url = actionUrl(tribe, &owner);
    if (url.isEmpty()) return;
    prg::IPrgCOM* root = GetPrgCOM();
    base::scoped_refptr<openim::ITribeService> service;
    if (root)
        service.adopt(
            root->GetService<openim::ITribeService>(openim::kTribeModule, openim::kTribeInterface));
    openim::ITribe* raw = nullptr;
    if (!service || service->GetTribe(openim::IMTribeID(tribe), &raw) != prg::PRG_OK || !raw)
        return;
    base::scoped_refptr<openim::ITribe> held;
    held.adopt(raw);
    const QMessageBox::StandardButton answer =
        ask_(dialogParent_, owner ? QStringLiteral("您是群主，此操作将解散该群。是否确定解散该群？")
                                  : QStringLiteral("是否确定退出该群？"));
    if (answer == QMessageBox::No) return;
    emit projectActionSent(url);
    if (!requester_) return;
    requester_->get(
        url,
        [this, tribe, owner](const QByteArray& body) {
            const Envelope reply = Envelope::parse(body);
            if (!reply.isSuccess()) {
                Logger::instance().write(QStringLiteral("project action on %1 refused: %2 %3")
                                             .arg(tribe)
                                             .arg(reply.errorCode())
                                             .arg(reply.errorMsg()));
                emit projectActionFailed(tribe, failureText(owner, false, reply.errorMsg()));
            }
            emit projectActionDone(tribe, reply.isSuccess(), reply.errorMsg());
        },
        [this, tribe, owner](const QString& reason) {
            Logger::instance().write(
                QStringLiteral("project action on %1 failed: %2").arg(tribe).arg(reason));
            emit projectActionFailed(tribe, failureText(owner, true, QString()));
            emit projectActionDone(tribe, false, reason);
        });
}

QString TribeManager::failureText(bool owner, bool networkFailed, const QString& errorMsg) {
    const QString what = owner ? QStringLiteral("解散群失败") : QStringLiteral("退出群失败");
    if (networkFailed) return what + QStringLiteral("：网络连接异常，请检查网络后重试。");
    const QString reason = errorMsg.trimmed();
    if (reason.isEmpty()) return what + QStringLiteral("，请稍后重试。");
    return what + QStringLiteral("：") + reason;
}
