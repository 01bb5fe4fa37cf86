// One conversation's message output: filing messages by kind into rows, and the page around them.
#include "view.h"

#include <QCursor>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "baseitem.h"
#include "directorystore.h"
#include "filemsgitem.h"
#include "filetransfer.h"
#include "fileuploads.h"
#include "imagemsgitem.h"
#include "infocard.h"
#include "listwidget.h"
#include "logger.h"
#include "mainviewdelegate.h"
#include "manager.h"
#include "messageentry.h"
#include "personalcarditem.h"
#include "rowmeasurer.h"
#include "showpicturewidget.h"
#include "tablemsgitem.h"
#include "taskmsgitem.h"
#include "taskreadflags.h"
#include "textmarkup.h"
#include "textmsgitem.h"
#include "tipmsgitem.h"
#include "uifont.h"

namespace qx_output {

namespace {
const QString kShakeSummary = QStringLiteral("[抖动窗口]");

QJsonObject contentOf(const BaseMsg::MMessage& m) {
    return QJsonDocument::fromJson(m.contentJson.toUtf8()).object();
}

QString ownName() {
    const DirectoryStore& store = DirectoryStore::instance();
    const Colleague* me = store.colleague(store.selfId());
    return me ? me->displayName() : QString();
}
}  // namespace

View::View(const QString& conversationId, bool isTribe, QWidget* parent)
    : QWidget(parent), id_(conversationId), isTribe_(isTribe), pictures_(this) {
    setObjectName(QStringLiteral("outputArea"));
    // The background is a layer of its own under the list, so that its style sheet does
    // not reach every message row (styling each row that way costs a millisecond a row).
    background_ = new QWidget(this);
    background_->setObjectName(QStringLiteral("outputBackground"));
    background_->setAttribute(Qt::WA_StyledBackground);
    background_->setStyleSheet(QStringLiteral("QWidget{background-color:#f0f1f3;border-style:none;"
                                              "border: 0px;border-bottom-right-radius:%1px;}")
                                   .arg(4));
    background_->lower();
    const QString labelStyle =
        QStringLiteral(
            "QLabel{font-family:%1;font-size:%2px;background-color:#E6E9EC;border-radius:0px;}")
            .arg(font().family())
            .arg(12);
    disconnect_ = new QLabel(QStringLiteral("网络连接已断开，正在重新连接..."), this);
    disconnect_->setAlignment(Qt::AlignCenter);
    disconnect_->setStyleSheet(labelStyle);
    disconnect_->setFixedHeight(24);
    disconnect_->hide();
    list_ = new ListWidget(this);
    list_->setFactory([this](EntryItem* item) { return createItem(item); });
    measurer_ = new RowMeasurer(this, list_);
    order_ = std::make_unique<RowOrder>(list_, measurer_);
    uploads_ = new FileUploads(
        id_, isTribe_, this, [this](const BaseMsg::MMessage& m) { addFileMsg(m); },
        [this](quint64 msgId) { return msgIds_.value(msgId); });
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(disconnect_);
    layout->addWidget(list_);

    atTip_ = new QPushButton(QStringLiteral("有人@了你"), this);
    atTip_->setCursor(Qt::PointingHandCursor);
    atTip_->setStyleSheet(QStringLiteral("QPushButton{background-color:#FFA54F;border-style:none;"
                                         "font-family:%2;font-size:%3px;color:#fff;"
                                         "border-radius:%1px;}")
                              .arg(12)
                              .arg(font().family())
                              .arg(12));
    atTip_->setFixedSize(96, 24);
    atTip_->hide();
    connect(atTip_, &QPushButton::clicked, this, &View::atTipClickedSlot);

    infoCard_ = new InfoCard(this);
    connect(infoCard_, &InfoCard::inforCardChatSignal, this, &View::onTalkToSlot);

    list_->viewport()->installEventFilter(this);
    connect(list_, &ListWidget::setHistoryTipSignal, this, &View::setHistoryTipSlot);
    connect(list_, &ListWidget::widthChanged, measurer_, &RowMeasurer::remeasure);
    connect(&UiFont::instance(), &UiFont::changed, measurer_, &RowMeasurer::fontChanged);
    Manager* manager = Manager::instance();
    connect(manager, &Manager::mainWinPressedSignal, this, &View::hideInfoCardSlot);
    connect(manager, &Manager::mainWinDeactiveSignal, this, &View::hideInfoCardSlot);
    connect(manager, &Manager::setAtTipHiddenSignal, this, [this](const QString& id, bool hidden) {
        if (id == id_) setAtTipHiddenSlot(hidden);
    });
}

// --- adding --------------------------------------------------------------------------

void View::addMessage(const BaseMsg::MMessage& m) {
    if (m.msgId != 0 && msgIds_.contains(m.msgId)) return;
    switch (m.kind) {
        case BaseMsg::Text:
            return addTextMsg(m);
        case BaseMsg::Media:
            return addMediaMsg(m);
        case BaseMsg::MediaFile:
            return addFileMsg(m);
        case BaseMsg::Custom:
            break;
        default:
            return;
    }
    Logger::instance().write(
        QStringLiteral("custom msg:(msgId:%1 msgFormat:%2 isTop:%3)")
            .arg(m.msgId)
            .arg(m.kind)
            .arg(m.isHistory ? QStringLiteral("true") : QStringLiteral("false")));
    const QJsonObject o = contentOf(m);
    const int type = o.value(QStringLiteral("msgType")).toInt(-1);
    if (type == BaseMsg::CustomShake || m.summary == kShakeSummary) {
        BaseMsg::MMessage tip = m;
        // The sender's own copy says what was sent; the receiver's window shakes.
        tip.text = m.isSelf ? QStringLiteral("你向对方发送了一条抖动消息")
                            : QStringLiteral("对方向你发送了一个抖动窗口。");
        addTipMsg(tip);
        if (!m.isSelf && !m.isHistory)
            if (MainViewDelegate* shell = MainViewDelegate::instance()) shell->shakeWindow();
        return;
    }
    switch (type) {
        case BaseMsg::CustomTip: {
            BaseMsg::MMessage tip = m;
            tip.text = o.value(QStringLiteral("content")).toString();
            return addTipMsg(tip);
        }
        case BaseMsg::CustomTask:
            return addTaskMsg(m);
        case BaseMsg::CustomTable:
            return addTabelMsg(m);
        case BaseMsg::CustomFile:
            return addFileMsg(m);
        case BaseMsg::CustomCard: {
            MessageEntry e;
            e.kind = MessageEntry::Card;
            e.msg = m;
            return add(std::move(e));
        }
        default: {
            // A kind this client does not draw: its summary, as text.
            BaseMsg::MMessage text = m;
            text.kind = BaseMsg::Text;
            text.text = m.summary;
            return addTextMsg(text);
        }
    }
}

void View::addSendFailure(const BaseMsg::MMessage& msg, const QString& reason) {
    MessageEntry e;
    e.kind = MessageEntry::Tip;
    e.resend = true;
    e.html = reason.isEmpty() ? QStringLiteral("消息未发送")
                              : QStringLiteral("消息未发送（%1）").arg(reason);
    e.msg = msg;
    e.msg.msgId = 0;  // never stored: no id of the store's
    add(std::move(e));
}

void View::addTipMsg(BaseMsg::MMessage m) {
    MessageEntry e;
    e.kind = MessageEntry::Tip;
    e.html = m.text;
    e.msg = std::move(m);
    e.msg.text.clear();
    add(std::move(e));
}

void View::addTextMsg(BaseMsg::MMessage m) {
    MessageEntry e;
    e.kind = MessageEntry::Text;
    e.html = TextMarkup::toHtml(m.text);
    if (isTribe_ && !m.isSelf && !m.isHistory && TextMarkup::mentions(m.text, ownName())) {
        e.msg = m;
        add(std::move(e));
        mentionRow_ = msgIds_.value(m.msgId);
        setAtTipHiddenSlot(false);
        emit Manager::instance()->setAtTextHiddenSignal(id_, false);
        return;
    }
    m.text.clear();  // the row keeps the prepared text only
    e.msg = std::move(m);
    add(std::move(e));
}

void View::addMediaMsg(BaseMsg::MMessage m) {
    MessageEntry e;
    e.kind = MessageEntry::Image;
    e.loading = m.mediaPath.isEmpty() && !m.isSelf && !Manager::instance()->mediaFailed(m.msgId);
    e.msg = std::move(m);
    add(std::move(e));
}

void View::addTaskMsg(BaseMsg::MMessage m) {
    const QJsonObject card = contentOf(m);
    // A new event on a task may have changed the user's read flag (a task assigned anew).
    if (!m.isHistory)
        Manager::instance()->readFlags()->forget(
            card.value(QStringLiteral("taskId")).toVariant().toString());
    // The back end posts a tribe's cards; the row shows the colleague who acted, on the
    // user's own side when it was the user. A card in a conversation of its own comes from
    // the company's task assistant, and the row stays the assistant's.
    const QString actor = card.value(QStringLiteral("userId")).toVariant().toString();
    if (isTribe_ && !actor.isEmpty() && DirectoryStore::instance().colleague(actor)) {
        m.senderId = actor;
        m.senderName = DirectoryStore::instance().colleague(actor)->displayName();
        m.isSelf = actor == DirectoryStore::instance().selfId();
    }
    MessageEntry e;
    e.kind = MessageEntry::Task;
    e.msg = std::move(m);
    add(std::move(e));
}

void View::addTabelMsg(BaseMsg::MMessage m) {
    MessageEntry e;
    e.kind = MessageEntry::Table;
    e.msg = std::move(m);
    add(std::move(e));
}

void View::addFileMsg(BaseMsg::MMessage m) {
    if (EntryItem* row = uploads_->rowOfEcho(m)) {
        // The echo of a file we uploaded from this page: the row is here already.
        msgIds_.remove(row->entry.msg.msgId);
        row->entry.msg.msgId = m.msgId;
        row->entry.msg.time = m.time;
        msgIds_.insert(m.msgId, row);
        return;
    }
    MessageEntry e;
    e.kind = MessageEntry::File;
    e.msg = std::move(m);
    add(std::move(e));
}

void View::uploadFile(const QString& path) { uploads_->upload(path); }

void View::add(MessageEntry e) {
    e.showName = isTribe_ && e.kind != MessageEntry::Tip;
    measurer_->prepare(e);
    const quint64 id = e.msg.msgId;
    auto* item = new EntryItem(std::move(e));
    measurer_->size(item);
    if (id != 0) msgIds_.insert(id, item);
    order_->place(item);
}

bool View::showChatMsgTime(qint64 t) { return order_->appendTimeLine(t); }

QWidget* View::createItem(EntryItem* item) {
    const MessageEntry& e = item->entry;
    BaseItem* widget = nullptr;
    switch (e.kind) {
        case MessageEntry::Separator:
        case MessageEntry::Tip: {
            if (!e.resend) return new TipMsgItem(e.html);
            auto* tip = new TipMsgItem(e.html, QStringLiteral("重新发送"));
            const BaseMsg::MMessage msg = e.msg;
            connect(tip, &TipMsgItem::activated, this,
                    [msg] { emit Manager::instance()->resendRequested(msg); });
            return tip;
        }
        case MessageEntry::Text:
            widget = new TextMsgItem(e);
            break;
        case MessageEntry::Image: {
            auto* image = new ImageMsgItem(e);
            connect(image, &ImageMsgItem::showPictureSignal, this, &View::showPictureSlot);
            connect(image, &ImageMsgItem::showPictureMenuSignal, this, &View::showPictureMenuSlot);
            widget = image;
            break;
        }
        case MessageEntry::File:
            widget = new FileMsgItem(e);
            break;
        case MessageEntry::Task:
            widget = new TaskMsgItem(e);
            break;
        case MessageEntry::Table:
            widget = new TableMsgItem(e);
            break;
        case MessageEntry::Card: {
            auto* card = new PersonalCardItem(e);
            connect(card, &PersonalCardItem::openCardSignal, this, &View::showInfoCardSlot);
            widget = card;
            break;
        }
    }
    connect(widget, &BaseItem::avatarClickedSignal, this, &View::showInfoCardSlot);
    return widget;
}

bool View::mediaReady(quint64 msgId, const QString& path) {
    EntryItem* item = msgIds_.value(msgId);
    if (!item) {
        if (path.isEmpty()) Manager::instance()->setMediaFailed(msgId);
        return false;
    }
    MessageEntry& e = item->entry;
    e.msg.mediaPath = path;
    e.loading = false;
    if (e.kind == MessageEntry::Image) measurer_->measure(item);
    list_->refresh(item);
    return true;
}

// --- the rest of the view --------------------------------------------------------------

void View::showPictureSlot(const QString& path) {
    if (!picture_) picture_ = new ShowPictureWidget(window());
    picture_->showPicture(path);
    picture_->show();
    picture_->raise();
}

void View::setHistoryTipSlot(int index) {
    Q_UNUSED(index);  // the control stays the top row; older messages go below it
    emit Manager::instance()->getHistoryMsgSignal(id_);
}

QListWidget* View::getListWidget() { return list_; }

void View::showMemberView(bool isShow) {
    // The tribe member list sits beside the output, in the page; the view only says so.
    emit memberViewSignal(isShow);
}

void View::playmediaSlot() { list_->viewport()->update(); }

void View::showShareOfPersonal(const QString& userId) { showInfoCardSlot(userId); }

void View::showDisconnectLabel() { disconnect_->show(); }

void View::hideDisconnectLabelSlot() { disconnect_->hide(); }

void View::showPictureMenuSlot(const QString& path) { pictures_.showMenu(path); }

void View::copyPic(const QString& path) { PictureActions::copy(path); }

bool View::savePic(const QString& path) { return pictures_.save(path); }

void View::onTalkToSlot(const QString& userId) {
    hideInfoCardSlot();
    emit talkToSignal(userId);
    emit Manager::instance()->talkToSignal(userId);
}

void View::showInfoCardSlot(const QString& userId) {
    infoCard_->setUser(userId);
    QPoint at = mapFromGlobal(QCursor::pos()) + QPoint(8, 8);
    at.setX(qBound(0, at.x(), qMax(0, width() - infoCard_->width())));
    at.setY(qBound(0, at.y(), qMax(0, height() - infoCard_->height())));
    infoCard_->move(at);
    infoCard_->show();
    infoCard_->raise();
}

void View::hideInfoCardSlot() { infoCard_->hide(); }

void View::setAtTipHiddenSlot(bool isHidden) {
    atTip_->setHidden(isHidden);
    if (!isHidden) atTip_->raise();
}

bool View::getAtHiddenStatus() const { return atTip_->isHidden(); }

void View::atTipClickedSlot() {
    if (mentionRow_ && list_->row(mentionRow_) >= 0)
        list_->scrollToItem(mentionRow_, QAbstractItemView::PositionAtCenter);
    mentionRow_ = nullptr;
    setAtTipHiddenSlot(true);
    emit Manager::instance()->setAtTextHiddenSignal(id_, true);
}

bool View::eventFilter(QObject* watched, QEvent* event) {
    // A press anywhere in the list but on an avatar closes the card.
    if (watched == list_->viewport() && event->type() == QEvent::MouseButtonPress)
        hideInfoCardSlot();
    return QWidget::eventFilter(watched, event);
}

void View::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    measurer_->pageShown();
}

void View::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    background_->setGeometry(rect());
    atTip_->move(width() - atTip_->width() - 16, height() - atTip_->height() - 12);
}

}  // namespace qx_output
