#include "orgtreemodel.h"

#include "colleague.h"
#include "plaintext.h"

namespace {
const QString kDeptKind = QStringLiteral("dept");
}

OrgTreeModel::OrgTreeModel(DirectoryStore* store, QObject* parent)
    : QAbstractItemModel(parent), store_(store ? store : &DirectoryStore::instance()) {
    others_.orgName = othersName();
    rebuild();
}

void OrgTreeModel::rebuild() {
    revision_ = store_->revision();
    others_.members = store_->unplaced();
    rows_.clear();
    rows_.reserve(store_->departmentCount() + 1);
    const QVector<Department*>& top = store_->topLevel();
    for (int i = 0; i < top.size(); ++i) rows_.insert(top[i], i);
    rows_.insert(&others_, top.size());
    // Every department below the top, found through the tree itself (a department the
    // directory lost in a cycle is already at the top).
    QVector<const Department*> walk(top.begin(), top.end());
    while (!walk.isEmpty()) {
        const Department* d = walk.takeLast();
        for (int i = 0; i < d->children.size(); ++i) {
            rows_.insert(d->children[i], i);
            walk.append(d->children[i]);
        }
    }
}

void OrgTreeModel::reload() {
    beginResetModel();
    rebuild();
    endResetModel();
}

int OrgTreeModel::topCount() const {
    return store_->topLevel().size() + (others_.members.isEmpty() ? 0 : 1);
}

const OrgTreeModel::Department* OrgTreeModel::topAt(int row) const {
    const QVector<Department*>& top = store_->topLevel();
    if (row >= 0 && row < top.size()) return top[row];
    if (row == top.size() && !others_.members.isEmpty()) return &others_;
    return nullptr;
}

int OrgTreeModel::rowOfDepartment(const Department* d) const { return rows_.value(d, -1); }

QModelIndex OrgTreeModel::index(int row, int column, const QModelIndex& parent) const {
    if (column != 0 || row < 0) return QModelIndex();
    if (!parent.isValid())
        return row < topCount() ? createIndex(row, 0, quintptr(0)) : QModelIndex();
    const Department* d = departmentAt(parent);
    if (!d || row >= d->children.size() + d->members.size()) return QModelIndex();
    const quintptr owner = reinterpret_cast<quintptr>(d);
    return createIndex(row, 0, row < d->children.size() ? owner : owner | kColleagueTag);
}

QModelIndex OrgTreeModel::parent(const QModelIndex& child) const {
    if (!child.isValid()) return QModelIndex();
    const auto* owner = reinterpret_cast<const Department*>(child.internalId() & ~kColleagueTag);
    if (!owner) return QModelIndex();
    return indexOfDepartment(owner);
}

QModelIndex OrgTreeModel::indexOfDepartment(const Department* d) const {
    const int row = rowOfDepartment(d);
    if (row < 0) return QModelIndex();
    return createIndex(row, 0, reinterpret_cast<quintptr>(d == &others_ ? nullptr : d->parent));
}

int OrgTreeModel::rowCount(const QModelIndex& parent) const {
    if (!parent.isValid()) return topCount();
    if (parent.column() != 0) return 0;
    const Department* d = departmentAt(parent);
    return d ? d->children.size() + d->members.size() : 0;
}

int OrgTreeModel::columnCount(const QModelIndex&) const { return 1; }

const DirectoryStore::Department* OrgTreeModel::departmentAt(const QModelIndex& index) const {
    if (!index.isValid() || (index.internalId() & kColleagueTag)) return nullptr;
    const auto* owner = reinterpret_cast<const Department*>(index.internalId());
    if (!owner) return topAt(index.row());
    return index.row() < owner->children.size() ? owner->children[index.row()] : nullptr;
}

const DirectoryStore::Colleague* OrgTreeModel::colleagueAt(const QModelIndex& index) const {
    if (!index.isValid() || !(index.internalId() & kColleagueTag)) return nullptr;
    const auto* owner = reinterpret_cast<const Department*>(index.internalId() & ~kColleagueTag);
    const int at = index.row() - owner->children.size();
    return at >= 0 && at < owner->members.size() ? owner->members[at] : nullptr;
}

bool OrgTreeModel::isOnline(const QString& userId) const {
    // The user is on line while using the client, whatever the server last said.
    return userId == store_->selfId() || store_->isOnline(userId);
}

QVariant OrgTreeModel::data(const QModelIndex& index, int role) const {
    if (const DirectoryStore::Colleague* c = colleagueAt(index)) {
        switch (role) {
            case Qt::DisplayRole:
                return c->displayName();
            case Qt::ToolTipRole:
                return plaintext::toolTip(c->deptName().isEmpty()
                                              ? c->displayName()
                                              : c->displayName() + QStringLiteral(" · ") +
                                                    c->deptName());
            case IdRole:
                return c->id();
            case KindRole:
                return QString::fromLatin1(Colleague::kKind);
            case OnlineRole:
                return isOnline(c->id());
            case AvatarUrlRole:
                return c->userIcon();
            default:
                return QVariant();
        }
    }
    if (const Department* d = departmentAt(index)) {
        switch (role) {
            case Qt::DisplayRole:
                return d->orgName;
            case Qt::ToolTipRole:
                return plaintext::toolTip(d->orgName);
            case IdRole:
                return d->id;
            case KindRole:
                return kDeptKind;
            default:
                return QVariant();
        }
    }
    return QVariant();
}

QModelIndex OrgTreeModel::indexOfColleague(const QString& userId) const {
    const DirectoryStore::Colleague* c = store_->colleague(userId);
    if (!c) return QModelIndex();
    const Department* d = store_->department(c->section());
    if (!d) d = &others_;
    const int at = d->members.indexOf(const_cast<DirectoryStore::Colleague*>(c));
    if (at < 0) return QModelIndex();
    return createIndex(d->children.size() + at, 0, reinterpret_cast<quintptr>(d) | kColleagueTag);
}

void OrgTreeModel::setOnline(const QString& userId, bool) { refreshColleague(userId); }

void OrgTreeModel::refreshColleague(const QString& userId) {
    const QModelIndex at = indexOfColleague(userId);
    if (at.isValid()) emit dataChanged(at, at, {Qt::DecorationRole, OnlineRole});
}
