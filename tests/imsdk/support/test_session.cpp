#include "test_session.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QProcess>
#include <QThread>

#include "base/bind.h"
#include "openim/iim_core_service.h"
#include "openim/imedia_service.h"
#include "openim/itribe_service.h"
#include "openim/ixpush_service.h"
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

void startPlainClient(QProcess& process, const ProsodyServer& server, const QString& user,
                      const QString& peer, const QStringList& args) {
    const QString domain = QLatin1Char('@') + server.domain();
    process.start(
        QStringLiteral("/usr/bin/python3"),
        QStringList{QStringLiteral(QUELIX_PLAIN_CLIENT), user + domain,
                    QStringLiteral("pw-") + user, server.host(), QString::number(server.port()),
                    peer.contains(QLatin1Char('@')) ? peer : peer + domain} +
            args);
}

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
    auto core = service<openim::IIMCoreService>(openim::kCoreModule, openim::kCoreInterface);
    core->Start(base::FilePath(), fromQ(appKey()));

    SessionProbe* p = probe_.get();
    auto push = service<openim::IXPushService>(openim::kXPushModule, openim::kXPushInterface);
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
    service<openim::IMediaService>(openim::kMediaModule, openim::kMediaInterface)
        ->RegisterDownloadCallback(base::Bind(&SessionProbe::OnDownload, p));
}

TestSession::~TestSession() { sdk_.reset(); }

prg::IPrgCOM* TestSession::root() { return sdk_->root(); }

base::scoped_refptr<openim::ILoginService> TestSession::loginService() {
    return service<openim::ILoginService>(openim::kLoginModule, openim::kLoginInterface);
}

base::scoped_refptr<openim::IConversationService> TestSession::conversationService() {
    return service<openim::IConversationService>(openim::kConversationModule,
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

bool TestSession::signIn(const ProsodyServer& server, const QString& account,
                         const QString& authority) {
    const int before = probe_->count(QStringLiteral("loginOk"));
    login(server, account, QStringLiteral("pw-") + account, authority);
    return waitUntil([&] { return probe_->count(QStringLiteral("loginOk")) > before; });
}

bool TestSession::signInVia(const ProsodyServer& server, quint16 port, const QString& account) {
    const int before = probe_->count(QStringLiteral("loginOk"));
    loginVia(server, port, account, QStringLiteral("pw-") + account);
    return waitUntil([&] { return probe_->count(QStringLiteral("loginOk")) > before; });
}

bool TestSession::signOut() {
    const int before = probe_->count(QStringLiteral("logouted"));
    logout();
    return waitUntil([&] { return probe_->count(QStringLiteral("logouted")) > before; });
}

bool TestSession::reloginUntilOk(int pauseMs) {
    const int before = probe_->count(QStringLiteral("reloginOk"));
    return waitUntil([&] {
        if (probe_->count(QStringLiteral("reloginOk")) > before) return true;
        relogin();
        waitUntil([] { return false; }, pauseMs);
        return false;
    });
}

base::scoped_refptr<openim::ITribe> TestSession::tribe(quint64 id) {
    openim::ITribe* raw = nullptr;
    service<openim::ITribeService>(openim::kTribeModule, openim::kTribeInterface)
        ->GetTribe(openim::IMTribeID(id), &raw);
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

QStringList TestSession::readBack(const QString& peer, int pageSize) {
    return readBackPages(
        *probe_, [&] { requestHistory(peer, pageSize); },
        [&] { return texts(probe_->historyPages().last()); });
}

QStringList readBackPages(const EventLog& log, const std::function<void()>& askNext,
                          const std::function<QStringList()>& lastPage) {
    QStringList all;
    const int asked = log.count(QStringLiteral("history"));
    const int answered = log.count(QStringLiteral("history:0"));
    for (int page = 1; page < 200; ++page) {
        askNext();
        if (!waitUntil([&] { return log.count(QStringLiteral("history")) == asked + page; }) ||
            log.count(QStringLiteral("history:0")) != answered + page)
            return all << QStringLiteral("<failed>");
        const QStringList got = lastPage();
        if (got.isEmpty()) return all;
        all = got + all;
    }
    return all << QStringLiteral("<endless>");
}
