#pragma once

#include <QObject>
#include <QSet>
#include <QString>

#include "basemsg.h"
#include "openim/im_message.h"
#include "openim/im_tribe_message.h"
#include "openim/result_code.h"
#include "sendqueue.h"

class OpenIMManager;

// Sending: text, custom, picture and file messages through the colleague's conversation or
// the project's tribe, in the order asked for (SendQueue); each outcome echoed into the page
// with what went wrong, if anything; and sending again what did not go out.
class MessageSender : public QObject {
    Q_OBJECT
public:
    // The SDK reports each send to `core`, which hands the report back to sent().
    explicit MessageSender(OpenIMManager* core, QObject* parent = nullptr);

    // An id is a colleague exactly when the directory knows it; any other id is a tribe. A
    // non-empty summary makes the content a custom message.
    void sendTextOrCustom(const QString& id, const QString& summary, const QString& content);
    void sendPicture(const QString& id, const QString& filePath);
    void sendFile(const QString& id, const QString& filePath);
    // A text, picture, file or custom message that was not sent, as it was first handed over.
    void resend(const BaseMsg::MMessage& message);

    // GUI thread: the SDK's report of a send, with failureText's verdict on it. A message
    // the server has not confirmed yet (`pending`) is shown at once; its outcome comes as a
    // second report, which only says something when the message did not get through.
    void sent(const openim::IMMessage& message, const QString& failure, bool pending = false);
    void tribeSent(const openim::IMTribeMessage& message, const QString& failure,
                   bool pending = false);
    // What the page says about a send that failed; empty when it went out.
    static QString failureText(const openim::ResultCode& sent, const openim::ResultCode& uploaded);

signals:
    void sendFailed(const BaseMsg::MMessage& message, const QString& reason);

private:
    void sendNow(const QString& id, const QString& summary, const QString& content);
    void sendPictureNow(const QString& id, const QString& filePath);
    void sendFileNow(const QString& id, const QString& filePath);
    // A send with no conversation to go through (a tribe the SDK no longer has).
    void failUnsendable(const QString& id, int kind, const QString& summary,
                        const QString& content);

    // False when this report is the outcome of a message shown while pending: it is not
    // shown again.
    bool firstReport(quint64 msgId, bool pending);

    OpenIMManager* core_;
    SendQueue queue_;
    QSet<quint64> awaiting_;  // shown, not confirmed by the server yet
};
