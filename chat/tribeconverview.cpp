#include "tribeconverview.h"

#include <QCursor>
#include <QEvent>
#include <QHBoxLayout>
#include <QJsonArray>
#include <QLabel>
#include <QListWidget>
#include <QMovie>
#include <QPushButton>
#include <QSignalMapper>
#include <QStackedWidget>
#include <QVBoxLayout>

#include "avatarpixmapcache.h"
#include "backendurls.h"
#include "colleagenamesearchedit.h"
#include "colleague.h"
#include "configstore.h"
#include "directorystore.h"
#include "envelope.h"
#include "logger.h"
#include "personalinforcard.h"
#include "plaintext.h"
#include "prompts.h"
#include "tribememberview.h"
#include "tribetitleview.h"

namespace {
constexpr int kListWidth = 260;
// A reply larger than any company's project is refused rather than listed.
constexpr int kMaxMembers = 100000;
}  // namespace

TribeConverView::TribeConverView(QWidget* parent, DirectoryStore* store, AvatarPixmapCache* avatars)
    : QWidget(parent),
      store_(store ? store : &DirectoryStore::instance()),
      avatars_(avatars ? avatars : new AvatarPixmapCache(store_, nullptr, this)) {
    setObjectName(QStringLiteral("tribeConverView"));

    auto* left = new QWidget(this);
    left->setFixedWidth(kListWidth);
    auto* leftLayout = new QVBoxLayout(left);
    leftLayout->setContentsMargins(0, 0, 0, 0);
    leftLayout->setSpacing(0);
    search_ = new ColleageNameSearchEdit(left, store_);
    search_->setTribeCompleter();
    search_->setPlaceholderText(QStringLiteral("搜索群"));
    leftLayout->addWidget(search_);
    lists_ = new QStackedWidget(left);
    list_ = new QListWidget(lists_);
    list_->setObjectName(QStringLiteral("tribeList"));
    list_->setStyleSheet(QStringLiteral("QListWidget{border:none;background-color:#fafafa;}"));
    searchHost_ = new QWidget(lists_);
    auto* hostLayout = new QVBoxLayout(searchHost_);
    hostLayout->setContentsMargins(0, 0, 0, 0);
    loading_ = new QLabel(lists_);
    loading_->setAlignment(Qt::AlignCenter);
    movie_ = new QMovie(QStringLiteral(":/resource/Chat/tribe_loading.gif"), QByteArray(), this);
    loading_->setMovie(movie_);
    emptyList_ = new QLabel(QStringLiteral("您还没有加入任何群"), lists_);
    emptyList_->setAlignment(Qt::AlignCenter);
    emptyList_->setStyleSheet(QStringLiteral("QLabel{color:#9aa5b1;}"));
    lists_->addWidget(list_);
    lists_->addWidget(searchHost_);
    lists_->addWidget(loading_);
    lists_->addWidget(emptyList_);
    leftLayout->addWidget(lists_, 1);

    detail_ = new QStackedWidget(this);
    auto* empty = new QLabel(detail_);
    empty->setObjectName(QStringLiteral("tribeEmpty"));
    empty->setPixmap(QPixmap(QStringLiteral(":/resource/Chat/defaultchat.png")));
    empty->setAlignment(Qt::AlignCenter);
    empty->setStyleSheet(QStringLiteral("QLabel{background-color:#fafafa;}"));
    auto* open = new QWidget(detail_);
    auto* openLayout = new QVBoxLayout(open);
    openLayout->setContentsMargins(0, 0, 0, 0);
    title_ = new TribeTitleView(open);
    members_ = new TribeMemberView(open, store_, avatars_);
    openLayout->addWidget(title_);
    openLayout->addWidget(members_, 1);
    detail_->addWidget(empty);
    detail_->addWidget(open);

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(left);
    layout->addWidget(detail_, 1);

    // The card floats over the page while the pointer rests on a member (or on the card).
    card_ = new PersonalInforCard(this, store_, avatars_);
    card_->setFixedSize(320, 240);
    card_->hide();
    card_->installEventFilter(this);
    hideCard_.setSingleShot(true);
    hideCard_.setInterval(kCardHideDelayMs);
    connect(&hideCard_, &QTimer::timeout, card_, &QWidget::hide);

    mapper_ = new QSignalMapper(this);
    connect(mapper_, &QSignalMapper::mappedString, this, &TribeConverView::chatButtonClicked);

    connect(list_, &QListWidget::currentRowChanged, this, &TribeConverView::initialTribe);
    connect(list_, &QListWidget::itemDoubleClicked, this,
            &TribeConverView::showConversationViewsOfId);
    connect(search_, &ColleageNameSearchEdit::searchListSignal, this,
            &TribeConverView::showSearchList);
    connect(search_, &ColleageNameSearchEdit::selectedSearchResultItem, this,
            &TribeConverView::showResultOfsearch);
    connect(search_, &ColleageNameSearchEdit::erasedAllText, this, [this] { setCurrentList(); });
    connect(title_, &TribeTitleView::talkingInChat, this, &TribeConverView::turnToConversationView);
    connect(title_, &TribeTitleView::taskPageRequested, this, [this](const QString& id) {
        const QString url = taskPageUrl(id);
        if (url.isEmpty()) {
            Logger::instance().write(QStringLiteral("task page of %1: no project address").arg(id));
            return;
        }
        emit openTaskPage(url);
    });
    connect(title_, &TribeTitleView::quitRequested, this, &TribeConverView::quitTribe);
    connect(members_, &TribeMemberView::showPersonalInfoCard, this,
            &TribeConverView::showInfoCardSlot);
    connect(members_, &TribeMemberView::hidePersonalInfoCard, this,
            &TribeConverView::hideInfoCardSlot);
    connect(members_, &TribeMemberView::StartTalkWith, this,
            &TribeConverView::turnToConversationView);
    connect(card_, &PersonalInforCard::inforCardChatSignal, this, [this](const QString& userId) {
        card_->hide();
        turnToConversationView(userId);
    });
    connect(card_, &PersonalInforCard::inforCardShareSignal, this,
            &TribeConverView::showShareOfPersonal);
    setLoadingTribes(true);
}

QString TribeConverView::taskPageUrl(const QString& tribeId) {
    return BackendUrls::projectTasks(ConfigStore::instance().url(UrlTable::UrlGroupList), tribeId);
}

bool TribeConverView::parseMembers(const QByteArray& body, TribeMembers* out, QString* error) {
    const Envelope reply = Envelope::parse(body);
    if (!reply.isSuccess()) {
        if (error)
            *error = reply.errorMsg().isEmpty() ? QStringLiteral("the reply is not a success")
                                                : reply.errorMsg();
        return false;
    }
    const QJsonValue list = reply.member(QStringLiteral("userList"));
    if (!list.isArray()) {
        if (error) *error = QStringLiteral("the reply holds no member list");
        return false;
    }
    const QJsonArray members = list.toArray();
    if (members.size() > kMaxMembers) {
        if (error)
            *error = QStringLiteral("%1 members is more than a tribe holds").arg(members.size());
        return false;
    }
    out->clear();
    out->reserve(members.size());
    for (const QJsonValue& v : members) {
        const Colleague c = Colleague::fromJson(v.toObject());
        if (c.view(Colleague::Id).isEmpty()) continue;  // a record without an id names nobody
        out->append({c.id(), c.displayName()});
    }
    return true;
}

QString TribeConverView::currentTribeId() const { return title_->tribeId(); }

int TribeConverView::rowOf(const QString& tribeId) const {
    for (int i = 0; i < list_->count(); ++i)
        if (list_->item(i)->data(Qt::UserRole).toString() == tribeId) return i;
    return -1;
}

void TribeConverView::setLoadingTribes(bool loading) {
    if (loading) {
        lists_->setCurrentWidget(loading_);
        movie_->start();
        return;
    }
    reloadTribes();
}

void TribeConverView::reloadTribes() {
    movie_->stop();
    const QString current = currentTribeId();
    {
        const QSignalBlocker quiet(list_);
        list_->clear();
        for (const DirectoryStore::Tribe* t : store_->tribes())
            if (!t->left) addRow(t->id, t->name);
    }
    if (lists_->currentWidget() != searchHost_)
        lists_->setCurrentWidget(list_->count() > 0 ? static_cast<QWidget*>(list_) : emptyList_);
    const int row = rowOf(current);
    if (row >= 0) {
        const QSignalBlocker quiet(list_);
        list_->setCurrentRow(row);
        const DirectoryStore::Tribe* t = store_->tribe(current);
        title_->setTribe(current, t->name, t->left, store_->ownsTribe(*t));
    } else if (!current.isEmpty()) {
        // The tribe went away (left or dissolved): nothing stays open on the right.
        title_->setTribe(QString(), QString(), false);
        members_->clearTribe();
        detail_->setCurrentIndex(0);
    }
}

void TribeConverView::addRow(const QString& tribeId, const QString& name) {
    auto* item = new QListWidgetItem(list_);
    item->setData(Qt::UserRole, tribeId);
    item->setData(Qt::ToolTipRole, plaintext::toolTip(name));
    auto* row = new QWidget(list_);
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(6, 2, 6, 2);
    auto* icon = new QLabel(row);
    icon->setPixmap(QPixmap(ConfigStore::instance().filePath(ConfigStore::TribeIcon))
                        .scaled(28, 28, Qt::KeepAspectRatio, Qt::SmoothTransformation));
    icon->setFixedSize(28, 28);
    auto* label = plaintext::label(name, row);
    auto* talk = new QPushButton(QStringLiteral("发消息"), row);
    talk->setObjectName(QStringLiteral("rowTalk"));
    talk->setCursor(Qt::PointingHandCursor);
    layout->addWidget(icon);
    layout->addWidget(label, 1);
    layout->addWidget(talk);
    connect(talk, &QPushButton::clicked, mapper_, qOverload<>(&QSignalMapper::map));
    mapper_->setMapping(talk, tribeId);
    item->setSizeHint(QSize(kListWidth, 40));
    list_->setItemWidget(item, row);
}

void TribeConverView::initialTribe(int index) {
    QListWidgetItem* item = list_->item(index);
    if (!item) return;
    const QString id = item->data(Qt::UserRole).toString();
    const DirectoryStore::Tribe* t = store_->tribe(id);
    if (!t) return;
    title_->setTribe(id, t->name, t->left, store_->ownsTribe(*t));
    detail_->setCurrentIndex(1);
    loadMembers(id);
}

void TribeConverView::loadMembers(const QString& tribeId) {
    members_->setLoading(tribeId);
    if (!fetch_) return;
    const quint64 ticket = ++fetchTicket_;
    fetch_(tribeId, [this, ticket, tribeId](bool ok, const TribeMembers& members,
                                            const QString& reason) {
        // Only the answer for the tribe still shown counts; the user may have moved on.
        if (ticket != fetchTicket_ || currentTribeId() != tribeId) return;
        if (!ok) {
            Logger::instance().write(
                QStringLiteral("members of tribe %1 not read: %2").arg(tribeId, reason));
            members_->setTribe(tribeId, {}, QString(), QLatin1String(TribeMemberView::kAdvanced));
            members_->hint()->setText(QStringLiteral("群成员读取失败"));
            return;
        }
        const DirectoryStore::Tribe* t = store_->tribe(tribeId);
        // Every tribe here is a project's, with an owner.
        members_->setTribe(tribeId, members, t ? t->ownerId : QString(),
                           QLatin1String(TribeMemberView::kAdvanced));
    });
}

void TribeConverView::tribeMembersChanged(const QString& tribeId) {
    if (tribeId == currentTribeId()) loadMembers(tribeId);
}

void TribeConverView::showActionFailure(const QString& tribeId, const QString& text) {
    Q_UNUSED(tribeId);  // the text names the action; the page stays as it was
    qx_output::Prompts::error(this, text);
}

void TribeConverView::showConversationViewsOfId(QListWidgetItem* item) {
    if (item) turnToConversationView(item->data(Qt::UserRole).toString());
}

void TribeConverView::turnToConversationView(const QString& id) {
    if (id.isEmpty() || id == store_->selfId()) return;
    emit chatButtonClicked(id);
}

void TribeConverView::showResultOfsearch(const QString& tribeId) {
    cancelSearch();
    const int row = rowOf(tribeId);
    if (row >= 0) list_->setCurrentRow(row);
}

void TribeConverView::showInfoCardSlot(const QString& userId) {
    hideCard_.stop();
    if (!card_->setUser(userId)) return;
    QPoint at = mapFromGlobal(QCursor::pos()) - QPoint(card_->width() + 12, card_->height() / 2);
    at.setX(qBound(0, at.x(), qMax(0, width() - card_->width())));
    at.setY(qBound(0, at.y(), qMax(0, height() - card_->height())));
    card_->move(at);
    card_->show();
    card_->raise();
}

void TribeConverView::hideInfoCardSlot(const QString& userId) {
    if (userId == card_->userId()) hideCard_.start();
}

void TribeConverView::showShareOfPersonal(const QString& userId) {
    card_->hide();
    emit shareColleague(userId);
}

void TribeConverView::showSearchList(QListWidget* list) {
    if (list->parentWidget() != searchHost_) {
        list->setParent(searchHost_);
        searchHost_->layout()->addWidget(list);
    }
    list->show();
    lists_->setCurrentWidget(searchHost_);
}

void TribeConverView::setCurrentList() {
    lists_->setCurrentWidget(list_->count() > 0 ? static_cast<QWidget*>(list_) : emptyList_);
}

void TribeConverView::cancelSearch() {
    {
        const QSignalBlocker quiet(search_);
        search_->clear();
        search_->resultList()->clear();
    }
    setCurrentList();
}

void TribeConverView::UpdateUserIcon(const QString& userId) {
    members_->UpdateUserIcon(userId);
    card_->UpdateUserIcon(userId);
}

void TribeConverView::setOnline(const QString& userId, bool online) {
    members_->setOnline(userId, online);
    card_->setOnline(userId, online);
}

bool TribeConverView::eventFilter(QObject* watched, QEvent* event) {
    if (watched == card_) {
        if (event->type() == QEvent::Enter) hideCard_.stop();
        if (event->type() == QEvent::Leave) hideCard_.start();
    }
    return QWidget::eventFilter(watched, event);
}
