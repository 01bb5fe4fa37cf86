#include "sdk/sdk_services.h"

#include "sdk/conversation_impl.h"
#include "sdk/emotion_catalogue.h"
#include "sdk/im_engine.h"
#include "sdk/tribe_impl.h"
#include "sdk/tribe_messages.h"
#include "sdk/tribe_rooms.h"
#include "sdk/wide_text.h"

using wide_text::fromQ;
using wide_text::toQ;

SdkServices::SdkServices(ImEngine* engine, QString defaultDataFolder)
    : engine_(engine), defaultDataFolder_(std::move(defaultDataFolder)) {}

long SdkServices::AddRef() { return refs_.fetch_add(1) + 1; }

long SdkServices::Release() {
    long left = refs_.fetch_sub(1) - 1;
    if (left == 0) delete this;
    return left;
}

template <class F>
void SdkServices::post(F task) {
    ImEngine* e = engine_;
    if (e) e->post([e, task] { task(e); });
}

// ---- core ----

void SdkServices::SetHostApplication(openim::IHostApplication* host) {
    std::lock_guard<std::mutex> guard(lock_);
    host_ = host;
}

void SdkServices::Start(const base::FilePath& resourceFolder,
                        const prg::PrgStringT<wchar_t>& appKey) {
    {
        std::lock_guard<std::mutex> guard(lock_);
        resourceFolder_ = resourceFolder;
    }
    const QString key = toQ(appKey);
    ImEngine* e = engine_;
    if (e)
        e->call([e, key] {
            e->setAppKey(key);
            return true;
        });
}

prg::PrgStringT<wchar_t> SdkServices::GetAppKey() {
    ImEngine* e = engine_;
    return e ? fromQ(e->call([e] { return e->appKey(); })) : prg::PrgStringT<wchar_t>();
}

void SdkServices::GetEmotionItems(std::vector<openim::IMEmotionItem>* items) {
    if (!items) return;
    items->clear();
    for (const EmotionCatalogue::Entry& entry : EmotionCatalogue::entries())
        items->push_back({fromQ(entry.picture), fromQ(entry.code)});
}

// ---- media ----

void SdkServices::RegisterDownloadCallback(const openim::IMediaService::DownloadCallback& cb) {
    post([cb](ImEngine* e) { e->callbacks().download = cb; });
}

void SdkServices::DownloadMedia(std::uint64_t msgId) {
    post([msgId](ImEngine* e) { e->downloadMedia(msgId); });
}

// ---- conversations ----

void SdkServices::RegisterNewMessageCallback(const NewMessageCallback& cb) {
    post([cb](ImEngine* e) { e->callbacks().newMessage = cb; });
}

prg::PrgResult SdkServices::GetConversation(const openim::IMUserID& peer,
                                            openim::IConversation** out) {
    if (!out) return prg::PRG_E_INVALIDARG;
    *out = nullptr;
    if (peer.account.empty() || !engine_) return prg::PRG_E_INVALIDARG;
    *out = new ConversationImpl(engine_, toQ(peer.account));
    (*out)->AddRef();
    return prg::PRG_OK;
}

void SdkServices::GetUnreadPeers(std::vector<openim::IMUserID>* peers) {
    ImEngine* e = engine_;
    if (!peers || !e) return;
    peers->clear();
    const QStringList accounts = e->call([e] { return e->unreadPeers(); });
    const QString key = toQ(GetAppKey());
    for (const QString& account : accounts) peers->push_back({fromQ(key), fromQ(account)});
}

void SdkServices::GetUnseen(std::vector<openim::IMUnseen>* conversations) {
    ImEngine* e = engine_;
    if (!conversations || !e) return;
    conversations->clear();
    const QList<MessageStore::Unseen> rows = e->call([e] { return e->unseen(); });
    for (const MessageStore::Unseen& row : rows) {
        openim::IMUnseen u;
        u.isTribe = TribeRooms::isKey(row.peer);
        if (u.isTribe)
            u.tribe = openim::IMTribeID(TribeRooms::idOfKey(row.peer));
        else
            u.account = fromQ(row.peer);
        u.count = row.count;
        u.lastTime = row.lastTime;
        conversations->push_back(u);
    }
}

void SdkServices::MarkSeen(const openim::IMUserID& peer) {
    ImEngine* e = engine_;
    if (!e || peer.account.empty()) return;
    const QString account = toQ(peer.account);
    e->call([e, account] { return e->markSeen(account); });
}

void SdkServices::MarkTribeSeen(openim::IMTribeID tribe) {
    ImEngine* e = engine_;
    if (!e || tribe.tribeId == 0) return;
    const QString key = TribeRooms::key(tribe.tribeId);
    e->call([e, key] { return e->markSeen(key); });
}

// ---- presence, account, sync ----

void SdkServices::RequestPresence(const prg::PrgStringT<wchar_t>&, const prg::PrgStringT<wchar_t>&,
                                  bool withStatus, const PresenceCallback& done) {
    post([withStatus, done](ImEngine* e) {
        e->requestPresence(
            withStatus ? done
                       : PresenceCallback(
                             std::function<void(openim::ResultCode,
                                                std::map<openim::IMUserID, openim::IMUserStatus>)>(
                                 [done](openim::ResultCode rc, auto) {
                                     if (!done.is_null()) done.Run(rc, {});
                                 })));
    });
}

openim::IMUserID SdkServices::GetLoginUserID() {
    ImEngine* e = engine_;
    return e ? e->call([e] { return e->loginUser(); }) : openim::IMUserID();
}

bool SdkServices::IsLoggedIn() {
    ImEngine* e = engine_;
    return e ? e->call([e] { return e->isOnline(); }) : false;
}

void SdkServices::RegisterSync(std::int32_t mode,
                               const base::Callback<void(prg::PrgStringT<wchar_t>)>& done) {
    post([mode, done](ImEngine* e) { e->registerSync(mode, done); });
}

// ---- login ----

void SdkServices::RegisterLoginStep(const base::Callback<void(openim::LoginStep)>& cb) {
    post([cb](ImEngine* e) { e->callbacks().loginStep = cb; });
}
void SdkServices::RegisterLoginOk(const base::Callback<void(openim::LoginOkParam)>& cb) {
    post([cb](ImEngine* e) { e->callbacks().loginOk = cb; });
}
void SdkServices::RegisterKicked(const base::Callback<void(openim::KickedParam)>& cb) {
    post([cb](ImEngine* e) { e->callbacks().kicked = cb; });
}
void SdkServices::RegisterLoginFail(const base::Callback<void(openim::LoginFailParam)>& cb) {
    post([cb](ImEngine* e) { e->callbacks().loginFail = cb; });
}
void SdkServices::RegisterReLoginFail(const base::Callback<void(openim::ReLoginFailParam)>& cb) {
    post([cb](ImEngine* e) { e->callbacks().reloginFail = cb; });
}
void SdkServices::RegisterReLoginOk(const base::Callback<void(openim::ReLoginOkParam)>& cb) {
    post([cb](ImEngine* e) { e->callbacks().reloginOk = cb; });
}
void SdkServices::RegisterNetDisConnect(
    const base::Callback<void(openim::NetDisConnectParam)>& cb) {
    post([cb](ImEngine* e) { e->callbacks().disconnected = cb; });
}
void SdkServices::RegisterLogouted(const base::Callback<void(openim::LogoutedParam)>& cb) {
    post([cb](ImEngine* e) { e->callbacks().logouted = cb; });
}

void SdkServices::Login(const openim::LoginParam& param) {
    QString folder;
    {
        std::lock_guard<std::mutex> guard(lock_);
        if (host_) folder = wide_text::pathToQ(host_->GetDataFolder());
    }
    if (folder.isEmpty()) folder = defaultDataFolder_;
    post([param, folder](ImEngine* e) { e->login(param, folder); });
}

void SdkServices::ReLogin() {
    post([](ImEngine* e) { e->relogin(); });
}

void SdkServices::Logout() {
    post([](ImEngine* e) { e->logout(); });
}

// ---- tribes: the rooms beside the engine ----

template <class F>
void SdkServices::onRooms(F task) {
    ImEngine* e = engine_;
    if (e) e->post([e, task] { task(e->tribes()->callbacks()); });
}

void SdkServices::RegisterDownloadCallback(const openim::ITribeMediaService::DownloadCallback& cb) {
    onRooms([cb](TribeRooms::Callbacks& c) { c.download = cb; });
}

void SdkServices::DownloadTribeMedia(std::uint64_t msgId) {
    post([msgId](ImEngine* e) { e->downloadMedia(msgId); });
}

void SdkServices::RegisterTribesLoaded(const base::Callback<void()>& cb) {
    onRooms([cb](TribeRooms::Callbacks& c) { c.loaded = cb; });
}
void SdkServices::RegisterMemberJoined(
    const base::Callback<void(openim::IMTribeID, openim::IMUserID)>& cb) {
    onRooms([cb](TribeRooms::Callbacks& c) { c.joined = cb; });
}
void SdkServices::RegisterMemberQuit(
    const base::Callback<void(openim::IMTribeID, openim::IMUserID)>& cb) {
    onRooms([cb](TribeRooms::Callbacks& c) { c.quit = cb; });
}
void SdkServices::RegisterMemberKicked(
    const base::Callback<void(openim::IMTribeID, openim::IMUserID)>& cb) {
    onRooms([cb](TribeRooms::Callbacks& c) { c.kicked = cb; });
}
void SdkServices::RegisterRoleChanged(
    const base::Callback<void(openim::IMTribeID, openim::IMUserID, openim::IMUserID)>& cb) {
    onRooms([cb](TribeRooms::Callbacks& c) { c.role = cb; });
}
void SdkServices::RegisterNameChanged(
    const base::Callback<void(openim::IMTribeID, prg::PrgStringT<wchar_t>)>& cb) {
    onRooms([cb](TribeRooms::Callbacks& c) { c.name = cb; });
}
void SdkServices::RegisterNoticeChanged(
    const base::Callback<void(openim::IMTribeID, prg::PrgStringT<wchar_t>)>& cb) {
    onRooms([cb](TribeRooms::Callbacks& c) { c.notice = cb; });
}
void SdkServices::RegisterTribeDismissed(const base::Callback<void(const openim::IMTribeID&)>& cb) {
    onRooms([cb](TribeRooms::Callbacks& c) { c.dismissed = cb; });
}
void SdkServices::RegisterTribeInfoChanged(const base::Callback<void(openim::IMTribeID)>& cb) {
    onRooms([cb](TribeRooms::Callbacks& c) { c.info = cb; });
}
void SdkServices::RegisterNewMessage(const base::Callback<void(openim::IMTribeID)>& cb) {
    onRooms([cb](TribeRooms::Callbacks& c) { c.message = cb; });
}

prg::PrgResult SdkServices::GetTribe(const openim::IMTribeID& tribe, openim::ITribe** out) {
    if (!out) return prg::PRG_E_INVALIDARG;
    *out = nullptr;
    if (tribe.tribeId == 0 || !engine_) return prg::PRG_E_INVALIDARG;
    *out = new TribeImpl(engine_, tribe.tribeId);
    (*out)->AddRef();
    return prg::PRG_OK;
}

void SdkServices::SyncTribes(const std::vector<openim::IMTribeID>& tribes,
                             const std::vector<prg::PrgStringT<wchar_t>>& names) {
    QList<quint64> ids;
    QStringList titles;
    for (size_t i = 0; i < tribes.size(); ++i) {
        ids << tribes[i].tribeId;
        titles << (i < names.size() ? toQ(names[i]) : QString());
    }
    post([ids, titles](ImEngine* e) { e->tribes()->sync(ids, titles); });
}

void SdkServices::GetUnreadTribes(std::vector<openim::IMTribeID>* tribes) {
    ImEngine* e = engine_;
    if (!tribes || !e) return;
    tribes->clear();
    const QList<quint64> ids = e->call([e] { return e->tribes()->messages()->unreadTribes(); });
    for (quint64 id : ids) tribes->push_back(openim::IMTribeID(id));
}

// ---- push ----

void SdkServices::RegisterStartOk(const base::Callback<void(openim::XPushStartOkParam)>& cb) {
    post([cb](ImEngine* e) { e->callbacks().pushStarted = cb; });
}
void SdkServices::RegisterKicked(const base::Callback<void(openim::XPushKickedParam)>& cb) {
    post([cb](ImEngine* e) { e->callbacks().pushKicked = cb; });
}
void SdkServices::RegisterStoped(const base::Callback<void(openim::XPushStopedParam)>& cb) {
    post([cb](ImEngine* e) { e->callbacks().pushStopped = cb; });
}
void SdkServices::RegisterError(const base::Callback<void(openim::XPushErrorParam)>& cb) {
    post([cb](ImEngine* e) { e->callbacks().pushError = cb; });
}
void SdkServices::RegisterMsgs(const base::Callback<void(std::vector<openim::XPushMsg>)>& cb) {
    post([cb](ImEngine* e) { e->callbacks().pushMsgs = cb; });
}
