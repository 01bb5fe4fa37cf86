#include "conversationview.h"

#include <QAbstractEventDispatcher>
#include <QApplication>
#include <QClipboard>
#include <QDateTime>
#include <QLabel>
#include <QListWidget>
#include <QMimeData>
#include <QMutexLocker>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

#include "avatarmanager.h"
#include "chatlistitemwidget.h"
#include "colleagenamesearchedit.h"
#include "configstore.h"
#include "conversationcontentinputedit.h"
#include "conversationcontentinputview.h"
#include "conversationcontentview.h"
#include "directorystore.h"
#include "globalhotkey.h"
#include "logger.h"
#include "mainviewdelegate.h"
#include "manager.h"
#include "personalcarditem.h"
#include "screenmetrics.h"
#include "screenshotview.h"
#include "sharechooser.h"
#include "view.h"

namespace {
// Never reset: after an outage the dots go on where they stopped.
int g_netTipTicks = 0;

QWidget* placeholder(QWidget* parent) {
    auto* page = new QWidget(parent);
    page->setObjectName(QStringLiteral("conversationPlaceholder"));
    page->setStyleSheet(
        QStringLiteral("QWidget{background-color:#fafafa;border-top-left-radius:0px;border-top-"
                       "right-radius:%1px;"
                       "border-bottom-right-radius:%1px;border-bottom-left-radius:0px;}")
            .arg(ScreenMetrics::instance().value(ScreenMetrics::CornerRadius)));
    auto* layout = new QVBoxLayout(page);
    layout->addStretch();
    auto* image = new QLabel(page);
    image->setPixmap(QPixmap(QStringLiteral(":/resource/Chat/default_chat.png")));
    image->setFixedSize(image->sizeHint());
    layout->addWidget(image, 0, Qt::AlignHCenter);
    auto* text = new QLabel(QStringLiteral("请选择联系人，开始聊天"), page);
    text->setStyleSheet(QStringLiteral("QLabel{color:#9aa5b1;}"));
    layout->addWidget(text, 0, Qt::AlignHCenter);
    layout->addStretch();
    return page;
}
}  // namespace

ConversationView::ConversationView(QWidget* parent) : QSplitter(Qt::Horizontal, parent) {
    setHandleWidth(1);
    setChildrenCollapsible(false);

    listArea_ = new QWidget(this);
    listArea_->setMinimumWidth(200);
    listArea_->setMaximumWidth(320);
    auto* left = new QVBoxLayout(listArea_);
    left->setContentsMargins(0, 0, 0, 0);
    left->setSpacing(0);
    search_ = new ColleageNameSearchEdit(listArea_);
    search_->setObjectName(QStringLiteral("conversationSearch"));
    auto* searchButton = new QPushButton(search_);
    searchButton->setStyleSheet(
        QStringLiteral("QPushButton{border-image: url(:/resource/Chat/search_icon.png);"
                       "border-radius:0px;background-color:transparent;}"));
    searchButton->setFixedSize(16, 16);
    search_->setTextMargins(22, 0, 0, 0);
    searchButton->move(4, 6);
    left->addWidget(search_);
    talkList_ = new QListWidget(listArea_);
    talkList_->setObjectName(QStringLiteral("talkList"));
    talkList_->setStyleSheet(
        QStringLiteral("QListWidget{border:none;background-color:#f5f6f8;}"
                       "QListWidget::item:selected{background-color:#e1e6ec;}"));
    left->addWidget(talkList_);

    auto* right = new QWidget(this);
    auto* rightLayout = new QVBoxLayout(right);
    rightLayout->setContentsMargins(0, 0, 0, 0);
    rightLayout->setSpacing(0);
    netTip_ = new QLabel(right);
    netTip_->setObjectName(QStringLiteral("netTip"));
    netTip_->setAlignment(Qt::AlignCenter);
    netTip_->setStyleSheet(
        QStringLiteral("QLabel{background-color:#fff4e5;color:#b7791f;padding:4px;}"));
    netTip_->hide();
    rightLayout->addWidget(netTip_);
    stack_ = new QStackedWidget(right);
    stack_->insertWidget(0, placeholder(stack_));
    rightLayout->addWidget(stack_, 1);
    addWidget(listArea_);
    addWidget(right);
    setStretchFactor(1, 1);

    connect(search_, &ColleageNameSearchEdit::searchListSignal, this,
            &ConversationView::showSearchList);
    connect(search_, &ColleageNameSearchEdit::selectedSearchResultItem, this,
            &ConversationView::selectedOnSearchList);
    connect(search_, &ColleageNameSearchEdit::erasedAllText, this,
            &ConversationView::selectedOnSearchList);
    connect(talkList_, &QListWidget::currentRowChanged, this,
            &ConversationView::currentRowChangedSlot);
    netTimer_.setInterval(1000);
    connect(&netTimer_, &QTimer::timeout, this, &ConversationView::netTipTimeout);
    connect(&quelix::AvatarManager::instance(), &quelix::AvatarManager::signal_ReceiveAvatar, this,
            &ConversationView::UpdateUserIcon);
    connect(qx_output::Manager::instance(), &qx_output::Manager::muteRequested, this,
            &ConversationView::setMuted);

    if (QAbstractEventDispatcher* dispatcher = QAbstractEventDispatcher::instance())
        dispatcher->installNativeEventFilter(this);
    hotKeyRegistered_ =
        hotkey::registerKey(kHotKeyId, hotkey::kModControl | hotkey::kModShift, hotkey::kKeyZ);
}

ConversationView::~ConversationView() {
    hotkey::unregisterKey(kHotKeyId);
    if (QAbstractEventDispatcher* dispatcher = QAbstractEventDispatcher::instance())
        dispatcher->removeNativeEventFilter(this);
}

bool ConversationView::nativeEventFilter(const QByteArray& eventType, void* message, long*) {
    int id = 0;
    if (hotkey::isHotKeyEvent(eventType.constData(), message, &id) && id == kHotKeyId) {
        hotkey::unregisterKey(kHotKeyId);
        if (MainViewDelegate* shell = MainViewDelegate::instance()) shell->startScreenshot();
        hotkey::registerKey(kHotKeyId, hotkey::kModControl | hotkey::kModShift, hotkey::kKeyZ);
    }
    return false;  // others may want the event too
}

QString ConversationView::displayName(const QString& id) const {
    const DirectoryStore& store = DirectoryStore::instance();
    if (const DirectoryStore::Colleague* c = store.colleague(id)) return c->displayName();
    if (const DirectoryStore::Tribe* t = store.tribe(id)) return t->name;
    return QString();
}

QString ConversationView::pageTitle(const QString& id) const {
    const DirectoryStore& store = DirectoryStore::instance();
    // A colleague with the department, as namesakes are told apart.
    if (const DirectoryStore::Colleague* c = store.colleague(id)) {
        const QString dept = c->deptName();
        return dept.isEmpty() ? c->displayName() : c->displayName() + QStringLiteral(" · ") + dept;
    }
    return displayName(id);
}

ChatListItemWidget* ConversationView::rowWidget(int row) const {
    return qobject_cast<ChatListItemWidget*>(talkList_->itemWidget(talkList_->item(row)));
}

int ConversationView::rowOf(const QString& id) const {
    for (int row = 0; row < talkList_->count(); ++row)
        if (talkList_->item(row)->data(Qt::UserRole).toString() == id) return row;
    return -1;
}

int ConversationView::unreadCount(const QString& id) const {
    const int row = rowOf(id);
    return row < 0 ? 0 : rowWidget(row)->unreadCount();
}

QString ConversationView::currentConversationId() const {
    QListWidgetItem* item = talkList_->currentItem();
    return item && stack_->currentIndex() > 0 ? item->data(Qt::UserRole).toString() : QString();
}

ConversationContentView* ConversationView::openedPage(const QString& id) {
    QMutexLocker lock(&mutex_);
    ConversationContentView* p = pageMap_.value(id);
    return p && p->property("opened").toBool() ? p : nullptr;
}

ConversationContentView* ConversationView::page(const QString& id) {
    QMutexLocker lock(&mutex_);
    auto it = pageMap_.constFind(id);
    if (it != pageMap_.constEnd() && it.key() == id && it.value()) return it.value();
    const bool isTribe = !DirectoryStore::instance().isUser(id);
    auto* created = new ConversationContentView(id, isTribe, stack_);
    created->setTitle(pageTitle(id));
    auto* output = new qx_output::View(id, isTribe);
    created->setOutput(output);
    created->setInput(new ConversationContentInputView(created));
    if (!ConversationContentView::clientOnline()) output->showDisconnectLabel();
    // Refused sends and tribe events read as tip lines in the conversation.
    connect(created, &ConversationContentView::tipSignal, output, [output](const QString& text) {
        BaseMsg::MMessage tip;
        tip.text = text;
        output->addTipMsg(tip);
    });
    pageMap_.insert(id, created);
    stack_->insertWidget(stack_->count(), created);
    lock.unlock();
    emit pageCreated(created);
    return created;
}

void ConversationView::showTribeTip(const QString& tribeId, const QString& text,
                                    bool concernsUser) {
    page(tribeId)->showTipLabel(text);
    if (concernsUser && currentConversationId() != tribeId) showConversation(tribeId, 1);
}

void ConversationView::openPage(const QString& id) {
    ConversationContentView* opened = page(id);
    stack_->setCurrentWidget(opened);
    // The name may have come (or changed) since the page was made; typing goes to the page.
    opened->setTitle(pageTitle(id));
    if (auto* input = qobject_cast<ConversationContentInputView*>(opened->input()))
        input->edit()->setFocus(Qt::OtherFocusReason);
    // The first time a conversation is opened it shows its latest messages (after a
    // restart the page would otherwise start empty).
    if (!opened->property("opened").toBool()) {
        opened->setProperty("opened", true);
        emit pageOpenedFirstTime(opened);
    }
}

void ConversationView::addRow(const QString& id, const QString& name, int count, int at,
                              bool alert) {
    auto* row = new ChatListItemWidget(id, name, talkList_);
    connect(row, &ChatListItemWidget::deleteItemSignal, this,
            &ConversationView::deleteMemberFromMemberList);
    connect(row, &ChatListItemWidget::muteRequested, this, &ConversationView::setMuted);
    row->setMuted(TalkListLedger::isMuted(id));
    const DirectoryStore& store = DirectoryStore::instance();
    row->setAvatar(quelix::AvatarManager::instance().displayPath(
        id, id == store.selfId() || store.isOnline(id)));
    if (const DirectoryStore::Colleague* c = DirectoryStore::instance().colleague(id))
        quelix::AvatarManager::instance().requestAvatar(id, c->userIcon());
    else if (DirectoryStore::instance().tribe(id))
        row->setAvatar(ConfigStore::instance().filePath(ConfigStore::TribeIcon));
    row->setUnreadCount(count);
    auto* item = new QListWidgetItem;
    item->setData(Qt::UserRole, id);
    item->setSizeHint(row->sizeHint());
    const QSignalBlocker quiet(talkList_);  // inserting is not opening
    talkList_->insertItem(at, item);
    talkList_->setItemWidget(item, row);
    if (count != 0 && alert) alertUnlessMuted(id, name, count);
}

void ConversationView::markSeen(const QString& id) {
    // Every opening says so, not only one with a badge.
    emit conversationSeen(id);
}

bool ConversationView::raiseQuietly(const QString& id, int count) {
    const QString name = displayName(id);
    if (name.isEmpty()) return false;
    const int row = rowOf(id);
    int total = count;
    if (row >= 0) {
        total = qMax(count, rowWidget(row)->unreadCount());
        const bool wasCurrent = talkList_->currentRow() == row;
        const QSignalBlocker quiet(talkList_);
        delete talkList_->takeItem(row);
        addRow(id, name, total, 0, false);
        if (wasCurrent) talkList_->setCurrentRow(0);
    } else {
        addRow(id, name, total, 0, false);
        ledger_.add(id);
    }
    ledger_.raise(id);
    return true;
}

void ConversationView::restoreUnseen(const QString& id, int count) {
    for (int i = 0; i < pendingUnseen_.size(); ++i)
        if (pendingUnseen_[i].first == id) pendingUnseen_.remove(i--);
    pendingUnseen_.append({id, count});
}

void ConversationView::applyUnseen() {
    bool changed = false;
    // The saved talk list is written once for all the rows, not once per row.
    ledger_.hold();
    for (int i = 0; i < pendingUnseen_.size(); ++i) {
        if (!raiseQuietly(pendingUnseen_[i].first, pendingUnseen_[i].second)) continue;
        pendingUnseen_.remove(i--);
        changed = true;
    }
    ledger_.release();
    if (changed) reportTotal();
}

QStringList ConversationView::talkListState() const {
    QStringList rows;
    for (int row = 0; row < talkList_->count(); ++row)
        rows << talkList_->item(row)->data(Qt::UserRole).toString() + QLatin1Char(':') +
                    QString::number(rowWidget(row)->unreadCount());
    return rows;
}

void ConversationView::showConversation(QString id, int count) {
    const int row = rowOf(id);
    if (row < 0) {
        const QString name = displayName(id);
        if (name.isEmpty()) return;  // nobody we know
        addRow(id, name, count);
        ledger_.add(id);
        if (count == 0) {
            talkList_->setCurrentRow(0);
            openPage(id);
            markSeen(id);
        }
        reportTotal();
        return;
    }
    ChatListItemWidget* widget = rowWidget(row);
    const int total = count > 0 ? widget->unreadCount() + count : 0;
    if (row == 0) {
        if (count == 0) {
            widget->setUnreadCount(0);
            talkList_->setCurrentRow(0);
            openPage(id);
            markSeen(id);
        } else {
            widget->setUnreadCount(total);
            alertUnlessMuted(id, widget->name(), total);
        }
    } else {
        const QString name = widget->name();
        const bool wasCurrent = talkList_->currentRow() == row;
        {
            const QSignalBlocker quiet(talkList_);
            delete talkList_->takeItem(row);
        }
        addRow(id, name, total);
        ledger_.raise(id);
        if (count == 0) {
            talkList_->setCurrentRow(0);
            openPage(id);
            markSeen(id);
        } else if (wasCurrent) {
            const QSignalBlocker quiet(talkList_);
            talkList_->setCurrentRow(0);
        }
    }
    reportTotal();
}

void ConversationView::currentRowChangedSlot(int row) {
    if (row < 0 || row >= talkList_->count()) return;
    const QString id = talkList_->item(row)->data(Qt::UserRole).toString();
    rowWidget(row)->setUnreadCount(0);
    openPage(id);
    markSeen(id);
    reportTotal();
}

void ConversationView::deleteMemberFromMemberList(QString id) {
    const int row = rowOf(id);
    if (row < 0) return;
    const bool wasCurrent = talkList_->currentRow() == row;
    {
        const QSignalBlocker quiet(talkList_);
        delete talkList_->takeItem(row);
    }
    if (wasCurrent) {
        if (talkList_->count() > 0) {
            talkList_->setCurrentRow(-1);
            talkList_->setCurrentRow(0);
        } else {
            stack_->setCurrentIndex(0);
        }
    }
    ledger_.remove(id);
    reportTotal();
}

void ConversationView::loadTalkList() {
    const quelix::listtalk_t& saved = ConfigStore::instance().talkList();
    const QSignalBlocker quiet(talkList_);
    talkList_->clear();
    for (const auto& entry : saved.entries) {
        const QString id = QString::number(entry.id);
        const QString name = displayName(id);
        if (!name.isEmpty() && rowOf(id) < 0) addRow(id, name, 0);
    }
    applyUnseen();
    reportTotal();
}

void ConversationView::restoreTalkList() {
    const quelix::listtalk_t& saved = ConfigStore::instance().talkList();
    // Saved oldest first, shown newest first: a row goes below the rows of conversations
    // saved after it and of those that came up since (which are not saved later).
    QStringList order;
    for (const auto& entry : saved.entries) order << QString::number(entry.id);
    for (int i = 0; i < order.size(); ++i) {
        const QString& id = order.at(i);
        const QString name = displayName(id);
        if (name.isEmpty() || rowOf(id) >= 0) continue;
        int at = 0;
        while (at < talkList_->count()) {
            const int savedAt = order.indexOf(talkList_->item(at)->data(Qt::UserRole).toString());
            if (savedAt >= 0 && savedAt < i) break;
            ++at;
        }
        addRow(id, name, 0, at);
    }
    applyUnseen();
}

void ConversationView::alertUnlessMuted(const QString& id, const QString& name, int count) {
    if (TalkListLedger::isMuted(id)) return;  // the badge and the total count it; nothing rings
    if (MainViewDelegate* shell = MainViewDelegate::instance())
        shell->newMessageAlert(id, name, count);
}

void ConversationView::setMuted(const QString& id, bool muted) {
    ledger_.setMuted(id, muted);
    const int row = rowOf(id);
    const bool now = TalkListLedger::isMuted(id);
    if (row >= 0) rowWidget(row)->setMuted(now);
    emit qx_output::Manager::instance()->muteChanged(id, now);
}

int ConversationView::totalUnread() const {
    int sum = 0;
    for (int row = 0; row < talkList_->count(); ++row)
        if (auto* w =
                qobject_cast<TalkListItemWidget*>(talkList_->itemWidget(talkList_->item(row))))
            sum += w->unreadCount();
    return sum;
}

void ConversationView::reportTotal() {
    if (MainViewDelegate* shell = MainViewDelegate::instance()) shell->totalUnread(totalUnread());
}

void ConversationView::setOnline(bool online) {
    ConversationContentView::setClientOnline(online);
    for (int i = 0; i < stack_->count(); ++i) {
        auto* page = qobject_cast<ConversationContentView*>(stack_->widget(i));
        auto* output = page ? qobject_cast<qx_output::View*>(page->output()) : nullptr;
        if (!output) continue;
        if (online)
            output->hideDisconnectLabelSlot();
        else
            output->showDisconnectLabel();
    }
    if (online) {
        netTimer_.stop();
        netTip_->hide();
        return;
    }
    if (!netTimer_.isActive()) {
        netTipTimeout();
        netTimer_.start();
    }
    netTip_->show();
}

void ConversationView::netTipTimeout() {
    static const char* const kTexts[3] = {"断线重连中.", "断线重连中..", "断线重连中..."};
    netTip_->setText(QString::fromUtf8(kTexts[g_netTipTicks % 3]));
    ++g_netTipTicks;
}

void ConversationView::showSearchList(QListWidget* list) {
    if (searchList_ && searchList_ != list) searchList_->hide();
    searchList_ = list;
    list->setParent(listArea_);
    if (auto* layout = qobject_cast<QVBoxLayout*>(listArea_->layout())) {
        if (layout->indexOf(list) < 0) layout->insertWidget(2, list);
    }
    talkList_->hide();
    list->show();
}

void ConversationView::setCurrentList() {
    if (searchList_) searchList_->hide();
    talkList_->show();
}

void ConversationView::selectedOnSearchList(const QString& id) {
    setCurrentList();
    if (id.isEmpty()) return;  // the search text was erased
    search_->blockSignals(true);
    search_->clear();
    search_->blockSignals(false);
    showConversation(id, 0);
}

void ConversationView::chatViewActive() {
    const int row = talkList_->currentRow();
    if (row < 0 || stack_->currentIndex() == 0) return;
    if (rowWidget(row)->unreadCount() > 0) {
        rowWidget(row)->setUnreadCount(0);
        reportTotal();
    }
}

void ConversationView::UpdateUserIcon(const QString& userId, const QString& path) {
    Q_UNUSED(path);  // the grey copy beside it is the one for colleagues off line
    const DirectoryStore& store = DirectoryStore::instance();
    setUserOnline(userId, userId == store.selfId() || store.isOnline(userId));
}

void ConversationView::setUserOnline(const QString& userId, bool online) {
    const int row = rowOf(userId);
    if (row >= 0)
        rowWidget(row)->setAvatar(quelix::AvatarManager::instance().displayPath(userId, online));
}

QString ConversationView::shareColleague(const QString& userId) {
    const QString content = qx_output::PersonalCardItem::contentFor(userId);
    if (content.isEmpty()) {
        Logger::instance().write(
            QStringLiteral("share refused: %1 is not a colleague").arg(userId));
        return QString();
    }
    QVector<QPair<QString, QString>> recent;
    for (int i = 0; i < talkList_->count(); ++i)
        if (ChatListItemWidget* row = rowWidget(i)) recent.append({row->id(), row->name()});
    QString target;
    if (askShare_) {
        target = askShare_(recent, userId);
    } else {
        const DirectoryStore::Colleague* c = DirectoryStore::instance().colleague(userId);
        ShareChooser chooser(c->displayName(), recent, window());
        if (chooser.exec() == QDialog::Accepted) target = chooser.chosenId();
    }
    if (target.isEmpty() || displayName(target).isEmpty()) return QString();
    // The page's own guards apply (off line, another company's tribe) and say why.
    page(target)->sendCustom(content, qx_output::PersonalCardItem::summaryFor(userId));
    return target;
}

void ConversationView::conversationViewScreenShots(bool isVisible) {
    MainViewDelegate* shell = MainViewDelegate::instance();
    if (!shell) return;
    if (!isVisible) shell->hideMainWindow();
    shell->startScreenshot();
}

void ConversationView::showWinSlot() {
    if (MainViewDelegate* shell = MainViewDelegate::instance()) shell->showMainWindow();
}

void ConversationView::attachScreenShot(screenshot::ScreenShotView* shot) {
    connect(shot, &screenshot::ScreenShotView::signal_Exit, this, &ConversationView::showWinSlot);
    connect(shot, &screenshot::ScreenShotView::signal_Finish, this,
            &ConversationView::screenShortFinished);
}

void ConversationView::screenShortFinished() {
    showWinSlot();
    // The capture is on the clipboard; it also goes into the open conversation's input,
    // as if pasted, so that Enter sends it.
    const QString id = currentConversationId();
    if (id.isEmpty()) return;  // no conversation open: the clipboard has it
    const QImage picture = QApplication::clipboard()->image();
    if (picture.isNull()) {
        Logger::instance().write(QStringLiteral("screenshot: the clipboard lost the capture"));
        return;
    }
    auto* input = qobject_cast<ConversationContentInputView*>(page(id)->input());
    if (!input) return;
    if (MainViewDelegate* shell = MainViewDelegate::instance())
        shell->showPage(MainViewDelegate::ChatPage);
    QMimeData pasted;
    pasted.setImageData(picture);
    input->edit()->insertFromMimeData(&pasted);
    input->edit()->setFocus();
}

void ConversationView::ignoreAllMsgsSlot() {
    for (int row = 0; row < talkList_->count(); ++row) {
        ChatListItemWidget* widget = rowWidget(row);
        if (widget->unreadCount() == 0) continue;
        widget->setUnreadCount(0);
        emit conversationSeen(talkList_->item(row)->data(Qt::UserRole).toString());
    }
    reportTotal();
}
