#pragma once

#include <QObject>
#include <QPointer>
#include <vector>

#include "base/ref_counted.h"
#include "openim/download_media_result.h"
#include "openim/im_message.h"
#include "openim/login_params.h"
#include "openim/result_code.h"
#include "openim/xpush_params.h"

class ImCli;

// Takes the SDK's callbacks on the SDK thread and hands them to the client's main thread.
class CliReceiver : public base::RefCountedThreadSafe<CliReceiver> {
public:
    explicit CliReceiver(ImCli* cli) : cli_(cli) {}

    void OnLoginOk(openim::LoginOkParam);
    void OnLoginFail(openim::LoginFailParam param);
    void OnKicked(openim::KickedParam);
    void OnNetDisConnect(openim::NetDisConnectParam);
    void OnReLoginOk(openim::ReLoginOkParam);
    void OnReLoginFail(openim::ReLoginFailParam);
    void OnNewMessage(openim::IMUserID sender);
    void OnDownload(openim::ResultCode result, openim::DownloadMediaResult download);
    void OnSent(openim::IMMessage message, openim::ResultCode sent, openim::ResultCode upload);
    void OnHistory(prg::PrgStringT<wchar_t> peer, openim::ResultCode result,
                   std::vector<openim::IMMessage> page);
    void OnPushMsgs(std::vector<openim::XPushMsg> messages);

private:
    friend class base::RefCountedThreadSafe<CliReceiver>;
    ~CliReceiver() = default;
    template <class F>
    void toMain(F f);

    QPointer<ImCli> cli_;
};
