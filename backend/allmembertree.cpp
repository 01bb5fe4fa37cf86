#include "allmembertree.h"

#include "avatarpixmapcache.h"
#include "orgtreedelegate.h"
#include "orgtreemodel.h"

AllMemberTree::AllMemberTree(QWidget* parent, DirectoryStore* store, AvatarPixmapCache* avatars)
    : QTreeView(parent),
      model_(new OrgTreeModel(store, this)),
      avatars_(avatars ? avatars : new AvatarPixmapCache(store, nullptr, this)) {
    setObjectName(QStringLiteral("allMemberTree"));
    setHeaderHidden(true);
    // One row height for all: the view then never measures rows it does not show.
    setUniformRowHeights(true);
    setMouseTracking(true);
    setExpandsOnDoubleClick(false);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    setItemDelegate(new OrgTreeDelegate(avatars_, this));
    setModel(model_);
    setStyleSheet(QStringLiteral("QTreeView{border:none;background-color:#fafafa;}"));
    connect(this, &QTreeView::clicked, this, &AllMemberTree::onClicked);
    connect(this, &QTreeView::doubleClicked, this, [this](const QModelIndex& index) {
        if (model_->colleagueAt(index))
            emit colleagueActivated(index.data(OrgTreeModel::IdRole).toString());
    });
    connect(avatars_, &AvatarPixmapCache::avatarChanged, model_, &OrgTreeModel::refreshColleague);
}

void AllMemberTree::onClicked(const QModelIndex& index) {
    if (model_->colleagueAt(index)) {
        emit colleagueClicked(index.data(OrgTreeModel::IdRole).toString());
        return;
    }
    setExpanded(index, !isExpanded(index));
}

bool AllMemberTree::revealColleague(const QString& userId) {
    const QModelIndex at = model_->indexOfColleague(userId);
    if (!at.isValid()) return false;
    for (QModelIndex p = at.parent(); p.isValid(); p = p.parent()) expand(p);
    setCurrentIndex(at);
    scrollTo(at, QAbstractItemView::PositionAtCenter);
    return true;
}
