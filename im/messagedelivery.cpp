// Shown messages handed to the views, with the alerts they call for.
#include "messagedelivery.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>

#include "configstore.h"
#include "directorystore.h"
#include "functiontrace.h"
#include "logger.h"
#include "mainviewdelegate.h"
#include "messagemapper.h"
#include "taskalertpolicy.h"
#include "unseenledger.h"

MessageDelivery::MessageDelivery(std::function<QString()> ownId, QObject* parent)
    : QObject(parent), ownId_(std::move(ownId)) {}

void MessageDelivery::show(bool history, const openim::IMMessage& message) {
    FunctionTrace trace(&Logger::instance(), QStringLiteral("OpenIMManager::showChatMsg"));
    // A burst's messages share their second, so its local time is worked out once.
    thread_local qint64 shownSecond = -1;
    thread_local QString shownTime;
    if (message.msgTime != shownSecond) {
        shownSecond = message.msgTime;
        shownTime = QDateTime::fromSecsSinceEpoch(shownSecond)
                        .toString(QStringLiteral("yyyy/MM/dd hh:mm:ss"));
    }
    Logger::instance().write(QStringLiteral("all messages:  (msgtime:") + shownTime +
                             QStringLiteral(" msgid:") + QString::number(message.msgId) +
                             QStringLiteral(" msgFormat:") + QString::number(message.content.type) +
                             QLatin1Char(')'));
    const BaseMsg::MMessage m = MessageMapper::toMessage(message, ownId_(), history);
    if (m.kind == BaseMsg::Hidden) return;  // nothing to show, no preview
    if (m.kind == BaseMsg::Custom) {
        Logger::instance().write(
            QStringLiteral("custom msg:(m_msgTime:%1 senderId:%2 msgId:%3 isTop:%4 msgFormat:%5"
                           "         msgContent:%6)")
                .arg(m.time)
                .arg(m.senderId)
                .arg(m.msgId)
                .arg(history ? QStringLiteral("true") : QStringLiteral("false"))
                .arg(m.kind)
                .arg(m.contentJson));
    }
    deliver(m, MessageMapper::preview(m));
}

void MessageDelivery::showTribe(bool history, const openim::IMTribeMessage& message) {
    const BaseMsg::MMessage m = MessageMapper::toTribeMessage(message, ownId_(), history);
    if (m.kind == BaseMsg::Hidden) return;
    deliver(m, MessageMapper::preview(m));
}

bool MessageDelivery::taskCardAlerts(const BaseMsg::MMessage& m) const {
    const QJsonObject card = QJsonDocument::fromJson(m.contentJson.toUtf8()).object();
    if (card.value(QStringLiteral("msgType")).toInt(-1) != BaseMsg::CustomTask) return true;
    ConfigStore& config = ConfigStore::instance();
    // Before the user's settings are read, the defaults decide.
    const quelix::userconfig_t defaults;
    return TaskAlertPolicy::alerts(card, config.hasUser() ? config.userConfig() : defaults,
                                   ownId_(), !m.isTribe);
}

void MessageDelivery::deliver(const BaseMsg::MMessage& m, const QString& preview) {
    emit chatMessage(m);
    MainViewDelegate* shell = MainViewDelegate::instance();
    if (!shell) return;
    shell->talkListPreview(m.conversationId, preview);
    // History and the user's own messages (echoed as sent) mark nothing as new.
    if (m.isHistory || m.isSelf) return;
    if (m.kind == BaseMsg::Custom && !taskCardAlerts(m)) return;
    ConversationRecord record;
    record.id = m.conversationId;
    record.name = m.isTribe ? QString() : m.senderName;
    if (const DirectoryStore::Tribe* t = DirectoryStore::instance().tribe(m.conversationId))
        record.name = t->name;
    record.nickName = m.senderId;
    record.fromSelf = m.isSelf;
    record.muted = ConfigStore::instance().hasUser() &&
                   ConfigStore::instance().shieldList().isShielded(m.conversationId.toULongLong());
    alerts_.add(record, preview);
}

void MessageDelivery::alert(const AlertCoalescer::Alert& a) {
    MainViewDelegate* shell = MainViewDelegate::instance();
    if (!shell) return;
    // The text first: marking the row raises the alert, whose pop-up shows that text.
    shell->newMessage(a.record, a.preview);
    if (shell->currentConversationId() != a.record.id) {
        shell->newMessageMark(a.record.id, a.count);
        shell->talkListPreview(a.record.id, a.preview);
    } else {
        // It came into the page the user is looking at.
        UnseenLedger::markSeen(a.record.id, !DirectoryStore::instance().isUser(a.record.id));
    }
}
