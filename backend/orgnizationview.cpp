#include "orgnizationview.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QStackedWidget>
#include <QVBoxLayout>

#include "allmembertree.h"
#include "avatarpixmapcache.h"
#include "colleagenamesearchedit.h"
#include "directorystore.h"
#include "orgtreemodel.h"
#include "personalinforcard.h"

namespace {
constexpr int kListWidth = 260;
}

OrgnizationView::OrgnizationView(QWidget* parent, DirectoryStore* store, AvatarPixmapCache* avatars)
    : QWidget(parent), store_(store ? store : &DirectoryStore::instance()) {
    setObjectName(QStringLiteral("orgnizationView"));
    if (!avatars) avatars = new AvatarPixmapCache(store_, nullptr, this);

    auto* left = new QWidget(this);
    left->setFixedWidth(kListWidth);
    auto* leftLayout = new QVBoxLayout(left);
    leftLayout->setContentsMargins(0, 0, 0, 0);
    leftLayout->setSpacing(0);
    search_ = new ColleageNameSearchEdit(left, store_);
    search_->setOrgCompleter();
    search_->setPlaceholderText(QStringLiteral("搜索同事"));
    leftLayout->addWidget(search_);
    lists_ = new QStackedWidget(left);
    tree_ = new AllMemberTree(lists_, store_, avatars);
    searchHost_ = new QWidget(lists_);
    auto* hostLayout = new QVBoxLayout(searchHost_);
    hostLayout->setContentsMargins(0, 0, 0, 0);
    lists_->addWidget(tree_);
    lists_->addWidget(searchHost_);
    leftLayout->addWidget(lists_, 1);

    right_ = new QStackedWidget(this);
    auto* empty = new QLabel(QStringLiteral("选择同事查看名片"), right_);
    empty->setAlignment(Qt::AlignCenter);
    empty->setStyleSheet(QStringLiteral("QLabel{color:#9aa5b1;background-color:#fafafa;}"));
    auto* cardHost = new QWidget(right_);
    auto* cardLayout = new QVBoxLayout(cardHost);
    card_ = new PersonalInforCard(cardHost, store_, avatars);
    card_->setFixedWidth(360);
    cardLayout->addStretch();
    cardLayout->addWidget(card_, 0, Qt::AlignHCenter);
    cardLayout->addStretch(2);
    right_->addWidget(empty);
    right_->addWidget(cardHost);

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(left);
    layout->addWidget(right_, 1);

    connect(tree_, &QTreeView::clicked, this, &OrgnizationView::showInfoOfUser);
    connect(tree_, &AllMemberTree::colleagueActivated, this,
            &OrgnizationView::turnToConversationView);
    connect(search_, &ColleageNameSearchEdit::searchListSignal, this,
            &OrgnizationView::showSearchList);
    connect(search_, &ColleageNameSearchEdit::selectedSearchResultItem, this,
            &OrgnizationView::showResultOfsearch);
    connect(search_, &ColleageNameSearchEdit::erasedAllText, this, [this] { setCurrentList(); });
    connect(card_, &PersonalInforCard::inforCardChatSignal, this,
            &OrgnizationView::turnToConversationView);
    connect(card_, &PersonalInforCard::inforCardShareSignal, this,
            &OrgnizationView::shareColleague);
}

bool OrgnizationView::isSearching() const { return lists_->currentWidget() == searchHost_; }

void OrgnizationView::showInfoOfUser(const QModelIndex& index) {
    if (!tree_->orgModel()->colleagueAt(index)) return;
    showViewOfUser(index.data(OrgTreeModel::IdRole).toString());
}

void OrgnizationView::showViewOfUser(const QString& userId) {
    right_->setCurrentIndex(card_->setUser(userId) ? 1 : 0);
}

void OrgnizationView::turnToConversationView(const QString& userId) {
    if (store_->colleague(userId) && userId != store_->selfId()) emit chatButtonClicked(userId);
}

void OrgnizationView::showResultOfsearch(const QString& userId) {
    cancelSearch();
    tree_->revealColleague(userId);
    showViewOfUser(userId);
}

void OrgnizationView::showSearchList(QListWidget* list) {
    if (list->parentWidget() != searchHost_) {
        list->setParent(searchHost_);
        searchHost_->layout()->addWidget(list);
    }
    list->show();
    lists_->setCurrentWidget(searchHost_);
}

void OrgnizationView::setCurrentList() { lists_->setCurrentWidget(tree_); }

void OrgnizationView::cancelSearch() {
    setCurrentList();
    const QSignalBlocker quiet(search_);
    search_->clear();
    search_->resultList()->clear();
}

void OrgnizationView::reload() {
    cancelSearch();
    tree_->orgModel()->reload();
    if (!card_->userId().isEmpty()) showViewOfUser(card_->userId());
}

// Colleagues the client learns of later (a message from someone outside the organisation
// reply) change the directory under the tree; it is read again when the page is shown.
void OrgnizationView::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    if (tree_->orgModel()->isStale()) reload();
}

void OrgnizationView::setOnline(const QString& userId, bool online) {
    tree_->orgModel()->setOnline(userId, online);
    card_->setOnline(userId, online);
}

void OrgnizationView::UpdateUserIcon(const QString& userId) {
    tree_->orgModel()->refreshColleague(userId);
    card_->UpdateUserIcon(userId);
}
