// The facade over the IM SDK: its callbacks registered and routed to the parts on the GUI thread.
#include "openimmanager.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include "base/bind.h"
#include "base/path_service.h"
#include "base/scoped_refptr.h"
#include "base/thread_hooks.h"
#include "chostapplication.h"
#include "configstore.h"
#include "displaybatcher.h"
#include "emotionset.h"
#include "imservices.h"
#include "imsession.h"
#include "logger.h"
#include "logstream.h"
#include "messagedelivery.h"
#include "messagemapper.h"
#include "messagesender.h"
#include "openim/iconversation_service.h"
#include "openim/iim_core_service.h"
#include "openim/ilogin_service.h"
#include "openim/im_emotion_item.h"
#include "openim/imedia_service.h"
#include "openim/itribe.h"
#include "openim/itribe_media_service.h"
#include "openim/itribe_service.h"
#include "openim/ixpush_service.h"
#include "openim/service_guids.h"
#include "prg/iprg_com.h"
#include "sdk/wide_text.h"
#include "tribemanager.h"
#include "unreadfetcher.h"
#include "unreadinbox.h"
#include "unseenledger.h"

using wide_text::fromQ;
using wide_text::toQ;

namespace {

constexpr long kNoRoot = 0x80004005L;

// Into the diagnostic log (which echoes it when debug output is on); these come from the
// SDK's thread too, and the log takes lines from any thread.
void debugLine(const QString& text) { Logger::instance().write(text); }

// Runs `f` on the GUI thread, the manager kept alive until it has.
template <class F>
void onGui(OpenIMManager* self, F f) {
    base::scoped_refptr<OpenIMManager> keep(self);
    QMetaObject::invokeMethod(
        self, [keep, f] { f(); }, Qt::QueuedConnection);
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

    session_ = new ImSession(this);
    delivery_ = new MessageDelivery([this] { return ownId(); }, this);
    display_ = new DisplayBatcher(delivery_, &watermark_, fetcher_, this);
    inbox_ = new UnreadInbox(
        fetcher_, display_, [this](const openim::IMUserID& peer) { OnIMNotifyMsgsOfSingle(peer); },
        this);
    sender_ = new MessageSender(this, this);
    tribes_ = new TribeManager(this, &fetchThread_);

    connect(session_, &ImSession::onlineState, this, &OpenIMManager::signal_OnlineState);
    connect(session_, &ImSession::network, this, &OpenIMManager::signal_Network);
    connect(session_, &ImSession::landed, this, &OpenIMManager::signal_Landed);
    connect(session_, &ImSession::loginResult, this, &OpenIMManager::loginResult);
    connect(session_, &ImSession::signingIn, this, [this] { inbox_->setReady(false); });
    connect(session_, &ImSession::signedIn, this, [this] {
        tribes_->fetchProjects();
        // The views were built by what the sign-in told them; what arrived meanwhile is
        // shown next, in the order it came, then whatever is still unread from before.
        QMetaObject::invokeMethod(
            this, [this] { setMsgReady(true); }, Qt::QueuedConnection);
    });
    // Membership may have changed while we were away.
    connect(session_, &ImSession::reconnected, tribes_, &TribeManager::fetchProjects);
    connect(delivery_, &MessageDelivery::chatMessage, this, &OpenIMManager::chatMessage);
    connect(sender_, &MessageSender::sendFailed, this, &OpenIMManager::sendFailed);
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
    if (auto core =
            ImServices::get<openim::IIMCoreService>(openim::kCoreModule, openim::kCoreInterface)) {
        core->SetHostApplication(host.get());
        core->Start(program.DirName().Append(FILE_PATH_LITERAL("resource")),
                    fromQ(QLatin1String(kAppKey)));
        std::vector<openim::IMEmotionItem> emotions;
        core->GetEmotionItems(&emotions);
        QList<EmotionSet::Item> items;
        for (const openim::IMEmotionItem& e : emotions)
            items.append({toQ(e.emPngFixedPath), toQ(e.emotionShortCut)});
        EmotionSet::instance().setItems(items);
    }

    if (auto push =
            ImServices::get<openim::IXPushService>(openim::kXPushModule, openim::kXPushInterface)) {
        push->RegisterStartOk(base::Bind(&OpenIMManager::OnXPushStarted, this));
        push->RegisterKicked(base::Bind(&OpenIMManager::OnXPushKicked, this));
        push->RegisterStoped(base::Bind(&OpenIMManager::OnXPushStoped, this));
        push->RegisterError(base::Bind(&OpenIMManager::OnXPushError, this));
        push->RegisterMsgs(base::Bind(&OpenIMManager::OnXPushMsgs, this));
    }
    if (auto login =
            ImServices::get<openim::ILoginService>(openim::kLoginModule, openim::kLoginInterface)) {
        login->RegisterLoginStep(base::Bind(&OpenIMManager::OnLoginStep, this));
        login->RegisterLoginOk(base::Bind(&OpenIMManager::OnLoginOk, this));
        login->RegisterKicked(base::Bind(&OpenIMManager::OnKicked, this));
        login->RegisterLoginFail(base::Bind(&OpenIMManager::OnLoginFail, this));
        login->RegisterReLoginFail(base::Bind(&OpenIMManager::OnReLoginFail, this));
        login->RegisterReLoginOk(base::Bind(&OpenIMManager::OnReLoginOk, this));
        login->RegisterNetDisConnect(base::Bind(&OpenIMManager::OnNetDisConnect, this));
        login->RegisterLogouted(base::Bind(&OpenIMManager::OnLogouted, this));
    }
    if (auto single = ImServices::get<openim::IConversationService>(openim::kConversationModule,
                                                                    openim::kConversationInterface))
        single->RegisterNewMessageCallback(
            base::Bind(&OpenIMManager::OnIMNotifyMsgsOfSingle, this));
    if (auto media =
            ImServices::get<openim::IMediaService>(openim::kMediaModule, openim::kMediaInterface))
        media->RegisterDownloadCallback(base::Bind(&OpenIMManager::OnDownloadMedia, this));
    if (auto tribes =
            ImServices::get<openim::ITribeService>(openim::kTribeModule, openim::kTribeInterface)) {
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
    if (auto tribeMedia = ImServices::get<openim::ITribeMediaService>(openim::kTribeMediaModule,
                                                                      openim::kTribeMediaInterface))
        tribeMedia->RegisterDownloadCallback(
            base::Bind(&OpenIMManager::OnDownloadTribeMedia, this));
    initialised_ = true;
    return true;
}

void OpenIMManager::setRequester(Requester* requester) {
    inbox_->setRequester(requester);
    tribes_->setRequester(requester);
}

// --- session ----------------------------------------------------------------------------

void OpenIMManager::login(const LoginUser& user) {
    // Start-up brings the SDK up once the first window is drawn; a sign-in can come first.
    init();
    session_->login(user);
}

void OpenIMManager::logout() {
    flushWatermark();
    inbox_->setReady(false);
    inbox_->clearPending();
    session_->logout();
}

QString OpenIMManager::ownId() const { return session_->ownId(); }
bool OpenIMManager::isLoggedIn() const { return session_->isLoggedIn(); }
bool OpenIMManager::sessionTimerRunning() const { return session_->sessionTimerRunning(); }
bool OpenIMManager::retryTimerRunning() const { return session_->retryTimerRunning(); }
bool OpenIMManager::presencePending() const { return session_->presencePending(); }
void OpenIMManager::OnTimeout() { session_->retry(); }

void OpenIMManager::OnLoginStep(openim::LoginStep) {}

void OpenIMManager::OnLoginOk(openim::LoginOkParam param) {
    onGui(this, [this, param] { session_->loginOk(param.user); });
}

void OpenIMManager::OnLoginFail(openim::LoginFailParam param) {
    onGui(this, [this, param] { session_->loginFailed(param.result.code); });
}

void OpenIMManager::OnKicked(openim::KickedParam) {
    onGui(this, [this] {
        inbox_->setReady(false);
        session_->kicked();
    });
}

void OpenIMManager::OnReLoginFail(openim::ReLoginFailParam) {}  // the retry timer goes on

void OpenIMManager::OnReLoginOk(openim::ReLoginOkParam) {
    onGui(this, [this] { session_->reloginOk(); });
}

void OpenIMManager::OnNetDisConnect(openim::NetDisConnectParam) {
    onGui(this, [this] { session_->connectionLost(); });
}

void OpenIMManager::OnLogouted(openim::LogoutedParam) {}

void OpenIMManager::OnSyncRegistered(prg::PrgStringT<wchar_t> address) { address.Release(); }

void OpenIMManager::OnPresence(openim::ResultCode result,
                               std::map<openim::IMUserID, openim::IMUserStatus> status) {
    onGui(this, [this, result, status] { session_->presenceAnswered(result, status); });
}

// --- incoming ---------------------------------------------------------------------------

bool OpenIMManager::msgReady() const { return inbox_->isReady(); }
const QList<openim::IMUserID>& OpenIMManager::pendingList() const { return inbox_->pending(); }

void OpenIMManager::setMsgReady(bool ready) {
    inbox_->setReady(ready);
    tribes_->setReady(ready);
    if (!ready) return;
    announceUnseen();
    inbox_->drainPending();
}

void OpenIMManager::announceUnseen() {
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
}

void OpenIMManager::markSeen(const QString& id) {
    UnseenLedger::markSeen(id, !DirectoryStore::instance().isUser(id));
}

void OpenIMManager::OnIMNotifyMsgsOfSingle(openim::IMUserID sender) {
    const QString id = toQ(sender.account);
    QX_LOG << "OpenIMManager::OnIMNotifyMsgsOfSingle " << id;
    debugLine(QStringLiteral("OpenIMManager::OnIMNotifyMsgsOfSingle ") + id);
    if (inbox_->fetchIfReady(sender)) return;
    // Not ready yet: every notification is kept, in order, for when the client is.
    onGui(this, [this, sender] { updateUnreadMsg(sender); });
}

void OpenIMManager::updateUnreadMsg(const openim::IMUserID& user) { inbox_->update(user); }

void OpenIMManager::OnHttpGetOthersBack(const QString& userId) { inbox_->senderKnown(userId); }

void OpenIMManager::showChatMsg(bool history, const openim::IMMessage& message) {
    delivery_->show(history, message);
}

void OpenIMManager::showTribeChatMsg(bool history, const openim::IMTribeMessage& message) {
    delivery_->showTribe(history, message);
}

AlertCoalescer& OpenIMManager::alerts() { return delivery_->alerts(); }

QString OpenIMManager::previewOf(const QString& text) { return MessageMapper::previewOf(text); }

BaseMsg::MMessage OpenIMManager::toMessage(const openim::IMMessage& m, const QString& ownId,
                                           bool history) {
    return MessageMapper::toMessage(m, ownId, history);
}

BaseMsg::MMessage OpenIMManager::toTribeMessage(const openim::IMTribeMessage& m,
                                                const QString& ownId, bool history) {
    return MessageMapper::toTribeMessage(m, ownId, history);
}

void OpenIMManager::OnDownloadMedia(openim::ResultCode result, openim::DownloadMediaResult media) {
    const quint64 id = media.msgId;
    const QString path = result.ok() ? toQ(media.localPath) : QString();
    onGui(this, [this, id, path] { emit mediaDownloaded(id, path); });
}

void OpenIMManager::OnDownloadTribeMedia(openim::ResultCode result,
                                         openim::DownloadTribeMediaResult media) {
    const quint64 id = media.msgId;
    const QString path = result.ok() ? toQ(media.localPath) : QString();
    onGui(this, [this, id, path] { emit mediaDownloaded(id, path); });
}

// --- history ----------------------------------------------------------------------------

void OpenIMManager::getLatestMsg(const QString& id) { history_.latest(id); }

void OpenIMManager::getMoreMsg(const QString& id) { history_.more(id); }

void OpenIMManager::OnHistory(QString id, prg::PrgStringT<wchar_t> peer, openim::ResultCode result,
                              std::vector<openim::IMMessage> messages) {
    peer.Release();
    HistoryLoader::noteResult(id, result, messages.size());
    if (messages.empty()) return;
    onGui(this, [this, messages] { history_.showPage(messages); });
}

void OpenIMManager::OnTribeHistory(QString id, prg::PrgStringT<wchar_t> tribe,
                                   openim::ResultCode result,
                                   std::vector<openim::IMTribeMessage> messages) {
    tribe.Release();
    HistoryLoader::noteResult(id, result, messages.size());
    if (messages.empty()) return;
    onGui(this, [this, messages] { history_.showTribePage(messages); });
}

// --- sending ----------------------------------------------------------------------------

void OpenIMManager::sendCustemSlot(const QString& id, const QString& summary,
                                   const QString& content) {
    sendTextOrCustom(id, summary, content);
}

void OpenIMManager::sendTextOrCustom(const QString& id, const QString& summary,
                                     const QString& content) {
    sender_->sendTextOrCustom(id, summary, content);
}

void OpenIMManager::sendPicture(const QString& id, const QString& filePath) {
    sender_->sendPicture(id, filePath);
}

void OpenIMManager::sendFile(const QString& id, const QString& filePath) {
    sender_->sendFile(id, filePath);
}

void OpenIMManager::resend(const BaseMsg::MMessage& message) { sender_->resend(message); }

void OpenIMManager::OnSent(openim::IMMessage message, openim::ResultCode sent,
                           openim::ResultCode uploaded) {
    if ((!sent.ok() && !sent.pending()) || !uploaded.ok())
        QX_LOG << "OpenIMManager: a message was not sent (" << sent.code << ", " << uploaded.code
               << ")";
    const QString failure = MessageSender::failureText(sent, uploaded);
    onGui(this, [this, message, failure, pending = sent.pending()] {
        sender_->sent(message, failure, pending);
    });
}

void OpenIMManager::OnTribeSent(openim::IMTribeMessage message, openim::ResultCode sent,
                                openim::ResultCode uploaded) {
    if ((!sent.ok() && !sent.pending()) || !uploaded.ok())
        QX_LOG << "OpenIMManager::OnTribeSent failed: tribe "
               << QString::number(message.tribe.tribeId) << " result " << sent.code << " upload "
               << uploaded.code << " " << toQ(sent.text) << toQ(uploaded.text);
    const QString failure = MessageSender::failureText(sent, uploaded);
    onGui(this, [this, message, failure, pending = sent.pending()] {
        sender_->tribeSent(message, failure, pending);
    });
}

// --- push channel: logged only ------------------------------------------------------------

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
                      .arg(toQ(m.msgId))
                      .arg(m.msgTime)
                      .arg(toQ(m.subject).left(200)));
}

// --- tribes -----------------------------------------------------------------------------

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
        base::scoped_refptr<openim::ITribe> t = ImServices::tribe(QString::number(tribe.tribeId));
        tribes_->infoChanged(tribe.tribeId, t ? toQ(t->GetName()) : QString());
    });
}

void OpenIMManager::OnTribeNewMessage(openim::IMTribeID tribe) {
    tribes_->newMessages(tribe.tribeId);
}

void OpenIMManager::dissolveOrLeave(quint64 tribe) { tribes_->dissolveOrLeave(tribe); }
