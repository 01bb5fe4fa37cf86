#include "imcli/im_cli.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QImageReader>
#include <QJsonDocument>
#include <QTimer>
#include <cstdio>

#include "base/bind.h"
#include "base/path_service.h"
#include "imcli/cli_host.h"
#include "imcli/cli_receiver.h"
#include "openim/iim_core_service.h"
#include "openim/ilogin_service.h"
#include "openim/imedia_service.h"
#include "openim/ixpush_service.h"
#include "openim/service_guids.h"
#include "sdk/wide_text.h"

using wide_text::fromQ;
using wide_text::toQ;

namespace {

const char kAppKey[] = "23015524";

template <class T>
base::scoped_refptr<T> service(prg::IPrgCOM* root, const char* module, const char* iface) {
    base::scoped_refptr<T> out;
    if (root) out.adopt(root->GetService<T>(module, iface));
    return out;
}

QString env(const char* name) { return qEnvironmentVariable(name); }

}  // namespace

ImCli::ImCli(QObject* parent) : QObject(parent), receiver_(new CliReceiver(this)) {}

ImCli::~ImCli() = default;

QString ImCli::usage() {
    return QStringLiteral(
        "usage: quelix-imcli [options] COMMAND [ARGS]\n"
        "options (defaults from the environment, as devstack/prosody-dev start prints it):\n"
        "  --host H        server address        (XMPP_HOST)\n"
        "  --port P        client port           (XMPP_PORT, 5222)\n"
        "  --domain D      XMPP domain           (XMPP_DOMAIN)\n"
        "  --ca FILE       the server's CA (PEM) (XMPP_CA_FILE)\n"
        "  --account A     account               (QUELIX_IM_ACCOUNT)\n"
        "  --secret S      IM secret             (QUELIX_IM_SECRET)\n"
        "  --data DIR      SDK data folder       (<Documents>/Quelix/OpenIM)\n"
        "commands:\n"
        "  send-text PEER TEXT\n"
        "  send-custom PEER JSON SUMMARY\n"
        "  send-file PEER FILE               (pictures are sent as pictures)\n"
        "  listen [COUNT]                    print received messages, one JSON line each;\n"
        "                                    stop after COUNT messages\n"
        "  history PEER [PAGES [PAGE_SIZE]]  print older messages, newest page first\n");
}

bool ImCli::start(const QStringList& arguments) {
    QString host = env("XMPP_HOST"), domain = env("XMPP_DOMAIN");
    QString account = env("QUELIX_IM_ACCOUNT"), secret = env("QUELIX_IM_SECRET"), data;
    QString caFile = env("XMPP_CA_FILE");
    int port = env("XMPP_PORT").isEmpty() ? 5222 : env("XMPP_PORT").toInt();
    QStringList rest = arguments.mid(1);
    while (!rest.isEmpty() && rest.first().startsWith(QLatin1String("--"))) {
        const QString option = rest.takeFirst();
        if (rest.isEmpty()) return false;
        const QString value = rest.takeFirst();
        if (option == QLatin1String("--host"))
            host = value;
        else if (option == QLatin1String("--port"))
            port = value.toInt();
        else if (option == QLatin1String("--domain"))
            domain = value;
        else if (option == QLatin1String("--account"))
            account = value;
        else if (option == QLatin1String("--secret"))
            secret = value;
        else if (option == QLatin1String("--data"))
            data = value;
        else if (option == QLatin1String("--ca"))
            caFile = value;
        else
            return false;
    }
    command_ = rest;
    if (command_.isEmpty() || account.isEmpty() || domain.isEmpty() || port <= 0) return false;
    const QString& cmd = command_.first();
    const int args = command_.size() - 1;
    if (cmd == QLatin1String("send-text") || cmd == QLatin1String("send-file")) {
        if (args != 2) return false;
    } else if (cmd == QLatin1String("send-custom")) {
        if (args != 3) return false;
    } else if (cmd == QLatin1String("listen")) {
        if (args > 1) return false;
        if (args == 1) listenCount_ = command_[1].toInt();
    } else if (cmd == QLatin1String("history")) {
        if (args < 1 || args > 3) return false;
        if (args >= 2) pagesLeft_ = std::max(1, command_[2].toInt());
        if (args == 3) pageSize_ = std::max(1, command_[3].toInt());
    } else {
        return false;
    }

    root_ = GetPrgCOM();
    base::FilePath program;
    if (!root_ || !PathService::Get(5, &program) || root_->Init(program) != prg::PRG_OK) {
        std::fprintf(stderr, "quelix-imcli: the SDK could not start\n");
        return false;
    }
    auto core = service<openim::IIMCoreService>(root_, openim::kCoreModule, openim::kCoreInterface);
    if (!data.isEmpty()) {
        base::scoped_refptr<CliHost> host(
            new CliHost(wide_text::pathFromQ(QFileInfo(data).absoluteFilePath())));
        core->SetHostApplication(host.get());
    }
    core->Start(program.DirName().Append(FILE_PATH_LITERAL("resource")),
                fromQ(QLatin1String(kAppKey)));

    CliReceiver* r = receiver_.get();
    auto push =
        service<openim::IXPushService>(root_, openim::kXPushModule, openim::kXPushInterface);
    push->RegisterMsgs(base::Bind(&CliReceiver::OnPushMsgs, r));
    auto login =
        service<openim::ILoginService>(root_, openim::kLoginModule, openim::kLoginInterface);
    login->RegisterLoginOk(base::Bind(&CliReceiver::OnLoginOk, r));
    login->RegisterKicked(base::Bind(&CliReceiver::OnKicked, r));
    login->RegisterLoginFail(base::Bind(&CliReceiver::OnLoginFail, r));
    login->RegisterReLoginOk(base::Bind(&CliReceiver::OnReLoginOk, r));
    login->RegisterReLoginFail(base::Bind(&CliReceiver::OnReLoginFail, r));
    login->RegisterNetDisConnect(base::Bind(&CliReceiver::OnNetDisConnect, r));
    auto conversations = service<openim::IConversationService>(root_, openim::kConversationModule,
                                                               openim::kConversationInterface);
    conversations->RegisterNewMessageCallback(base::Bind(&CliReceiver::OnNewMessage, r));
    auto media =
        service<openim::IMediaService>(root_, openim::kMediaModule, openim::kMediaInterface);
    media->RegisterDownloadCallback(base::Bind(&CliReceiver::OnDownload, r));

    param_.user = openim::IMUserID(fromQ(QLatin1String(kAppKey)), fromQ(account));
    param_.secret = fromQ(secret);
    param_.host = fromQ(host);
    param_.port = quint16(port);
    param_.domain = fromQ(domain);
    param_.caFile = fromQ(caFile);
    login->Login(param_);
    return true;
}

base::scoped_refptr<openim::IConversation> ImCli::conversation(const QString& peer) {
    base::scoped_refptr<openim::IConversation> out;
    auto conversations = service<openim::IConversationService>(root_, openim::kConversationModule,
                                                               openim::kConversationInterface);
    openim::IConversation* c = nullptr;
    if (conversations && conversations->GetConversation(
                             {fromQ(QLatin1String(kAppKey)), fromQ(peer)}, &c) == prg::PRG_OK)
        out.adopt(c);
    return out;
}

void ImCli::loggedIn() {
    printLine({{QStringLiteral("event"), QStringLiteral("login")},
               {QStringLiteral("account"), toQ(param_.user.account)}});
    runCommand();
}

void ImCli::runCommand() {
    const QString cmd = command_.first();
    CliReceiver* r = receiver_.get();
    if (cmd == QLatin1String("listen")) {
        // Messages that waited for us while we were away come first.
        auto conversations = service<openim::IConversationService>(
            root_, openim::kConversationModule, openim::kConversationInterface);
        std::vector<openim::IMUserID> peers;
        conversations->GetUnreadPeers(&peers);
        for (const auto& peer : peers) newMessages(toQ(peer.account));
        return;
    }
    auto c = conversation(command_[1]);
    if (!c) return failed(QStringLiteral("no conversation"));
    if (cmd == QLatin1String("send-text")) {
        c->SendText(fromQ(command_[2]), base::Bind(&CliReceiver::OnSent, r));
    } else if (cmd == QLatin1String("send-custom")) {
        c->SendCustom(fromQ(command_[2]), fromQ(command_[3]), base::Bind(&CliReceiver::OnSent, r));
    } else if (cmd == QLatin1String("send-file")) {
        const QString file = QFileInfo(command_[2]).absoluteFilePath();
        QImageReader image(file);
        const QSize size = image.canRead() ? image.size() : QSize();
        if (size.isValid())
            c->SendImage(wide_text::pathFromQ(file), size.width(), size.height(),
                         base::Bind(&CliReceiver::OnSent, r));
        else
            c->SendFile(wide_text::pathFromQ(file), base::Bind(&CliReceiver::OnSent, r));
    } else if (cmd == QLatin1String("history")) {
        c->GetHistory(pageSize_, base::Bind(&CliReceiver::OnHistory, r));
    }
}

void ImCli::connectionLost() {
    if (finished_) return;
    // 1 s, 2 s, 4 s ... up to a minute, like the client's own heartbeat.
    retryMs_ = retryMs_ == 0 ? 1000 : std::min(retryMs_ * 2, 60000);
    printLine({{QStringLiteral("event"), QStringLiteral("disconnected")},
               {QStringLiteral("retryInMs"), retryMs_}});
    QTimer::singleShot(retryMs_, this, [this] {
        if (finished_) return;
        service<openim::ILoginService>(root_, openim::kLoginModule, openim::kLoginInterface)
            ->ReLogin();
    });
}

void ImCli::reloggedIn() {
    retryMs_ = 0;
    printLine({{QStringLiteral("event"), QStringLiteral("relogin")}});
    // What arrived while away and was not announced yet.
    if (!finished_ && command_.first() == QLatin1String("listen")) runCommand();
}

void ImCli::failed(const QString& why) {
    std::fprintf(stderr, "quelix-imcli: %s\n", qPrintable(why));
    finish(1);
}

void ImCli::newMessages(const QString& sender) {
    if (finished_ || command_.first() != QLatin1String("listen")) return;
    auto c = conversation(sender);
    if (!c) return;
    std::vector<openim::IMMessage> messages;
    c->GetUnreadMessages(&messages);
    // Exactly what is printed is marked read: what arrives meanwhile, or lies beyond the
    // count, stays unread for the next listen.
    std::vector<std::uint64_t> printed;
    for (const auto& m : messages) {
        if (listenCount_ >= 0 && printed_ >= listenCount_) break;
        printLine(toJson(m));
        printed.push_back(m.msgId);
        ++printed_;
    }
    if (!printed.empty()) c->MarkMessagesRead(printed);
    if (listenCount_ >= 0 && printed_ >= listenCount_) finish(0);
}

void ImCli::sent(const openim::IMMessage& message, int sendCode, int uploadCode) {
    if (sendCode == openim::ResultCode::kPending) return;  // the server's word follows
    QJsonObject line = toJson(message);
    line.insert(QStringLiteral("event"), QStringLiteral("sent"));
    line.insert(QStringLiteral("result"), sendCode);
    line.insert(QStringLiteral("upload"), uploadCode);
    printLine(line);
    // Confirmed by the server: signing out at once loses nothing.
    finish(sendCode == 0 && uploadCode == 0 ? 0 : 1);
}

void ImCli::historyPage(int code, const std::vector<openim::IMMessage>& page) {
    for (const auto& m : page) printLine(toJson(m));
    if (code != 0) return failed(QStringLiteral("history failed (%1)").arg(code));
    if (page.empty() || --pagesLeft_ <= 0) return finish(0);
    auto c = conversation(command_[1]);
    c->GetHistory(pageSize_, base::Bind(&CliReceiver::OnHistory, receiver_.get()));
}

QJsonObject ImCli::toJson(const openim::IMMessage& m) const {
    QJsonObject o{{QStringLiteral("id"), QString::number(m.msgId)},
                  {QStringLiteral("time"), double(m.msgTime)},
                  {QStringLiteral("from"), toQ(m.sender.account)},
                  {QStringLiteral("to"), toQ(m.receiver.account)},
                  {QStringLiteral("kind"), m.content.type},
                  {QStringLiteral("content"), toQ(m.content.content)}};
    if (!m.content.summary.empty()) o.insert(QStringLiteral("summary"), toQ(m.content.summary));
    if (!m.content.url.empty()) o.insert(QStringLiteral("url"), toQ(m.content.url));
    return o;
}

void ImCli::printLine(const QJsonObject& object) {
    std::printf("%s\n", QJsonDocument(object).toJson(QJsonDocument::Compact).constData());
    std::fflush(stdout);
}

void ImCli::finish(int code) {
    if (finished_) return;
    finished_ = true;
    QCoreApplication::exit(code);
}
