#include "view.h"

#include <QApplication>
#include <QClipboard>
#include <QCursor>
#include <QFileInfo>
#include <QImage>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QPushButton>
#include <QScrollBar>
#include <QStyle>
#include <QTimer>

#include <QVBoxLayout>
#include <algorithm>

#include "baseitem.h"
#include "configstore.h"
#include "directorystore.h"
#include "filemsgitem.h"
#include "filetransfer.h"
#include "functiontrace.h"
#include "imagemsgitem.h"
#include "infocard.h"
#include "itemsizer.h"
#include "listwidget.h"
#include "logger.h"
#include "mainviewdelegate.h"
#include "manager.h"
#include "messageentry.h"
#include "personalcarditem.h"
#include "prompts.h"
#include "showpicturewidget.h"
#include "tablemsgitem.h"
#include "taskmsgitem.h"
#include "taskreadflags.h"
#include "textmarkup.h"
#include "textmsgitem.h"
#include "tipmsgitem.h"
#include "uifont.h"
#include "viewmenu.h"

namespace qx_output {

namespace {
constexpr int kDefaultWidth = 600;  // until the view is laid out
const QString kShakeSummary = QStringLiteral("[抖动窗口]");
const QString kFileSummary = QStringLiteral("[文件]");

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
    : QWidget(parent), id_(conversationId), isTribe_(isTribe) {
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
    connect(list_, &ListWidget::widthChanged, this, &View::remeasure);
    connect(&UiFont::instance(), &UiFont::changed, this, &View::fontChanged);
    Manager* manager = Manager::instance();
    connect(manager, &Manager::mainWinPressedSignal, this, &View::hideInfoCardSlot);
    connect(manager, &Manager::mainWinDeactiveSignal, this, &View::hideInfoCardSlot);
    connect(manager, &Manager::setAtTipHiddenSignal, this, [this](const QString& id, bool hidden) {
        if (id == id_) setAtTipHiddenSlot(hidden);
    });
}

QString View::pictureSaveName(const QDateTime& now) {
    return now.toString(QStringLiteral("yyyyMMddhhmmss"));
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
    if (m.isSelf) {
        // The echo of a file we uploaded from this page: the row is here already.
        const QString fileId = contentOf(m).value(QStringLiteral("id")).toVariant().toString();
        if (EntryItem* row = uploads_.value(fileId)) {
            msgIds_.remove(row->entry.msg.msgId);
            row->entry.msg.msgId = m.msgId;
            row->entry.msg.time = m.time;
            msgIds_.insert(m.msgId, row);
            return;
        }
    }
    MessageEntry e;
    e.kind = MessageEntry::File;
    e.msg = std::move(m);
    add(std::move(e));
}

void View::uploadFile(const QString& path) {
    const QString userId = DirectoryStore::instance().selfId();
    BaseMsg::MMessage m;
    // Rows of our own uploads get ids of their own, far from the service's.
    m.msgId = (quint64(1) << 63) + nextLocalId_++;
    m.conversationId = id_;
    m.isTribe = isTribe_;
    m.senderId = userId;
    m.isSelf = true;
    m.time = QDateTime::currentSecsSinceEpoch();
    m.kind = BaseMsg::Custom;
    m.summary = kFileSummary;
    m.mediaPath = path;
    const QString key = QStringLiteral("upload:%1:%2").arg(m.msgId).arg(path);
    QJsonObject o{{QStringLiteral("msgType"), int(BaseMsg::CustomFile)},
                  {QStringLiteral("fileName"), QFileInfo(path).fileName()},
                  {QStringLiteral("fileSize"), QString::number(QFileInfo(path).size())},
                  {QStringLiteral("uploadKey"), key}};
    m.contentJson = QString::fromUtf8(QJsonDocument(o).toJson(QJsonDocument::Compact));
    FileTransfer* transfer = Manager::instance()->transfer(key);
    const quint64 rowId = m.msgId;
    addFileMsg(m);
    connect(transfer, &FileTransfer::uploaded, this,
            [this, rowId, key](const QString& fileId, const QString& name, qint64 size) {
                EntryItem* row = msgIds_.value(rowId);
                const QJsonObject content{{QStringLiteral("msgType"), int(BaseMsg::CustomFile)},
                                          {QStringLiteral("fileName"), name},
                                          {QStringLiteral("fileSize"), QString::number(size)},
                                          {QStringLiteral("id"), fileId}};
                const QString json =
                    QString::fromUtf8(QJsonDocument(content).toJson(QJsonDocument::Compact));
                if (row) {
                    uploads_.insert(fileId, row);
                    row->entry.msg.contentJson = json;
                    // From now on the row names the file by its id.
                    Manager::instance()->rekeyTransfer(key, QStringLiteral("up:") + fileId);
                }
                emit Manager::instance()->sendCustemMsgSignal(id_, kFileSummary, json);
            });
    connect(transfer, &FileTransfer::finished, this, [this, transfer](bool ok) {
        if (!ok && !transfer->failure().isEmpty()) Prompts::error(this, transfer->failure());
    });
    transfer->upload(ConfigStore::instance().url(UrlTable::UrlUpload), userId, path);
}

namespace {

// Rows are in the order of the server's time, then the store's order within a second.
bool later(const BaseMsg::MMessage& a, qint64 time, qint64 order) {
    return a.time > time || (a.time == time && a.order > order);
}

}  // namespace

int View::historyRow(qint64 time, qint64 order) const {
    // History arrives in pages, newest page last; a message goes above every row that
    // comes after it, among the rows loaded from history.
    int r = 1;
    while (r < list_->count()) {
        EntryItem* e = list_->entryAt(r);
        if (!e || !e->entry.msg.isHistory) break;
        // A line goes with the message below it: an earlier message goes above both.
        if (e->entry.kind == MessageEntry::Separator) {
            EntryItem* next = list_->entryAt(r + 1);
            if (next && next->entry.kind != MessageEntry::Separator &&
                later(next->entry.msg, time, order))
                break;
        } else if (later(e->entry.msg, time, order)) {
            break;
        }
        ++r;
    }
    return r;
}

int View::lateRow(qint64 time, qint64 order) const {
    // A message that arrives after newer ones (fetched from the server's archive after a
    // reconnect while live messages kept coming) goes in its place, not at the end. Rows
    // without a time (tips) stay with the rows they follow.
    if (time == 0) return -1;
    int place = -1;
    for (int r = list_->count() - 1; r >= 1; --r) {
        EntryItem* e = list_->entryAt(r);
        if (!e) break;
        const BaseMsg::MMessage& row = e->entry.msg;
        if (row.time == 0) continue;
        if (e->entry.kind == MessageEntry::Separator) {
            if (row.time > time && place == r + 1) place = r;  // its line goes with the later rows
            continue;
        }
        if (!later(row, time, order)) break;
        place = r;
    }
    return place;
}

bool View::startsStretch(int r, qint64 time) const {
    // One rule wherever a message lands (live, late or from history), so both sides of a
    // chat, and a page before and after a restart, draw the same lines: a message more than
    // kSeparatorSeconds after the message above it (tips, which have no time, do not count)
    // starts a new stretch, and so does the first one.
    if (time == 0) return false;
    for (int above = r - 1; above >= 1; --above) {
        EntryItem* e = list_->entryAt(above);
        if (!e) break;
        if (e->entry.kind == MessageEntry::Separator) return false;
        if (e->entry.msg.time == 0) continue;
        return e->entry.msg.time + kSeparatorSeconds < time;
    }
    return true;
}

EntryItem* View::separatorItem(qint64 time, bool history) {
    MessageEntry s;
    s.kind = MessageEntry::Separator;
    s.msg.isHistory = history;
    s.msg.time = time;
    s.html = QDateTime::fromSecsSinceEpoch(time).toString(QStringLiteral("yyyy/MM/dd hh:mm:ss"));
    currentWidth();
    ItemSizer::measure(s, measuredWidth_);
    auto* sep = new EntryItem(s);
    sep->setSizeHint(ItemSizer::rowSize(s, measuredWidth_));
    return sep;
}

void View::insertAt(int r, EntryItem* item, qint64 time) {
    if (startsStretch(r, time))
        list_->insertEntry(r++, separatorItem(time, item->entry.msg.isHistory));
    list_->insertEntry(r, item);
    // The line that opened the stretch below may now be inside this message's stretch.
    EntryItem* below = list_->entryAt(r + 1);
    if (time != 0 && below && below->entry.kind == MessageEntry::Separator &&
        !startsStretch(r + 1, below->entry.msg.time))
        list_->removeEntry(r + 1);
}

void View::add(MessageEntry e) {
    currentWidth();
    e.showName = isTribe_ && e.kind != MessageEntry::Tip;
    // Laying out a text costs far more than keeping it: a page nobody looks at (messages
    // arriving for a conversation that is not open) gives its text rows a one-line size and
    // measures them when it is shown, the rows in view first.
    const bool defer = e.kind == MessageEntry::Text && !isVisible();
    if (defer) {
        e.measuredFor = 0;
        e.content = ItemSizer::oneLine();
    } else {
        ItemSizer::measure(e, measuredWidth_);
    }
    const quint64 id = e.msg.msgId;
    const bool history = e.msg.isHistory;
    const bool follow = e.msg.isSelf;
    const qint64 time = e.msg.time;
    const qint64 order = e.msg.order;
    auto* item = new EntryItem(std::move(e));
    item->setSizeHint(ItemSizer::rowSize(item->entry, measuredWidth_));
    if (defer) unmeasured_ = true;
    if (id != 0) msgIds_.insert(id, item);
    if (!history) {
        const int late = lateRow(time, order);
        if (late >= 0) return insertAt(late, item, time);
        showChatMsgTime(time);
        list_->appendEntry(item, follow);
        return;
    }
    insertAt(historyRow(time, order), item, time);
}

bool View::showChatMsgTime(qint64 t) {
    if (t == 0) {
        Logger::instance().write(QStringLiteral("message time 0: no time line"));
        return false;
    }
    if (!startsStretch(list_->count(), t)) return false;
    list_->appendEntry(separatorItem(t, false), false);
    return true;
}

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

int View::currentWidth() {
    if (measuredWidth_ >= 0) return measuredWidth_;
    if (list_->isVisible()) {
        measuredWidth_ = list_->rowWidth();
        return measuredWidth_;
    }
    // Not shown yet (a page behind the current one): the pages share the width of the
    // nearest shown container, less a scroll bar.
    measuredWidth_ = kDefaultWidth;
    for (QWidget* w = parentWidget(); w; w = w->parentWidget()) {
        if (w->isVisible()) {
            measuredWidth_ = w->width() - style()->pixelMetric(QStyle::PM_ScrollBarExtent);
            break;
        }
    }
    return measuredWidth_;
}

void View::remeasure(int width) {
    if (width <= 0) return;
    measuredWidth_ = width;
    const int lines = ItemSizer::maxContentWidth(width);
    pending_.clear();
    list_->keepingView([&] {
        for (int r = 1; r < list_->count(); ++r) {
            EntryItem* item = list_->entryAt(r);
            if (!item) continue;
            if (item->entry.kind == MessageEntry::Text && item->entry.measuredFor != lines)
                pending_.append(item);
            item->setSizeHint(ItemSizer::rowSize(item->entry, width));
            list_->refresh(item);
        }
    });
    // The rows in view first, then from the newest up.
    int first = 0;
    int last = 0;
    list_->visibleRows(&first, &last);
    std::stable_sort(pending_.begin(), pending_.end(), [&](EntryItem* a, EntryItem* b) {
        const int ra = list_->row(a);
        const int rb = list_->row(b);
        const bool va = ra >= first && ra <= last;
        const bool vb = rb >= first && rb <= last;
        if (va != vb) return va;
        return ra > rb;
    });
    measurePending();
}

void View::fontChanged() {
    // Every text row is measured anew, and every row's widget is rebuilt with the new size.
    // Cards take their size from the font; pictures and tips do not.
    for (int r = 1; r < list_->count(); ++r) {
        EntryItem* item = list_->entryAt(r);
        if (!item) continue;
        item->entry.measuredFor = -1;
        switch (item->entry.kind) {
            case MessageEntry::File:
            case MessageEntry::Task:
            case MessageEntry::Table:
            case MessageEntry::Card:
                ItemSizer::measure(item->entry, measuredWidth_);
                break;
            default:
                break;
        }
    }
    if (isVisible() && measuredWidth_ > 0)
        remeasure(measuredWidth_);
    else
        unmeasured_ = true;
}

void View::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    if (!unmeasured_) return;
    // After the layout has given the list its width.
    QTimer::singleShot(0, this, [this] {
        if (!unmeasured_ || !isVisible()) return;
        unmeasured_ = false;
        remeasure(list_->rowWidth());
    });
}

void View::measurePending() {
    measuring_ = false;
    if (pending_.isEmpty()) return;
    constexpr int kRowsPerTurn = 40;
    const int n = qMin(kRowsPerTurn, pending_.size());
    list_->keepingView([&] {
        for (int i = 0; i < n; ++i) {
            EntryItem* item = pending_.at(i);
            ItemSizer::measure(item->entry, measuredWidth_);
            item->setSizeHint(ItemSizer::rowSize(item->entry, measuredWidth_));
            list_->refresh(item);
        }
    });
    pending_.remove(0, n);
    if (!pending_.isEmpty() && !measuring_) {
        measuring_ = true;
        QTimer::singleShot(0, this, &View::measurePending);
    }
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
    if (e.kind == MessageEntry::Image) {
        ItemSizer::measure(e, measuredWidth_);
        item->setSizeHint(ItemSizer::rowSize(e, measuredWidth_));
    }
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

void View::showPictureMenuSlot(const QString& path) {
    auto* menu = new ViewMenu(path, this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    connect(menu, &ViewMenu::copySignal, this, &View::copyPic);
    connect(menu, &ViewMenu::saveSignal, this, &View::savePic);
    menu->popup(QCursor::pos());
}

void View::copyPic(const QString& path) {
    const QImage image(path);
    if (!image.isNull()) QApplication::clipboard()->setImage(image);
}

bool View::savePic(const QString& path) {
    QString target =
        Prompts::saveName(this, pictureSaveName(), QStringLiteral("图片 (*.jpg *.png *.bmp)"));
    if (target.isEmpty()) return false;
    if (QFileInfo(target).suffix().isEmpty()) target += QStringLiteral(".png");
    const QImage image(path);
    if (image.isNull() || !image.save(target)) {
        Prompts::error(this, QStringLiteral("保存文件：%1 失败。").arg(target));
        return false;
    }
    return true;
}

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

void View::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    background_->setGeometry(rect());
    atTip_->move(width() - atTip_->width() - 16, height() - atTip_->height() - 12);
}

}  // namespace qx_output
