// The IM session: sign-in and out, heartbeat, relogin.
#include "imsession.h"

#include <QTimerEvent>

#include "base/bind.h"
#include "companytrust.h"
#include "configstore.h"
#include "directorystore.h"
#include "imservices.h"
#include "logger.h"
#include "mainviewdelegate.h"
#include "openim/ilogin_account_service.h"
#include "openim/ilogin_service.h"
#include "openim/ipresence_service.h"
#include "openim/isync_service.h"
#include "openim/service_guids.h"
#include "openimmanager.h"
#include "sdk/wide_text.h"

using wide_text::fromQ;
using wide_text::toQ;

namespace {

base::scoped_refptr<openim::ILoginService> loginService() {
    return ImServices::get<openim::ILoginService>(openim::kLoginModule, openim::kLoginInterface);
}

}  // namespace

ImSession::ImSession(OpenIMManager* core) : QObject(core), core_(core) {
    retryTimer_.setSingleShot(true);
    connect(&retryTimer_, &QTimer::timeout, this, &ImSession::retry);
}

QString ImSession::ownId() const { return toQ(ownUser_.account); }

void ImSession::login(const LoginUser& user) {
    auto login = loginService();
    if (!login) {
        emit loginResult(openim::ResultCode::kFailed);
        return;
    }
    openim::LoginParam param;
    param.user =
        openim::IMUserID(fromQ(QLatin1String(OpenIMManager::kAppKey)), fromQ(user.imAccount));
    param.secret = fromQ(user.imSecret);
    param.host = fromQ(user.imHost);
    param.port = quint16(user.imPort);
    param.endpoints = fromQ(user.imHosts);  // every node of a cluster, when the back end lists them
    param.domain = fromQ(user.imDomain.isEmpty() ? user.imHost : user.imDomain);
    param.receiveFolder = fromQ(ConfigStore::instance().folderPath(ConfigStore::Receive));
    param.authority = fromQ(user.imAuthority);
    param.caFile = fromQ(CompanyTrust::caFile());
    emit signingIn();
    loginRequested_ = true;
    login->Login(param);
    if (MainViewDelegate* shell = MainViewDelegate::instance()) shell->prepareFor(user.id);
}

void ImSession::logout() {
    killTimer(timerId_);
    timerId_ = 0;
    timerRunning_ = false;
    retryTimer_.stop();
    loggedIn_ = false;
    if (auto login = loginService()) login->Logout();
    emit landed(false);
}

void ImSession::loginOk(const openim::IMUserID& user) {
    Logger::instance().write(QStringLiteral("OnIMLoginSuccess"));
    if (auto account = ImServices::get<openim::ILoginAccountService>(
            openim::kLoginAccountModule, openim::kLoginAccountInterface))
        ownUser_ = account->GetLoginUserID();
    if (ownUser_.account.empty()) ownUser_ = user;
    if (MainViewDelegate* shell = MainViewDelegate::instance()) shell->loginSuccess(ownId());
    registerSync();
    loggedIn_ = true;
    if (MainViewDelegate* shell = MainViewDelegate::instance()) shell->setOnline(true);
    emit network(true);
    requestPresence();
    startSessionTimer();
    if (loginRequested_) {
        loginRequested_ = false;
        emit loginResult(0);
    }
    emit landed(true);
    emit signedIn();
}

void ImSession::loginFailed(int code) {
    Logger::instance().write(QStringLiteral("OnIMLoginFail"));
    const QString text =
        code == OpenIMManager::kWrongPassword ? QStringLiteral("登录失败，用户或密码错误")
        : code == openim::ResultCode::kInsecure
            ? QStringLiteral("通讯服务器的连接不安全（未加密或证书不受信任），已停止登录")
            : QStringLiteral("无法连接通讯服务器");
    if (MainViewDelegate* shell = MainViewDelegate::instance()) shell->loginFailed(text);
    loginRequested_ = false;
    emit loginResult(code == 0 ? int(openim::ResultCode::kFailed) : code);
}

void ImSession::kicked() {
    killTimer(timerId_);
    timerId_ = 0;
    timerRunning_ = false;
    retryTimer_.stop();
    loggedIn_ = false;
    if (MainViewDelegate* shell = MainViewDelegate::instance())
        shell->kicked(QStringLiteral("您的账号在别处登录，请重新登录。"));
    emit landed(false);
}

void ImSession::reloginOk() {
    retryTimer_.stop();  // first of all: no further relogin
    loggedIn_ = true;
    if (MainViewDelegate* shell = MainViewDelegate::instance()) shell->setOnline(true);
    emit network(true);
    requestPresence();
    startSessionTimer();
    registerSync();
    emit reconnected();  // membership may have changed while we were away
}

void ImSession::connectionLost() {
    if (timerRunning_) killTimer(timerId_);
    timerId_ = 0;
    timerRunning_ = false;
    if (MainViewDelegate* shell = MainViewDelegate::instance()) shell->setOnline(false);
    emit network(false);
    retry();
}

void ImSession::retry() {
    if (auto login = loginService()) login->ReLogin();
    retryTimer_.start(ConfigStore::instance().settings().netConnectMs());
}

void ImSession::startSessionTimer() {
    if (timerRunning_ && timerId_ != 0) return;
    timerId_ = startTimer(ConfigStore::instance().settings().checkStateMs(), Qt::CoarseTimer);
    timerRunning_ = true;
}

void ImSession::registerSync() {
    if (auto sync =
            ImServices::get<openim::ISyncService>(openim::kSyncModule, openim::kSyncInterface))
        sync->RegisterSync(1, base::Bind(&OpenIMManager::OnSyncRegistered, core_));
}

// --- heartbeat --------------------------------------------------------------------------

void ImSession::requestPresence() {
    auto presence = ImServices::get<openim::IPresenceService>(openim::kPresenceModule,
                                                              openim::kPresenceInterface);
    if (!presence) return;
    const DirectoryStore& store = DirectoryStore::instance();
    const auto userId = fromQ(QString::asprintf("%llu", store.selfId().toULongLong()));
    const auto companyId = fromQ(QString::asprintf("%llu", store.companyId().toULongLong()));
    presencePending_ = true;
    presence->RequestPresence(userId, companyId, true,
                              base::Bind(&OpenIMManager::OnPresence, core_));
}

void ImSession::presenceAnswered(const openim::ResultCode& result,
                                 const std::map<openim::IMUserID, openim::IMUserStatus>& status) {
    presencePending_ = false;
    DirectoryStore& store = DirectoryStore::instance();
    for (const auto& entry : status) {
        const QString id = toQ(entry.first.account);
        const bool online = entry.second.state != openim::IMUserStatus::kOffline;
        if (store.isOnline(id) != online) {
            store.setOnline(id, online);
            emit onlineState(id);
            if (MainViewDelegate* shell = MainViewDelegate::instance())
                shell->userOnlineChanged(id, online);
        }
    }
    if (result.code == 0 && !loggedIn_) {
        loggedIn_ = true;
        if (MainViewDelegate* shell = MainViewDelegate::instance()) shell->setOnline(true);
    }
}

void ImSession::timerEvent(QTimerEvent* event) {
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
        emit onlineState(id);
        if (wasOnline && shell) shell->userOnlineChanged(id, false);
    }
    loggedIn_ = false;
    if (shell) shell->setOnline(false);
}
