#include "openimmanager.h"
#include "unseenledger.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QElapsedTimer>
#include <QImageReader>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMessageLogger>
#include <QTimerEvent>
#include <algorithm>

#include "base/bind.h"
#include "base/path_service.h"
#include "base/scoped_refptr.h"
#include "base/thread_hooks.h"
#include "chostapplication.h"
#include "companytrust.h"
#include "configstore.h"
#include "directoryclient.h"
#include "directorystore.h"
#include "emotionset.h"
#include "functiontrace.h"
#include "logger.h"
#include "logstream.h"
#include "mainviewdelegate.h"
#include "openim/iconversation.h"
#include "openim/iconversation_service.h"
#include "openim/iim_core_service.h"
#include "openim/ilogin_account_service.h"
#include "openim/ilogin_service.h"
#include "openim/im_emotion_item.h"
#include "openim/imedia_service.h"
#include "openim/ipresence_service.h"
#include "openim/isync_service.h"
#include "openim/itribe.h"
#include "openim/itribe_media_service.h"
#include "openim/itribe_service.h"
#include "openim/ixpush_service.h"
#include "openim/service_guids.h"
#include "prg/iprg_com.h"
#include "sdk/wide_text.h"
#include "taskalertpolicy.h"
#include "tribemanager.h"
#include "unreadfetcher.h"

using wide_text::fromQ;
using wide_text::toQ;

namespace {
// Sends that upload a file before the message goes.
bool isUpload(std::int32_t type) { return type == BaseMsg::Media || type == BaseMsg::MediaFile; }

constexpr long kNoRoot = 0x80004005L;

// A service fetched for one use and released when the holder goes (services are never
// cached: the SDK may replace them).
template <class T>
base::scoped_refptr<T> service(const char* module, const char* iface) {
    base::scoped_refptr<T> out;
    if (prg::IPrgCOM* root = GetPrgCOM()) out.adopt(root->GetService<T>(module, iface));
    return out;
}

// The one-to-one conversation with a colleague, or the tribe of a project; null when the
// SDK has none.
base::scoped_refptr<openim::IConversation> conversationWith(const QString& id) {
    base::scoped_refptr<openim::IConversation> out;
    auto single = service<openim::IConversationService>(openim::kConversationModule,
                                                        openim::kConversationInterface);
    openim::IConversation* raw = nullptr;
    const openim::IMUserID user(wide_text::fromQ(QLatin1String(OpenIMManager::kAppKey)),
                                wide_text::fromQ(id));
    if (single && single->GetConversation(user, &raw) == prg::PRG_OK && raw) out.adopt(raw);
    return out;
}

base::scoped_refptr<openim::ITribe> tribeWith(const QString& id) {
    base::scoped_refptr<openim::ITribe> out;
    bool ok = false;
    const quint64 tribeId = id.toULongLong(&ok);
    auto tribes = service<openim::ITribeService>(openim::kTribeModule, openim::kTribeInterface);
    openim::ITribe* raw = nullptr;
    if (ok && tribes && tribes->GetTribe(openim::IMTribeID(tribeId), &raw) == prg::PRG_OK && raw)
        out.adopt(raw);
    return out;
}

// Into the diagnostic log (which echoes it when debug output is on); these come from the
// SDK's thread too, and the log takes lines from any thread.
void debugLine(const QString& text) { Logger::instance().write(text); }

QString kindPreview(const BaseMsg::MMessage& m) {
    switch (m.kind) {
        case BaseMsg::Text:
            return OpenIMManager::previewOf(m.text);
        case BaseMsg::Media:
            return QStringLiteral("[图片]");
        case BaseMsg::MediaFile:
            return QStringLiteral("[文件]");
        case BaseMsg::Custom:
            return m.summary;
        default:
            return QString();
    }
}

}  // namespace

OpenIMManager* OpenIMManager::instance() {
    // One reference held for the life of the process: the manager is never destroyed
    // before exit, whatever callbacks still hold.
    static OpenIMManager* manager = [] {
        auto* m = new OpenIMManager;
        m->AddRef();
        return m;
    }();
    return manager;
}

OpenIMManager::OpenIMManager() : fetcher_(new UnreadFetcher) {
    qRegisterMetaType<BaseMsg::MMessage>();
    fetchThread_.setObjectName(QStringLiteral("im-unread"));
    connect(&fetchThread_, &QThread::started, this, &base::ThreadHooks::runStartHook,
            Qt::DirectConnection);
    fetcher_->moveToThread(&fetchThread_);
    fetchThread_.start();
    connect(fetcher_, &UnreadFetcher::unreadReady, this, &OpenIMManager::onUnreadReady,
            Qt::QueuedConnection);
    tribes_ = new TribeManager(this, &fetchThread_);
    retryTimer_.setSingleShot(true);
    connect(&retryTimer_, &QTimer::timeout, this, &OpenIMManager::OnTimeout);
    watermarkSave_.setSingleShot(true);
    watermarkSave_.setInterval(1000);
    connect(&watermarkSave_, &QTimer::timeout, this,
            [] { ConfigStore::instance().userConfig().save(); });
    connect(qApp, &QCoreApplication::aboutToQuit, this, &OpenIMManager::flushWatermark);
}

OpenIMManager::~OpenIMManager() {
    fetchThread_.quit();
    fetchThread_.wait();
    delete fetcher_;
}

// --- set-up -----------------------------------------------------------------------------

bool OpenIMManager::init() {
    if (initialised_) return true;
    base::FilePath program;
    PathService::Get(base::FILE_MODULE, &program);
    prg::IPrgCOM* root = GetPrgCOM();
    const long result = root ? long(root->Init(program)) : kNoRoot;
    if (!root || result != long(prg::PRG_OK)) {
        QX_LOG << "OpenIMManager: the IM SDK could not start (" << qint64(result ? result : kNoRoot)
               << ")";
        return false;
    }
    base::scoped_refptr<CHostApplication> host(
        new CHostApplication(ConfigStore::instance().folderPath(ConfigStore::OpenIM)));
    auto core = service<openim::IIMCoreService>(openim::kCoreModule, openim::kCoreInterface);
    if (core) {
        core->SetHostApplication(host.get());
        core->Start(program.DirName().Append(FILE_PATH_LITERAL("resource")),
                    fromQ(QLatin1String(kAppKey)));
        std::vector<openim::IMEmotionItem> emotions;
        core->GetEmotionItems(&emotions);
        QList<EmotionSet::Item> items;
        for (const openim::IMEmotionItem& e : emotions)
            items.append({wide_text::toQ(e.emPngFixedPath), wide_text::toQ(e.emotionShortCut)});
        EmotionSet::instance().setItems(items);
    }

    if (auto push = service<openim::IXPushService>(openim::kXPushModule, openim::kXPushInterface)) {
        push->RegisterStartOk(base::Bind(&OpenIMManager::OnXPushStarted, this));
        push->RegisterKicked(base::Bind(&OpenIMManager::OnXPushKicked, this));
        push->RegisterStoped(base::Bind(&OpenIMManager::OnXPushStoped, this));
        push->RegisterError(base::Bind(&OpenIMManager::OnXPushError, this));
        push->RegisterMsgs(base::Bind(&OpenIMManager::OnXPushMsgs, this));
    }
    if (auto login =
            service<openim::ILoginService>(openim::kLoginModule, openim::kLoginInterface)) {
        login->RegisterLoginStep(base::Bind(&OpenIMManager::OnLoginStep, this));
        login->RegisterLoginOk(base::Bind(&OpenIMManager::OnLoginOk, this));
        login->RegisterKicked(base::Bind(&OpenIMManager::OnKicked, this));
        login->RegisterLoginFail(base::Bind(&OpenIMManager::OnLoginFail, this));
        login->RegisterReLoginFail(base::Bind(&OpenIMManager::OnReLoginFail, this));
        login->RegisterReLoginOk(base::Bind(&OpenIMManager::OnReLoginOk, this));
        login->RegisterNetDisConnect(base::Bind(&OpenIMManager::OnNetDisConnect, this));
        login->RegisterLogouted(base::Bind(&OpenIMManager::OnLogouted, this));
    }
    if (auto single = service<openim::IConversationService>(openim::kConversationModule,
                                                            openim::kConversationInterface))
        single->RegisterNewMessageCallback(
            base::Bind(&OpenIMManager::OnIMNotifyMsgsOfSingle, this));
    if (auto media = service<openim::IMediaService>(openim::kMediaModule, openim::kMediaInterface))
        media->RegisterDownloadCallback(base::Bind(&OpenIMManager::OnDownloadMedia, this));
    if (auto tribes =
            service<openim::ITribeService>(openim::kTribeModule, openim::kTribeInterface)) {
        tribes->RegisterTribesLoaded(base::Bind(&OpenIMManager::OnTribesLoaded, this));
        tribes->RegisterMemberJoined(base::Bind(&OpenIMManager::OnTribeMemberJoined, this));
        tribes->RegisterMemberQuit(base::Bind(&OpenIMManager::OnTribeMemberQuit, this));
        tribes->RegisterMemberKicked(base::Bind(&OpenIMManager::OnTribeMemberKicked, this));
        tribes->RegisterRoleChanged(base::Bind(&OpenIMManager::OnTribeRoleChanged, this));
        tribes->RegisterNameChanged(base::Bind(&OpenIMManager::OnTribeNameChanged, this));
        tribes->RegisterNoticeChanged(base::Bind(&OpenIMManager::OnTribeNoticeChanged, this));
        tribes->RegisterTribeDismissed(base::Bind(&OpenIMManager::OnTribeDismissed, this));
        tribes->RegisterTribeInfoChanged(base::Bind(&OpenIMManager::OnTribeInfoChanged, this));
        tribes->RegisterNewMessage(base::Bind(&OpenIMManager::OnTribeNewMessage, this));
    }
    if (auto tribeMedia = service<openim::ITribeMediaService>(openim::kTribeMediaModule,
                                                              openim::kTribeMediaInterface))
        tribeMedia->RegisterDownloadCallback(
            base::Bind(&OpenIMManager::OnDownloadTribeMedia, this));
    initialised_ = true;
    return true;
}

void OpenIMManager::setRequester(Requester* requester) {
    requester_ = requester;
    delete directory_;
    directory_ = new DirectoryClient(requester, &DirectoryStore::instance(), this);
    tribes_->setRequester(requester);
    connect(directory_, &DirectoryClient::colleaguesFetched, this, [this](const QStringList& ids) {
        for (const QString& id : ids) OnHttpGetOthersBack(id);
    });
}

void OpenIMManager::login(const LoginUser& user) {
    // Start-up brings the SDK up once the first window is drawn; a sign-in can come first.
    init();
    auto login = service<openim::ILoginService>(openim::kLoginModule, openim::kLoginInterface);
    if (!login) {
        emit loginResult(openim::ResultCode::kFailed);
        return;
    }
    openim::LoginParam param;
    param.user = openim::IMUserID(fromQ(QLatin1String(kAppKey)), fromQ(user.imAccount));
    param.secret = fromQ(user.imSecret);
    param.host = fromQ(user.imHost);
    param.port = quint16(user.imPort);
    param.domain = fromQ(user.imDomain.isEmpty() ? user.imHost : user.imDomain);
    param.receiveFolder = fromQ(ConfigStore::instance().folderPath(ConfigStore::Receive));
    param.authority = fromQ(user.imAuthority);
    param.caFile = fromQ(CompanyTrust::caFile());
    msgReady_ = false;
    loginRequested_ = true;
    login->Login(param);
}

void OpenIMManager::flushWatermark() {
    if (!watermarkSave_.isActive()) return;
    watermarkSave_.stop();
    ConfigStore::instance().userConfig().save();
}

void OpenIMManager::logout() {
    flushWatermark();
    killTimer(timerId_);
    timerId_ = 0;
    timerRunning_ = false;
    retryTimer_.stop();
    loggedIn_ = false;
    msgReady_ = false;
    pending_.clear();
    if (auto login = service<openim::ILoginService>(openim::kLoginModule, openim::kLoginInterface))
        login->Logout();
    emit signal_Landed(false);
}

QString OpenIMManager::ownId() const { return toQ(ownUser_.account); }

// --- session ----------------------------------------------------------------------------

void OpenIMManager::OnLoginStep(openim::LoginStep) {}

void OpenIMManager::OnLoginOk(openim::LoginOkParam param) {
    base::scoped_refptr<OpenIMManager> self(this);
    QMetaObject::invokeMethod(
        this, [self, param] { self->onLoginSuccess(param.user); }, Qt::QueuedConnection);
}

void OpenIMManager::onLoginSuccess(const openim::IMUserID& user) {
    debugLine(QStringLiteral("OnIMLoginSuccess"));
    if (auto account = service<openim::ILoginAccountService>(openim::kLoginAccountModule,
                                                             openim::kLoginAccountInterface))
        ownUser_ = account->GetLoginUserID();
    if (ownUser_.account.empty()) ownUser_ = user;
    if (MainViewDelegate* shell = MainViewDelegate::instance()) shell->loginSuccess(ownId());
    registerSync();
    secondState_ = false;
    loggedIn_ = true;
    if (MainViewDelegate* shell = MainViewDelegate::instance()) shell->setOnline(true);
    emit signal_Network(true);
    requestPresence();
    startSessionTimer();
    if (loginRequested_) {
        loginRequested_ = false;
        emit loginResult(0);
    }
    emit signal_Landed(true);
    tribes_->fetchProjects();
    // The views were built by the calls above; what arrived meanwhile is shown next, in
    // the order it came, then whatever is still unread from before.
    QMetaObject::invokeMethod(
        this, [this] { setMsgReady(true); }, Qt::QueuedConnection);
}

void OpenIMManager::setMsgReady(bool ready) {
    msgReady_ = ready;
    tribes_->setReady(ready);
    if (!ready) return;
    // Badges first: what is shown next counts on top of them.
    QElapsedTimer clock;
    clock.start();
    const QVector<UnseenLedger::Entry> waiting = UnseenLedger::waiting();
    const qint64 read = clock.elapsed();
    for (const UnseenLedger::Entry& e : waiting) emit unseenWaiting(e.id, e.count);
    emit unseenComplete();
    Logger::instance().write(
        QStringLiteral("unseen: %1 conversations back in %2 ms (%3 ms reading)")
            .arg(waiting.size())
            .arg(clock.elapsed())
            .arg(read));
    drainPending();
}

void OpenIMManager::markSeen(const QString& id) {
    UnseenLedger::markSeen(id, !DirectoryStore::instance().isUser(id));
}

void OpenIMManager::drainPending() {
    const QList<openim::IMUserID> queued = pending_;
    pending_.clear();
    QSet<QString> done;
    for (const openim::IMUserID& user : queued) {
        updateUnreadMsg(user);
        done.insert(toQ(user.account));
    }
    auto single = service<openim::IConversationService>(openim::kConversationModule,
                                                        openim::kConversationInterface);
    if (!single) return;
    std::vector<openim::IMUserID> peers;
    single->GetUnreadPeers(&peers);
    for (const openim::IMUserID& peer : peers)
        if (!done.contains(toQ(peer.account))) OnIMNotifyMsgsOfSingle(peer);
}

void OpenIMManager::startSessionTimer() {
    if (timerRunning_ && timerId_ != 0) return;
    timerId_ = startTimer(ConfigStore::instance().settings().checkStateMs(), Qt::CoarseTimer);
    timerRunning_ = true;
}

void OpenIMManager::registerSync() {
    if (auto sync = service<openim::ISyncService>(openim::kSyncModule, openim::kSyncInterface))
        sync->RegisterSync(1, base::Bind(&OpenIMManager::OnSyncRegistered, this));
}

void OpenIMManager::OnSyncRegistered(prg::PrgStringT<wchar_t> address) { address.Release(); }

void OpenIMManager::OnLoginFail(openim::LoginFailParam param) {
    base::scoped_refptr<OpenIMManager> self(this);
    QMetaObject::invokeMethod(
        this,
        [self, param] {
            debugLine(QStringLiteral("OnIMLoginFail"));
            const QString text =
                param.result.code == kWrongPassword ? QStringLiteral("登录失败，用户或密码错误")
                : param.result.code == openim::ResultCode::kInsecure
                    ? QStringLiteral("通讯服务器的连接不安全（未加密或证书不受信任），已停止登录")
                    : QStringLiteral("无法连接通讯服务器");
            if (MainViewDelegate* shell = MainViewDelegate::instance()) shell->loginFailed(text);
            self->loginRequested_ = false;
            emit self->loginResult(param.result.code == 0 ? int(openim::ResultCode::kFailed)
                                                          : param.result.code);
        },
        Qt::QueuedConnection);
}

void OpenIMManager::OnKicked(openim::KickedParam) {
    base::scoped_refptr<OpenIMManager> self(this);
    QMetaObject::invokeMethod(
        this,
        [self] {
            self->killTimer(self->timerId_);
            self->timerId_ = 0;
            self->timerRunning_ = false;
            self->retryTimer_.stop();
            self->loggedIn_ = false;
            self->msgReady_ = false;
            if (MainViewDelegate* shell = MainViewDelegate::instance())
                shell->kicked(QStringLiteral("您的账号在别处登录，请重新登录。"));
            emit self->signal_Landed(false);
        },
        Qt::QueuedConnection);
}

void OpenIMManager::OnReLoginFail(openim::ReLoginFailParam) {}  // the retry timer goes on

void OpenIMManager::OnReLoginOk(openim::ReLoginOkParam) {
    base::scoped_refptr<OpenIMManager> self(this);
    QMetaObject::invokeMethod(
        this, [self] { self->onReloginSuccess(); }, Qt::QueuedConnection);
}

void OpenIMManager::onReloginSuccess() {
    retryTimer_.stop();  // first of all: no further relogin
    loggedIn_ = true;
    if (MainViewDelegate* shell = MainViewDelegate::instance()) shell->setOnline(true);
    emit signal_Network(true);
    requestPresence();
    startSessionTimer();
    registerSync();
    tribes_->fetchProjects();  // membership may have changed while we were away
}

void OpenIMManager::OnNetDisConnect(openim::NetDisConnectParam) {
    base::scoped_refptr<OpenIMManager> self(this);
    QMetaObject::invokeMethod(
        this, [self] { self->onSessionLost(); }, Qt::QueuedConnection);
}

void OpenIMManager::onSessionLost() {
    if (timerRunning_) killTimer(timerId_);
    timerId_ = 0;
    timerRunning_ = false;
    if (MainViewDelegate* shell = MainViewDelegate::instance()) shell->setOnline(false);
    emit signal_Network(false);
    if (auto login = service<openim::ILoginService>(openim::kLoginModule, openim::kLoginInterface))
        login->ReLogin();
    retryTimer_.start(ConfigStore::instance().settings().netConnectMs());
}

void OpenIMManager::OnTimeout() {
    if (auto login = service<openim::ILoginService>(openim::kLoginModule, openim::kLoginInterface))
        login->ReLogin();
    retryTimer_.start(ConfigStore::instance().settings().netConnectMs());
}

void OpenIMManager::OnLogouted(openim::LogoutedParam) {}

// --- heartbeat --------------------------------------------------------------------------

void OpenIMManager::requestPresence() {
    auto presence =
        service<openim::IPresenceService>(openim::kPresenceModule, openim::kPresenceInterface);
    if (!presence) return;
    const DirectoryStore& store = DirectoryStore::instance();
    const auto userId = fromQ(QString::asprintf("%llu", store.selfId().toULongLong()));
    const auto companyId = fromQ(QString::asprintf("%llu", store.companyId().toULongLong()));
    presencePending_ = true;
    presence->RequestPresence(userId, companyId, true,
                              base::Bind(&OpenIMManager::OnPresence, this));
}

void OpenIMManager::OnPresence(openim::ResultCode result,
                               std::map<openim::IMUserID, openim::IMUserStatus> status) {
    base::scoped_refptr<OpenIMManager> self(this);
    QMetaObject::invokeMethod(
        this,
        [self, result, status] {
            self->presencePending_ = false;
            DirectoryStore& store = DirectoryStore::instance();
            for (const auto& entry : status) {
                const QString id = toQ(entry.first.account);
                const bool online = entry.second.state != openim::IMUserStatus::kOffline;
                if (store.isOnline(id) != online) {
                    store.setOnline(id, online);
                    emit self->signal_OnlineState(id);
                    if (MainViewDelegate* shell = MainViewDelegate::instance())
                        shell->userOnlineChanged(id, online);
                }
            }
            if (result.code == 0 && !self->loggedIn_) {
                self->loggedIn_ = true;
                if (MainViewDelegate* shell = MainViewDelegate::instance()) shell->setOnline(true);
            }
        },
        Qt::QueuedConnection);
}

void OpenIMManager::timerEvent(QTimerEvent* event) {
    if (event->timerId() != timerId_ || !timerRunning_) return QObject::timerEvent(event);
    if (!presencePending_) {
        requestPresence();
        return;
    }
    // The last request went a whole interval without an answer.
    MainViewDelegate* shell = MainViewDelegate::instance();
    if (!loggedIn_) {
        if (shell) shell->setOnline(false);
        return;
    }
    // Nobody's state is known without the server. Every mark is cleared; the views are told
    // only of those who were on line (a large company would otherwise repaint for nothing).
    DirectoryStore& store = DirectoryStore::instance();
    for (const DirectoryStore::Colleague* c : store.colleaguesInOrder()) {
        const QString id = c->id();
        const bool wasOnline = store.isOnline(id);
        store.setOnline(id, false);
        emit signal_OnlineState(id);
        if (wasOnline && shell) shell->userOnlineChanged(id, false);
    }
    loggedIn_ = false;
    if (shell) shell->setOnline(false);
}

// --- incoming ---------------------------------------------------------------------------

bool OpenIMManager::isUser(const QString& id) const {
    return DirectoryStore::instance().isUser(id);
}

bool OpenIMManager::isKnownTribe(const QString& id) const {
    return !isUser(id) && DirectoryStore::instance().tribe(id);
}

void OpenIMManager::OnIMNotifyMsgsOfSingle(openim::IMUserID sender) {
    const QString id = toQ(sender.account);
    QX_LOG << "OpenIMManager::OnIMNotifyMsgsOfSingle " << id;
    debugLine(QStringLiteral("OpenIMManager::OnIMNotifyMsgsOfSingle ") + id);
    if (msgReady_) {
        // Read off the GUI thread; the messages come back through onUnreadReady.
        fetcher_->requestFetch(sender);
        return;
    }
    // Not ready yet: every notification is kept, in order, for when the client is.
    base::scoped_refptr<OpenIMManager> self(this);
    QMetaObject::invokeMethod(
        this, [self, sender] { self->updateUnreadMsg(sender); }, Qt::QueuedConnection);
}

void OpenIMManager::onUnreadReady(const openim::IMUserID& user,
                                  const std::vector<openim::IMMessage>& unread) {
    const QString id = toQ(user.account);
    if (!isUser(id) && directory_) {
        std::vector<std::uint64_t> ids;
        for (const openim::IMMessage& m : unread) ids.push_back(m.msgId);
        fetcher_->giveBack(ids);
        directory_->fetchColleagues({id});  // OnHttpGetOthersBack follows
        return;
    }
    // With no back end to ask, an unknown colleague's messages are still shown.
    FunctionTrace trace(&Logger::instance(), QStringLiteral("OpenIMManager::updateUnreadMsg"));
    handleUnread(user, unread, true);
}

void OpenIMManager::OnHttpGetOthersBack(const QString& userId) {
    const QString id = QString::number(userId.toULongLong());
    updateUnreadMsg(openim::IMUserID(fromQ(QLatin1String(kAppKey)), fromQ(id)));
}

// The watermark lives in the user's settings beside the ids it needs, so that it means the
// same after a restart and never mixes two accounts' store ids.
bool OpenIMManager::passesWatermark(qint64 time, quint64 msgId) const {
    const quelix::userconfig_t& user = ConfigStore::instance().userConfig();
    if (time > user.thisTime) return true;
    // Stored after everything shown so far: a message the server's archive brought late
    // (after a reconnect, while newer ones came live). It goes in its place on the page.
    if (user.lastShownId != 0 && msgId > user.lastShownId) return true;
    // In the mark's own second the ids shown decide: a burst of that second still gets
    // through, what was shown (in this run or before a restart) stays out.
    return time == user.thisTime && user.shownAtThisTimeKnown &&
           !user.shownAtThisTime.contains(msgId);
}

void OpenIMManager::advanceWatermark(qint64 time, quint64 msgId) {
    quelix::userconfig_t& user = ConfigStore::instance().userConfig();
    if (time > user.thisTime) {
        user.thisTime = time;
        user.shownAtThisTime.clear();
        user.shownAtThisTimeKnown = true;
    }
    if (time == user.thisTime) user.shownAtThisTime.insert(msgId);
    user.lastShownId = std::max(user.lastShownId, msgId);
}

bool OpenIMManager::fetchUnread(const openim::IMUserID& user,
                                std::vector<openim::IMMessage>* unread) {
    auto single = service<openim::IConversationService>(openim::kConversationModule,
                                                        openim::kConversationInterface);
    if (!single) return false;
    base::scoped_refptr<openim::IConversation> conversation;
    openim::IConversation* raw = nullptr;
    if (single->GetConversation(user, &raw) != prg::PRG_OK || !raw) return false;
    conversation.adopt(raw);
    single = nullptr;  // released before the work, as the conversation is enough
    if (conversation->GetUnreadCount() == 0) return false;
    conversation->GetUnreadMessages(unread);
    return true;
}

void OpenIMManager::updateUnreadMsg(const openim::IMUserID& user) {
    FunctionTrace trace(&Logger::instance(), QStringLiteral("OpenIMManager::updateUnreadMsg"));
    std::vector<openim::IMMessage> unread;
    if (!fetchUnread(user, &unread)) return;
    handleUnread(user, unread, false);
}

void OpenIMManager::handleUnread(const openim::IMUserID& user,
                                 const std::vector<openim::IMMessage>& unread, bool fromFetcher) {
    const QString id = toQ(user.account);
    if (!msgReady_) {
        Logger::instance().write(QStringLiteral("MsgReady: false   id:") + id);
        pending_.append(user);
        if (fromFetcher) {
            std::vector<std::uint64_t> ids;
            for (const openim::IMMessage& m : unread) ids.push_back(m.msgId);
            fetcher_->giveBack(ids);
        }
        return;
    }
    Logger::instance().write(QStringLiteral("MsgReady: true   id:") + id);
    std::vector<std::uint64_t> skipped;
    for (const openim::IMMessage& m : unread) {
        if (queuedIds_.contains(m.msgId)) continue;  // already waiting to be shown
        if (!passesWatermark(m.msgTime, m.msgId)) {
            skipped.push_back(m.msgId);
            continue;
        }
        queuedIds_.insert(m.msgId);
        displayQueue_.push_back({user, m});
    }
    if (!skipped.empty()) fetcher_->markRead(user, skipped);
    showQueued();
}

// Shows queued messages a slice at a time, so that a burst of thousands never holds the
// GUI thread for long. A message is marked read once it has been shown: one that a crash
// keeps from the screen comes back at the next start.
void OpenIMManager::showQueued() {
    std::map<QString, std::pair<openim::IMUserID, std::vector<std::uint64_t>>> shownByPeer;
    const AlertCoalescer::Slice slice(alerts_);
    for (int n = 0; n < kShowSlice && !displayQueue_.empty(); ++n) {
        const QueuedMessage next = displayQueue_.front();
        displayQueue_.pop_front();
        showChatMsg(false, next.message);
        advanceWatermark(next.message.msgTime, next.message.msgId);
        queuedIds_.remove(next.message.msgId);
        auto& entry = shownByPeer[toQ(next.user.account)];
        entry.first = next.user;
        entry.second.push_back(next.message.msgId);
    }
    if (!shownByPeer.empty()) {
        for (auto& peer : shownByPeer) fetcher_->markRead(peer.second.first, peer.second.second);
        // Saved within a second rather than per slice: a burst would otherwise write (and
        // sync) the settings file hundreds of times on the GUI thread.
        if (!watermarkSave_.isActive()) watermarkSave_.start();
    }
    if (!displayQueue_.empty() && !showScheduled_) {
        showScheduled_ = true;
        QTimer::singleShot(0, this, [this] {
            showScheduled_ = false;
            showQueued();
        });
    }
}

QString OpenIMManager::previewOf(const QString& text) {
    QString flat = text;
    flat.remove(QLatin1Char('\r')).remove(QLatin1Char('\n')).remove(QLatin1Char('\t'));
    return flat.size() > 12 ? flat.left(12) + QStringLiteral("...") : flat;
}

BaseMsg::MMessage OpenIMManager::toMessage(const openim::IMMessage& im, const QString& ownId,
                                           bool history) {
    BaseMsg::MMessage m;
    m.msgId = im.msgId;
    m.time = im.msgTime;
    m.order = im.msgSeq;
    m.senderId = toQ(im.sender.account);
    m.isSelf = !ownId.isEmpty() && m.senderId == ownId;
    m.conversationId = m.isSelf ? toQ(im.receiver.account) : m.senderId;
    m.isHistory = history;
    m.kind = im.content.type;
    if (const DirectoryStore::Colleague* c = DirectoryStore::instance().colleague(m.senderId))
        m.senderName = c->displayName();
    const QString content = toQ(im.content.content);
    switch (m.kind) {
        case BaseMsg::Text:
            m.text = content;
            break;
        case BaseMsg::Media:
        case BaseMsg::MediaFile:
            m.mediaPath = QString(content).replace(QLatin1Char('\\'), QLatin1Char('/'));
            m.summary = toQ(im.content.summary);  // the file's name
            break;
        case BaseMsg::Custom: {
            m.summary = toQ(im.content.summary);
            const QJsonDocument doc = QJsonDocument::fromJson(content.toUtf8());
            QJsonObject o = doc.isObject() ? doc.object() : QJsonObject();
            const QJsonValue type = o.value(QStringLiteral("msgType"));
            o.insert(QStringLiteral("msgType"), type.isDouble() ? type.toInt() : -1);
            o.insert(QStringLiteral("summary"), m.summary);
            if (!o.contains(QStringLiteral("content")))
                o.insert(QStringLiteral("content"), content);
            o.insert(QStringLiteral("isCustomMsg"), true);
            m.contentJson = QString::fromUtf8(QJsonDocument(o).toJson(QJsonDocument::Compact));
            break;
        }
        default:
            m.kind = BaseMsg::Hidden;
            break;
    }
    return m;
}

void OpenIMManager::showChatMsg(bool history, const openim::IMMessage& message) {
    FunctionTrace trace(&Logger::instance(), QStringLiteral("OpenIMManager::showChatMsg"));
    // A burst's messages share their second, so its local time is worked out once.
    thread_local qint64 shownSecond = -1;
    thread_local QString shownTime;
    if (message.msgTime != shownSecond) {
        shownSecond = message.msgTime;
        shownTime = QDateTime::fromSecsSinceEpoch(shownSecond)
                        .toString(QStringLiteral("yyyy/MM/dd hh:mm:ss"));
    }
    Logger::instance().write(QStringLiteral("all messages:  (msgtime:") + shownTime +
                             QStringLiteral(" msgid:") + QString::number(message.msgId) +
                             QStringLiteral(" msgFormat:") + QString::number(message.content.type) +
                             QLatin1Char(')'));
    const BaseMsg::MMessage m = toMessage(message, ownId(), history);
    if (m.kind == BaseMsg::Hidden) return;  // nothing to show, no preview
    if (m.kind == BaseMsg::Custom) {
        Logger::instance().write(
            QStringLiteral("custom msg:(m_msgTime:%1 senderId:%2 msgId:%3 isTop:%4 msgFormat:%5"
                           "         msgContent:%6)")
                .arg(m.time)
                .arg(m.senderId)
                .arg(m.msgId)
                .arg(history ? QStringLiteral("true") : QStringLiteral("false"))
                .arg(m.kind)
                .arg(m.contentJson));
    }
    deliver(m, kindPreview(m));
}

BaseMsg::MMessage OpenIMManager::toTribeMessage(const openim::IMTribeMessage& message,
                                                const QString& ownId, bool history) {
    openim::IMMessage single;
    single.msgId = message.msgId;
    single.msgTime = message.msgTime;
    single.msgSeq = message.msgSeq;
    single.sender = message.sender;
    single.content = message.content;
    BaseMsg::MMessage m = toMessage(single, ownId, history);
    m.conversationId = QString::number(message.tribe.tribeId);
    m.isTribe = true;
    return m;
}

void OpenIMManager::showTribeChatMsg(bool history, const openim::IMTribeMessage& message) {
    const BaseMsg::MMessage m = toTribeMessage(message, ownId(), history);
    if (m.kind == BaseMsg::Hidden) return;
    deliver(m, kindPreview(m));
}

bool OpenIMManager::taskCardAlerts(const BaseMsg::MMessage& m) const {
    const QJsonObject card = QJsonDocument::fromJson(m.contentJson.toUtf8()).object();
    if (card.value(QStringLiteral("msgType")).toInt(-1) != BaseMsg::CustomTask) return true;
    ConfigStore& config = ConfigStore::instance();
    // Before the user's settings are read, the defaults decide.
    const quelix::userconfig_t defaults;
    return TaskAlertPolicy::alerts(card, config.hasUser() ? config.userConfig() : defaults, ownId(),
                                   !m.isTribe);
}

void OpenIMManager::deliver(const BaseMsg::MMessage& m, const QString& preview) {
    emit chatMessage(m);
    MainViewDelegate* shell = MainViewDelegate::instance();
    if (!shell) return;
    shell->talkListPreview(m.conversationId, preview);
    // History and the user's own messages (echoed as sent) mark nothing as new.
    if (m.isHistory || m.isSelf) return;
    if (m.kind == BaseMsg::Custom && !taskCardAlerts(m)) return;
    ConversationRecord record;
    record.id = m.conversationId;
    record.name = m.isTribe ? QString() : m.senderName;
    if (const DirectoryStore::Tribe* t = DirectoryStore::instance().tribe(m.conversationId))
        record.name = t->name;
    record.nickName = m.senderId;
    record.fromSelf = m.isSelf;
    record.muted = ConfigStore::instance().hasUser() &&
                   ConfigStore::instance().shieldList().isShielded(m.conversationId.toULongLong());
    alerts_.add(record, preview);
}

void OpenIMManager::alert(const AlertCoalescer::Alert& a) {
    MainViewDelegate* shell = MainViewDelegate::instance();
    if (!shell) return;
    // The text first: marking the row raises the alert, whose pop-up shows that text.
    shell->newMessage(a.record, a.preview);
    if (shell->currentConversationId() != a.record.id) {
        shell->newMessageMark(a.record.id, a.count);
        shell->talkListPreview(a.record.id, a.preview);
    } else {
        markSeen(a.record.id);  // it came into the page the user is looking at
    }
}

void OpenIMManager::OnDownloadMedia(openim::ResultCode result, openim::DownloadMediaResult media) {
    const quint64 id = media.msgId;
    const QString path = result.ok() ? toQ(media.localPath) : QString();
    base::scoped_refptr<OpenIMManager> self(this);
    QMetaObject::invokeMethod(
        this, [self, id, path] { emit self->mediaDownloaded(id, path); }, Qt::QueuedConnection);
}

void OpenIMManager::OnDownloadTribeMedia(openim::ResultCode result,
                                         openim::DownloadTribeMediaResult media) {
    const quint64 id = media.msgId;
    const QString path = result.ok() ? toQ(media.localPath) : QString();
    base::scoped_refptr<OpenIMManager> self(this);
    QMetaObject::invokeMethod(
        this, [self, id, path] { emit self->mediaDownloaded(id, path); }, Qt::QueuedConnection);
}

// --- history ----------------------------------------------------------------------------

// History asks the tribe when the directory knows the id as one, else the one-to-one
// conversation: a colleague who is no longer in the directory still has a history.
void OpenIMManager::getLatestMsg(const QString& id) {
    if (auto tribe = isKnownTribe(id) ? tribeWith(id) : nullptr)
        tribe->ResetHistory();
    else if (auto conversation = conversationWith(id))
        conversation->ResetHistory();
    getMoreMsg(id);
}

void OpenIMManager::getMoreMsg(const QString& id) {
    if (auto tribe = isKnownTribe(id) ? tribeWith(id) : nullptr)
        tribe->GetHistory(7, base::Bind(&OpenIMManager::OnTribeHistory, this, id));
    else if (auto conversation = conversationWith(id))
        conversation->GetHistory(7, base::Bind(&OpenIMManager::OnHistory, this, id));
}

void OpenIMManager::OnHistory(QString id, prg::PrgStringT<wchar_t> peer, openim::ResultCode result,
                              std::vector<openim::IMMessage> messages) {
    peer.Release();
    // A page is shown whatever the archive said: what the store had is in it.
    if (!result.ok())
        Logger::instance().write(QStringLiteral("history of %1: archive error %2, %3 stored shown")
                                     .arg(id)
                                     .arg(result.code)
                                     .arg(messages.size()));
    if (messages.empty()) return;
    base::scoped_refptr<OpenIMManager> self(this);
    QMetaObject::invokeMethod(
        this,
        [self, messages] {
            for (const openim::IMMessage& m : messages) self->showChatMsg(true, m);
        },
        Qt::QueuedConnection);
}

void OpenIMManager::OnTribeHistory(QString id, prg::PrgStringT<wchar_t> tribe,
                                   openim::ResultCode result,
                                   std::vector<openim::IMTribeMessage> messages) {
    tribe.Release();
    if (!result.ok())
        Logger::instance().write(QStringLiteral("history of %1: archive error %2, %3 stored shown")
                                     .arg(id)
                                     .arg(result.code)
                                     .arg(messages.size()));
    if (messages.empty()) return;
    base::scoped_refptr<OpenIMManager> self(this);
    QMetaObject::invokeMethod(
        this,
        [self, messages] {
            for (const openim::IMTribeMessage& m : messages) self->showTribeChatMsg(true, m);
        },
        Qt::QueuedConnection);
}

// --- sending ----------------------------------------------------------------------------

void OpenIMManager::sendCustemSlot(const QString& id, const QString& summary,
                                   const QString& content) {
    sendTextOrCustom(id, summary, content);
}

// Sends to one conversation leave in the order they were asked for: a picture or file
// takes a while to upload, and what is typed after it must not overtake it. A send that
// uploads holds back the ones after it until the SDK reports it done (or a long while
// passed without a report, so that a lost report cannot stall the conversation).
void OpenIMManager::queueSend(const QString& id, bool uploads, std::function<void()> send) {
    sendQueue_[id].push_back({uploads, std::move(send)});
    if (!uploading_.contains(id)) pumpSends(id);
}

void OpenIMManager::pumpSends(const QString& id) {
    std::deque<QueuedSend>& queue = sendQueue_[id];
    while (!queue.empty()) {
        QueuedSend next = std::move(queue.front());
        queue.pop_front();
        next.send();
        if (next.uploads) {
            const quint64 ticket = ++sendTicket_;
            uploading_.insert(id, ticket);
            QTimer::singleShot(kUploadReportMs, this, [this, id, ticket] {
                if (uploading_.value(id) == ticket) uploadFinished(id);
            });
            return;
        }
    }
    sendQueue_.remove(id);
}

void OpenIMManager::uploadFinished(const QString& id) {
    uploading_.remove(id);
    pumpSends(id);
}

void OpenIMManager::sendTextOrCustom(const QString& id, const QString& summary,
                                     const QString& content) {
    queueSend(id, false, [this, id, summary, content] { sendNow(id, summary, content); });
}

void OpenIMManager::sendNow(const QString& id, const QString& summary, const QString& content) {
    const int kind = summary.isEmpty() ? BaseMsg::Text : BaseMsg::Custom;
    if (isUser(id)) {
        auto conversation = conversationWith(id);
        if (!conversation) return failUnsendable(id, kind, summary, content);
        if (summary.isEmpty())
            conversation->SendText(fromQ(content), base::Bind(&OpenIMManager::OnSent, this));
        else
            conversation->SendCustom(fromQ(content), fromQ(summary),
                                     base::Bind(&OpenIMManager::OnSent, this));
        return;
    }
    auto tribe = tribeWith(id);
    if (!tribe) return failUnsendable(id, kind, summary, content);
    if (summary.isEmpty())
        tribe->SendText(fromQ(content), base::Bind(&OpenIMManager::OnTribeSent, this));
    else
        tribe->SendCustom(fromQ(content), fromQ(summary),
                          base::Bind(&OpenIMManager::OnTribeSent, this));
}

void OpenIMManager::sendPicture(const QString& id, const QString& filePath) {
    queueSend(id, true, [this, id, filePath] { sendPictureNow(id, filePath); });
}

void OpenIMManager::sendPictureNow(const QString& id, const QString& filePath) {
    // The picture's size travels with it, so the receiver can lay it out before it loads.
    const QSize size = QImageReader(filePath).size();
    const base::FilePath path = wide_text::pathFromQ(filePath);
    if (isUser(id)) {
        if (auto conversation = conversationWith(id))
            return conversation->SendImage(path, size.width(), size.height(),
                                           base::Bind(&OpenIMManager::OnSent, this));
    } else if (auto tribe = tribeWith(id)) {
        return tribe->SendImage(path, size.width(), size.height(),
                                base::Bind(&OpenIMManager::OnTribeSent, this));
    }
    failUnsendable(id, BaseMsg::Media, QString(), filePath);
}

void OpenIMManager::sendFile(const QString& id, const QString& filePath) {
    queueSend(id, true, [this, id, filePath] { sendFileNow(id, filePath); });
}

void OpenIMManager::sendFileNow(const QString& id, const QString& filePath) {
    const base::FilePath path = wide_text::pathFromQ(filePath);
    if (isUser(id)) {
        if (auto conversation = conversationWith(id))
            return conversation->SendFile(path, base::Bind(&OpenIMManager::OnSent, this));
    } else if (auto tribe = tribeWith(id)) {
        return tribe->SendFile(path, base::Bind(&OpenIMManager::OnTribeSent, this));
    }
    failUnsendable(id, BaseMsg::MediaFile, QString(), filePath);
}

void OpenIMManager::failUnsendable(const QString& id, int kind, const QString& summary,
                                   const QString& content) {
    QX_LOG << "OpenIMManager: nothing to send through for " << id << " (kind " << kind << ")";
    BaseMsg::MMessage m;
    m.conversationId = id;
    m.isTribe = !isUser(id);
    m.senderId = ownId();
    m.isSelf = true;
    m.time = QDateTime::currentSecsSinceEpoch();
    m.kind = kind;
    m.summary = summary;
    m.sentContent = content;
    if (kind == BaseMsg::Text) m.text = content;
    if (kind == BaseMsg::Media || kind == BaseMsg::MediaFile) m.mediaPath = content;
    emit sendFailed(m, QStringLiteral("找不到该会话"));
    // Nothing will report this one's end: the sends queued behind it go on.
    if (isUpload(kind)) {
        base::scoped_refptr<OpenIMManager> self(this);
        QMetaObject::invokeMethod(
            this, [self, id] { self->uploadFinished(id); }, Qt::QueuedConnection);
    }
}

void OpenIMManager::OnSent(openim::IMMessage message, openim::ResultCode sent,
                           openim::ResultCode uploaded) {
    if (!sent.ok() || !uploaded.ok())
        QX_LOG << "OpenIMManager: a message was not sent (" << sent.code << ", " << uploaded.code
               << ")";
    base::scoped_refptr<OpenIMManager> self(this);
    const QString failure = sendFailureText(sent, uploaded);
    // Echoed into the conversation at once, sent or not: the user sees what they wrote,
    // and below it that it did not go out.
    QMetaObject::invokeMethod(
        this,
        [self, message, failure] {
            self->showChatMsg(false, message);
            if (!failure.isEmpty()) {
                BaseMsg::MMessage failed = toMessage(message, self->ownId(), false);
                failed.sentContent = toQ(message.content.content);
                emit self->sendFailed(failed, failure);
            }
            if (isUpload(message.content.type)) self->uploadFinished(toQ(message.receiver.account));
        },
        Qt::QueuedConnection);
}

// What the page says about a send that failed; empty when it went out.
QString OpenIMManager::sendFailureText(const openim::ResultCode& sent,
                                       const openim::ResultCode& uploaded) {
    if (sent.ok() && uploaded.ok()) return QString();
    const openim::ResultCode& r = sent.ok() ? uploaded : sent;
    switch (r.code) {
        case openim::ResultCode::kNotLoggedIn:
            return QStringLiteral("未连接到通讯服务器");
        case openim::ResultCode::kInvalidArgument:
            return QStringLiteral("内容无法发送");
        case openim::ResultCode::kNotFound:
            return QStringLiteral("您已不在该群中");
        default:
            return sent.ok() ? QStringLiteral("上传失败") : QStringLiteral("网络错误");
    }
}

void OpenIMManager::resend(const BaseMsg::MMessage& m) {
    const QString id = m.conversationId;
    if (id.isEmpty()) return;
    switch (m.kind) {
        case BaseMsg::Text:
            return sendTextOrCustom(id, QString(), m.text);
        case BaseMsg::Media:
            return sendPicture(id, m.mediaPath);
        case BaseMsg::MediaFile:
            return sendFile(id, m.mediaPath);
        case BaseMsg::Custom:
            // Cards and shakes: their own JSON, as first handed to the service.
            if (!m.sentContent.isEmpty()) return sendTextOrCustom(id, m.summary, m.sentContent);
            [[fallthrough]];
        default:
            QX_LOG << "OpenIMManager: a message of kind " << m.kind << " cannot be sent again";
    }
}

void OpenIMManager::OnTribeSent(openim::IMTribeMessage message, openim::ResultCode sent,
                                openim::ResultCode uploaded) {
    if (!sent.ok() || !uploaded.ok())
        QX_LOG << "OpenIMManager::OnTribeSent failed: tribe "
               << QString::number(message.tribe.tribeId) << " result " << sent.code << " upload "
               << uploaded.code << " " << toQ(sent.text) << toQ(uploaded.text);
    base::scoped_refptr<OpenIMManager> self(this);
    const QString failure = sendFailureText(sent, uploaded);
    QMetaObject::invokeMethod(
        this,
        [self, message, failure] {
            self->showTribeChatMsg(false, message);
            if (!failure.isEmpty()) {
                BaseMsg::MMessage failed = toTribeMessage(message, self->ownId(), false);
                failed.sentContent = toQ(message.content.content);
                emit self->sendFailed(failed, failure);
            }
            if (isUpload(message.content.type))
                self->uploadFinished(QString::number(message.tribe.tribeId));
        },
        Qt::QueuedConnection);
}

// --- push channel -----------------------------------------------------------------------

void OpenIMManager::OnXPushStarted(openim::XPushStartOkParam) {
    debugLine(QStringLiteral("OnXPushStarted"));
}
void OpenIMManager::OnXPushKicked(openim::XPushKickedParam) {
    debugLine(QStringLiteral("OnXPushKicked"));
}
void OpenIMManager::OnXPushStoped(openim::XPushStopedParam) {
    debugLine(QStringLiteral("OnXPushStoped"));
}
void OpenIMManager::OnXPushError(openim::XPushErrorParam) {
    debugLine(QStringLiteral("OnXPushError"));
}
void OpenIMManager::OnXPushMsgs(std::vector<openim::XPushMsg> messages) {
    debugLine(QStringLiteral("XPush Msgs: %1").arg(messages.size()));
    for (const openim::XPushMsg& m : messages)
        debugLine(QStringLiteral("XPush Msg %1 at %2: %3")
                      .arg(wide_text::toQ(m.msgId))
                      .arg(m.msgTime)
                      .arg(wide_text::toQ(m.subject).left(200)));
}

// --- tribes -----------------------------------------------------------------------------

namespace {
template <class F>
void onGui(OpenIMManager* self, F f) {
    base::scoped_refptr<OpenIMManager> keep(self);
    QMetaObject::invokeMethod(
        self, [keep, f] { f(); }, Qt::QueuedConnection);
}

}  // namespace

void OpenIMManager::OnTribesLoaded() {}

void OpenIMManager::OnTribeMemberJoined(openim::IMTribeID tribe, openim::IMUserID user) {
    onGui(this, [this, tribe, user] { tribes_->memberJoined(tribe.tribeId, toQ(user.account)); });
}

void OpenIMManager::OnTribeMemberQuit(openim::IMTribeID tribe, openim::IMUserID user) {
    onGui(this, [this, tribe, user] { tribes_->memberQuit(tribe.tribeId, toQ(user.account)); });
}

void OpenIMManager::OnTribeMemberKicked(openim::IMTribeID tribe, openim::IMUserID user) {
    onGui(this, [this, tribe, user] { tribes_->memberKicked(tribe.tribeId, toQ(user.account)); });
}

void OpenIMManager::OnTribeRoleChanged(openim::IMTribeID, openim::IMUserID, openim::IMUserID) {}

// A new name is read with the tribe itself when the SDK reports the change (event 9).
void OpenIMManager::OnTribeNameChanged(openim::IMTribeID, prg::PrgStringT<wchar_t> name) {
    name.Release();
}

void OpenIMManager::OnTribeNoticeChanged(openim::IMTribeID, prg::PrgStringT<wchar_t> notice) {
    notice.Release();
}

void OpenIMManager::OnTribeDismissed(const openim::IMTribeID& tribe) {
    const quint64 id = tribe.tribeId;
    onGui(this, [this, id] { tribes_->dismissed(id); });
}

void OpenIMManager::OnTribeInfoChanged(openim::IMTribeID tribe) {
    onGui(this, [this, tribe] {
        base::scoped_refptr<openim::ITribe> t = tribeWith(QString::number(tribe.tribeId));
        tribes_->infoChanged(tribe.tribeId, t ? toQ(t->GetName()) : QString());
    });
}

void OpenIMManager::OnTribeNewMessage(openim::IMTribeID tribe) {
    tribes_->newMessages(tribe.tribeId);
}

void OpenIMManager::dissolveOrLeave(quint64 tribe) { tribes_->dissolveOrLeave(tribe); }
