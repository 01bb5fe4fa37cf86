#include "session_probe.h"

#include "sdk/wide_text.h"

void EventLog::note(const QString& event) {
    QMutexLocker guard(&lock_);
    events_ << event;
}

void SessionProbe::OnLoginOk(openim::LoginOkParam) {
    {
        QMutexLocker guard(&lock_);
        loginThread_ = QThread::currentThread();
    }
    note(QStringLiteral("loginOk"));
}

void SessionProbe::OnNewMessage(openim::IMUserID sender) {
    note(QStringLiteral("newMessage:") + wide_text::toQ(sender.account));
}

void SessionProbe::OnDownload(openim::ResultCode result, openim::DownloadMediaResult download) {
    {
        QMutexLocker guard(&lock_);
        downloads_ << download;
        downloadOk_ << result.ok();
    }
    note(QStringLiteral("download:%1").arg(result.code));
}

void SessionProbe::OnSent(openim::IMMessage message, openim::ResultCode sent,
                          openim::ResultCode upload) {
    if (sent.pending()) return;  // the outcome follows once the server confirms
    {
        QMutexLocker guard(&lock_);
        sent_ << message;
        if (!sent.ok()) failed_ << message;
    }
    note(QStringLiteral("sent:%1:%2").arg(sent.code).arg(upload.code));
}

void SessionProbe::OnHistory(prg::PrgStringT<wchar_t>, openim::ResultCode result,
                             std::vector<openim::IMMessage> page) {
    {
        QMutexLocker guard(&lock_);
        pages_ << page;
    }
    note(QStringLiteral("history:%1").arg(result.code));
}

void SessionProbe::OnPushMsgs(std::vector<openim::XPushMsg> messages) {
    for (const auto& m : messages) note(QStringLiteral("push:") + wide_text::toQ(m.content));
}

void SessionProbe::OnPresence(openim::ResultCode result,
                              std::map<openim::IMUserID, openim::IMUserStatus>) {
    note(QStringLiteral("presence:%1").arg(result.code));
}

int EventLog::count(const QString& event) const {
    QMutexLocker guard(&lock_);
    int n = 0;
    for (const QString& e : events_)
        if (e == event || e.startsWith(event + QLatin1Char(':'))) ++n;
    return n;
}
