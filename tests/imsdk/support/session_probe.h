#pragma once

#include <QList>
#include <QMutex>
#include <QString>
#include <QThread>
#include <map>
#include <vector>

#include "base/ref_counted.h"
#include "openim/download_media_result.h"
#include "openim/im_message.h"
#include "openim/im_user_status.h"
#include "openim/login_params.h"
#include "openim/result_code.h"
#include "openim/xpush_params.h"

// Events noted on the SDK thread, in order ("newMessage:bob", "sent:0:0", ...), for the
// test thread to look at.
class EventLog {
public:
    // How many events are `event`, or `event` followed by ':' and more.
    int count(const QString& event) const;
    QStringList events() const { return locked(events_); }

protected:
    void note(const QString& event);
    template <class T>
    T locked(const T& field) const {
        QMutexLocker guard(&lock_);
        return field;
    }
    mutable QMutex lock_;

private:
    QStringList events_;
};

// Receives an SDK session's callbacks and keeps them.
class SessionProbe : public base::RefCountedThreadSafe<SessionProbe>, public EventLog {
public:
    void OnLoginOk(openim::LoginOkParam);
    void OnLoginFail(openim::LoginFailParam p) {
        note(QStringLiteral("loginFail:%1").arg(p.result.code));
    }
    void OnKicked(openim::KickedParam) { note("kicked"); }
    void OnReLoginOk(openim::ReLoginOkParam) { note("reloginOk"); }
    void OnReLoginFail(openim::ReLoginFailParam) { note("reloginFail"); }
    void OnNetDisConnect(openim::NetDisConnectParam) { note("disconnected"); }
    void OnLogouted(const openim::LogoutedParam&) { note("logouted"); }
    void OnNewMessage(openim::IMUserID sender);
    void OnDownload(openim::ResultCode result, openim::DownloadMediaResult download);
    void OnSent(openim::IMMessage message, openim::ResultCode sent, openim::ResultCode upload);
    void OnHistory(prg::PrgStringT<wchar_t> peer, openim::ResultCode result,
                   std::vector<openim::IMMessage> page);
    void OnPushStarted(openim::XPushStartOkParam) { note("pushStarted"); }
    void OnPushKicked(openim::XPushKickedParam) { note("pushKicked"); }
    void OnPushStopped(openim::XPushStopedParam) { note("pushStopped"); }
    void OnPushMsgs(std::vector<openim::XPushMsg> messages);
    void OnPresence(openim::ResultCode result,
                    std::map<openim::IMUserID, openim::IMUserStatus> statuses);

    // The thread the login success was reported on.
    QThread* loginThread() const { return locked(loginThread_); }
    QList<openim::DownloadMediaResult> downloads() const { return locked(downloads_); }
    QList<bool> downloadResults() const { return locked(downloadOk_); }
    QList<std::vector<openim::IMMessage>> historyPages() const { return locked(pages_); }
    QList<openim::IMMessage> sent() const { return locked(sent_); }
    // Those of sent() the SDK reported failed.
    QList<openim::IMMessage> failedSends() const { return locked(failed_); }

private:
    friend class base::RefCountedThreadSafe<SessionProbe>;
    ~SessionProbe() = default;

    QThread* loginThread_ = nullptr;
    QList<openim::DownloadMediaResult> downloads_;
    QList<bool> downloadOk_;
    QList<std::vector<openim::IMMessage>> pages_;
    QList<openim::IMMessage> sent_;
    QList<openim::IMMessage> failed_;
};
