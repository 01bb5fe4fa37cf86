#include "test_session.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QThread>

#include "base/bind.h"
#include "openim/iim_core_service.h"
#include "openim/imedia_service.h"
#include "openim/ixpush_service.h"
#include "openim/itribe_service.h"
#include "openim/service_guids.h"
#include "prosody_server.h"
#include "sdk/sdk_instance.h"
#include "sdk/wide_text.h"

using wide_text::fromQ;

bool waitUntil(const std::function<bool()>& done, int timeoutMs) {
    QDeadlineTimer deadline(timeoutMs);
    while (!done()) {
        if (deadline.hasExpired()) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
    return true;
}

namespace {
template <class T>
base::scoped_refptr<T> fetch(prg::IPrgCOM* root, const char* module, const char* iface) {
    base::scoped_refptr<T> out;
    out.adopt(root->GetService<T>(module, iface));
    return out;
}
}  // namespace

TestSession::TestSession(const QString& name) : probe_(new SessionProbe) {
    const QByteArray tmp = qgetenv("QUELIX_TEST_TMP");
    // Outside tests/run-isolated, keep runs apart: one folder per process.
    const QString base =
        tmp.isEmpty()
            ? QDir::tempPath() +
                  QStringLiteral("/quelix-imsdk-%1").arg(QCoreApplication::applicationPid())
            : QString::fromLocal8Bit(tmp);
    folder_ = base + QStringLiteral("/sessions/") + name;
    QDir().mkpath(folder_);
    sdk_ = std::make_unique<SdkInstance>(folder_);
    sdk_->root()->Init(
        base::FilePath::FromUTF8Unsafe(QCoreApplication::applicationFilePath().toStdString()));
    auto core = fetch<openim::IIMCoreService>(root(), openim::kCoreModule, openim::kCoreInterface);
    core->Start(base::FilePath(), fromQ(appKey()));

    SessionProbe* p = probe_.get();
    auto push = fetch<openim::IXPushService>(root(), openim::kXPushModule, openim::kXPushInterface);
    push->RegisterStartOk(base::Bind(&SessionProbe::OnPushStarted, p));
    push->RegisterKicked(base::Bind(&SessionProbe::OnPushKicked, p));
    push->RegisterStoped(base::Bind(&SessionProbe::OnPushStopped, p));
    push->RegisterMsgs(base::Bind(&SessionProbe::OnPushMsgs, p));
    auto login = loginService();
    login->RegisterLoginOk(base::Bind(&SessionProbe::OnLoginOk, p));
    login->RegisterKicked(base::Bind(&SessionProbe::OnKicked, p));
    login->RegisterLoginFail(base::Bind(&SessionProbe::OnLoginFail, p));
    login->RegisterReLoginFail(base::Bind(&SessionProbe::OnReLoginFail, p));
    login->RegisterReLoginOk(base::Bind(&SessionProbe::OnReLoginOk, p));
    login->RegisterNetDisConnect(base::Bind(&SessionProbe::OnNetDisConnect, p));
    login->RegisterLogouted(base::Bind(&SessionProbe::OnLogouted, p));
    conversationService()->RegisterNewMessageCallback(base::Bind(&SessionProbe::OnNewMessage, p));
    auto media =
        fetch<openim::IMediaService>(root(), openim::kMediaModule, openim::kMediaInterface);
    media->RegisterDownloadCallback(base::Bind(&SessionProbe::OnDownload, p));
}

TestSession::~TestSession() { sdk_.reset(); }

prg::IPrgCOM* TestSession::root() { return sdk_->root(); }

base::scoped_refptr<openim::ILoginService> TestSession::loginService() {
    return fetch<openim::ILoginService>(root(), openim::kLoginModule, openim::kLoginInterface);
}

base::scoped_refptr<openim::IConversationService> TestSession::conversationService() {
    return fetch<openim::IConversationService>(root(), openim::kConversationModule,
                                               openim::kConversationInterface);
}

void TestSession::login(const ProsodyServer& server, const QString& account, const QString& secret,
                        const QString& authority) {
    loginVia(server, server.port(), account, secret, authority);
}

void TestSession::loginVia(const ProsodyServer& server, quint16 port, const QString& account,
                           const QString& secret, const QString& authority) {
    openim::LoginParam param;
    param.user = openim::IMUserID(fromQ(appKey()), fromQ(account));
    param.secret = fromQ(secret);
    param.host = fromQ(server.host());
    param.port = port;
    param.domain = fromQ(server.domain());
    param.receiveFolder = fromQ(receiveFolder());
    param.authority = fromQ(authority);
    param.signInTimeoutMs = signInTimeoutMs_;
    param.caFile = fromQ(caFile_.isNull() ? server.caFile() : caFile_);
    param.requireTls = requireTls_;
    param.endpoints = fromQ(endpoints_);
    loginService()->Login(param);
}

void TestSession::relogin() { loginService()->ReLogin(); }
void TestSession::logout() { loginService()->Logout(); }

base::scoped_refptr<openim::ITribe> TestSession::tribe(quint64 id) {
    base::scoped_refptr<openim::ITribeService> service;
    service.adopt(
        root()->GetService<openim::ITribeService>(openim::kTribeModule, openim::kTribeInterface));
    openim::ITribe* raw = nullptr;
    service->GetTribe(openim::IMTribeID(id), &raw);
    base::scoped_refptr<openim::ITribe> out;
    out.adopt(raw);
    return out;
}

base::scoped_refptr<openim::IConversation> TestSession::conversation(const QString& peer) {
    openim::IConversation* c = nullptr;
    conversationService()->GetConversation(openim::IMUserID(fromQ(appKey()), fromQ(peer)), &c);
    base::scoped_refptr<openim::IConversation> out;
    out.adopt(c);
    return out;
}

void TestSession::sendText(const QString& peer, const QString& text) {
    conversation(peer)->SendText(fromQ(text), base::Bind(&SessionProbe::OnSent, probe_.get()));
}

void TestSession::sendCustom(const QString& peer, const QString& json, const QString& summary) {
    conversation(peer)->SendCustom(fromQ(json), fromQ(summary),
                                   base::Bind(&SessionProbe::OnSent, probe_.get()));
}

void TestSession::sendImage(const QString& peer, const QString& file, int width, int height) {
    conversation(peer)->SendImage(wide_text::pathFromQ(file), width, height,
                                  base::Bind(&SessionProbe::OnSent, probe_.get()));
}

int TestSession::unreadCount(const QString& peer) { return conversation(peer)->GetUnreadCount(); }

std::vector<openim::IMMessage> TestSession::unread(const QString& peer) {
    std::vector<openim::IMMessage> out;
    conversation(peer)->GetUnreadMessages(&out);
    return out;
}

void TestSession::markRead(const QString& peer) { conversation(peer)->MarkRead(); }

void TestSession::requestHistory(const QString& peer, int count) {
    conversation(peer)->GetHistory(count, base::Bind(&SessionProbe::OnHistory, probe_.get()));
}
