// Sending messages, reporting how each send went, and sending again.
#include "messagesender.h"

#include <QDateTime>
#include <QImageReader>

#include "base/bind.h"
#include "directorystore.h"
#include "imservices.h"
#include "logger.h"
#include "logstream.h"
#include "messagemapper.h"
#include "openim/iconversation.h"
#include "openim/itribe.h"
#include "openimmanager.h"
#include "sdk/wide_text.h"

using wide_text::fromQ;
using wide_text::toQ;

namespace {

// Sends that upload a file before the message goes.
bool isUpload(std::int32_t type) { return type == BaseMsg::Media || type == BaseMsg::MediaFile; }

bool isUser(const QString& id) { return DirectoryStore::instance().isUser(id); }

}  // namespace

MessageSender::MessageSender(OpenIMManager* core, QObject* parent) : QObject(parent), core_(core) {}

void MessageSender::sendTextOrCustom(const QString& id, const QString& summary,
                                     const QString& content) {
    queue_.push(id, false, [this, id, summary, content] { sendNow(id, summary, content); });
}

void MessageSender::sendPicture(const QString& id, const QString& filePath) {
    queue_.push(id, true, [this, id, filePath] { sendPictureNow(id, filePath); });
}

void MessageSender::sendFile(const QString& id, const QString& filePath) {
    queue_.push(id, true, [this, id, filePath] { sendFileNow(id, filePath); });
}

void MessageSender::sendNow(const QString& id, const QString& summary, const QString& content) {
    const int kind = summary.isEmpty() ? BaseMsg::Text : BaseMsg::Custom;
    if (isUser(id)) {
        auto conversation = ImServices::conversation(id);
        if (!conversation) return failUnsendable(id, kind, summary, content);
        if (summary.isEmpty())
            conversation->SendText(fromQ(content), base::Bind(&OpenIMManager::OnSent, core_));
        else
            conversation->SendCustom(fromQ(content), fromQ(summary),
                                     base::Bind(&OpenIMManager::OnSent, core_));
        return;
    }
    auto tribe = ImServices::tribe(id);
    if (!tribe) return failUnsendable(id, kind, summary, content);
    if (summary.isEmpty())
        tribe->SendText(fromQ(content), base::Bind(&OpenIMManager::OnTribeSent, core_));
    else
        tribe->SendCustom(fromQ(content), fromQ(summary),
                          base::Bind(&OpenIMManager::OnTribeSent, core_));
}

void MessageSender::sendPictureNow(const QString& id, const QString& filePath) {
    // The picture's size travels with it, so the receiver can lay it out before it loads.
    const QSize size = QImageReader(filePath).size();
    const base::FilePath path = wide_text::pathFromQ(filePath);
    if (isUser(id)) {
        if (auto conversation = ImServices::conversation(id))
            return conversation->SendImage(path, size.width(), size.height(),
                                           base::Bind(&OpenIMManager::OnSent, core_));
    } else if (auto tribe = ImServices::tribe(id)) {
        return tribe->SendImage(path, size.width(), size.height(),
                                base::Bind(&OpenIMManager::OnTribeSent, core_));
    }
    failUnsendable(id, BaseMsg::Media, QString(), filePath);
}

void MessageSender::sendFileNow(const QString& id, const QString& filePath) {
    const base::FilePath path = wide_text::pathFromQ(filePath);
    if (isUser(id)) {
        if (auto conversation = ImServices::conversation(id))
            return conversation->SendFile(path, base::Bind(&OpenIMManager::OnSent, core_));
    } else if (auto tribe = ImServices::tribe(id)) {
        return tribe->SendFile(path, base::Bind(&OpenIMManager::OnTribeSent, core_));
    }
    failUnsendable(id, BaseMsg::MediaFile, QString(), filePath);
}

void MessageSender::failUnsendable(const QString& id, int kind, const QString& summary,
                                   const QString& content) {
    QX_LOG << "OpenIMManager: nothing to send through for " << id << " (kind " << kind << ")";
    BaseMsg::MMessage m;
    m.conversationId = id;
    m.isTribe = !isUser(id);
    m.senderId = core_->ownId();
    m.isSelf = true;
    m.time = QDateTime::currentSecsSinceEpoch();
    m.kind = kind;
    m.summary = summary;
    m.sentContent = content;
    if (kind == BaseMsg::Text) m.text = content;
    if (kind == BaseMsg::Media || kind == BaseMsg::MediaFile) m.mediaPath = content;
    emit sendFailed(m, QStringLiteral("找不到该会话"));
    // Nothing will report this one's end: the sends queued behind it go on.
    if (isUpload(kind)) {
        base::scoped_refptr<OpenIMManager> keep(core_);
        QMetaObject::invokeMethod(
            this, [this, keep, id] { queue_.uploadFinished(id); }, Qt::QueuedConnection);
    }
}

// Echoed into the conversation at once, sent or not: the user sees what they wrote, and
// below it that it did not go out.
bool MessageSender::firstReport(quint64 msgId, bool pending) {
    if (pending) {
        awaiting_.insert(msgId);
        return true;
    }
    return !awaiting_.remove(msgId);
}

void MessageSender::sent(const openim::IMMessage& message, const QString& failure, bool pending) {
    if (!firstReport(message.msgId, pending)) {
        // The outcome of a message already shown: only a failure is news.
        if (!failure.isEmpty()) {
            BaseMsg::MMessage failed = MessageMapper::toMessage(message, core_->ownId(), false);
            failed.sentContent = toQ(message.content.content);
            emit sendFailed(failed, failure);
        }
        return;
    }
    core_->showChatMsg(false, message);
    if (!failure.isEmpty()) {
        BaseMsg::MMessage failed = MessageMapper::toMessage(message, core_->ownId(), false);
        failed.sentContent = toQ(message.content.content);
        emit sendFailed(failed, failure);
    }
    if (isUpload(message.content.type)) queue_.uploadFinished(toQ(message.receiver.account));
}

void MessageSender::tribeSent(const openim::IMTribeMessage& message, const QString& failure,
                              bool pending) {
    if (!firstReport(message.msgId, pending)) {
        if (!failure.isEmpty()) {
            BaseMsg::MMessage failed =
                MessageMapper::toTribeMessage(message, core_->ownId(), false);
            failed.sentContent = toQ(message.content.content);
            emit sendFailed(failed, failure);
        }
        return;
    }
    core_->showTribeChatMsg(false, message);
    if (!failure.isEmpty()) {
        BaseMsg::MMessage failed = MessageMapper::toTribeMessage(message, core_->ownId(), false);
        failed.sentContent = toQ(message.content.content);
        emit sendFailed(failed, failure);
    }
    if (isUpload(message.content.type))
        queue_.uploadFinished(QString::number(message.tribe.tribeId));
}

QString MessageSender::failureText(const openim::ResultCode& sent,
                                   const openim::ResultCode& uploaded) {
    if ((sent.ok() || sent.pending()) && uploaded.ok()) return QString();
    const openim::ResultCode& r = sent.ok() ? uploaded : sent;
    switch (r.code) {
        case openim::ResultCode::kNotLoggedIn:
            return QStringLiteral("未连接到通讯服务器");
        case openim::ResultCode::kInvalidArgument:
            return QStringLiteral("内容无法发送");
        case openim::ResultCode::kNotFound:
            return QStringLiteral("您已不在该群中");
        case openim::ResultCode::kTimeout:
            return QStringLiteral("服务器未确认收到");
        default:
            return sent.ok() ? QStringLiteral("上传失败") : QStringLiteral("网络错误");
    }
}

void MessageSender::resend(const BaseMsg::MMessage& m) {
    const QString id = m.conversationId;
    if (id.isEmpty()) return;
    switch (m.kind) {
        case BaseMsg::Text:
            return sendTextOrCustom(id, QString(), m.text);
        case BaseMsg::Media:
            return sendPicture(id, m.mediaPath);
        case BaseMsg::MediaFile:
            return sendFile(id, m.mediaPath);
        case BaseMsg::Custom:
            // Cards and shakes: their own JSON, as first handed to the service.
            if (!m.sentContent.isEmpty()) return sendTextOrCustom(id, m.summary, m.sentContent);
            [[fallthrough]];
        default:
            QX_LOG << "OpenIMManager: a message of kind " << m.kind << " cannot be sent again";
    }
}
