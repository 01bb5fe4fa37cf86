#include "imcli/cli_receiver.h"

#include <QJsonObject>

#include "imcli/im_cli.h"
#include "sdk/wide_text.h"

using wide_text::toQ;

template <class F>
void CliReceiver::toMain(F f) {
    ImCli* cli = cli_;
    if (cli)
        QMetaObject::invokeMethod(
            cli, [cli, f] { f(cli); }, Qt::QueuedConnection);
}

void CliReceiver::OnLoginOk(openim::LoginOkParam) {
    toMain([](ImCli* c) { c->loggedIn(); });
}

void CliReceiver::OnLoginFail(openim::LoginFailParam param) {
    const QString why = toQ(param.result.text);
    toMain([why](ImCli* c) { c->failed(QStringLiteral("login failed: ") + why); });
}

void CliReceiver::OnKicked(openim::KickedParam) {
    toMain([](ImCli* c) { c->failed(QStringLiteral("signed in on another desktop")); });
}

void CliReceiver::OnNetDisConnect(openim::NetDisConnectParam) {
    toMain([](ImCli* c) { c->connectionLost(); });
}

void CliReceiver::OnReLoginOk(openim::ReLoginOkParam) {
    toMain([](ImCli* c) { c->reloggedIn(); });
}

void CliReceiver::OnReLoginFail(openim::ReLoginFailParam) {
    toMain([](ImCli* c) { c->connectionLost(); });
}

void CliReceiver::OnNewMessage(openim::IMUserID sender) {
    const QString account = toQ(sender.account);
    toMain([account](ImCli* c) { c->newMessages(account); });
}

void CliReceiver::OnDownload(openim::ResultCode result, openim::DownloadMediaResult download) {
    const QJsonObject line{{QStringLiteral("event"), QStringLiteral("download")},
                           {QStringLiteral("id"), QString::number(download.msgId)},
                           {QStringLiteral("ok"), result.ok()},
                           {QStringLiteral("path"), toQ(download.localPath)}};
    toMain([line](ImCli* c) { c->printLine(line); });
}

void CliReceiver::OnSent(openim::IMMessage message, openim::ResultCode sent,
                         openim::ResultCode upload) {
    toMain([message, s = sent.code, u = upload.code](ImCli* c) { c->sent(message, s, u); });
}

void CliReceiver::OnHistory(prg::PrgStringT<wchar_t>, openim::ResultCode result,
                            std::vector<openim::IMMessage> page) {
    toMain([code = result.code, page](ImCli* c) { c->historyPage(code, page); });
}

void CliReceiver::OnPushMsgs(std::vector<openim::XPushMsg> messages) {
    for (const auto& m : messages) {
        const QJsonObject line{{QStringLiteral("event"), QStringLiteral("push")},
                               {QStringLiteral("subject"), toQ(m.subject)},
                               {QStringLiteral("content"), toQ(m.content)}};
        toMain([line](ImCli* c) { c->printLine(line); });
    }
}
