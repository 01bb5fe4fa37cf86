#pragma once

#include <QAbstractItemModel>
#include <QHash>

#include "directorystore.h"

// The organisation as a tree model straight over the directory's own nodes: departments
// in the directory's parent/child order, each with its sub-departments first and then its
// colleagues. Nothing is copied per colleague, so a company of 100,000 costs the model a
// table of department rows and no more. Colleagues whose department the directory does
// not hold are gathered under one last top-level branch, so nobody is unreachable.
class OrgTreeModel : public QAbstractItemModel {
    Q_OBJECT
public:
    enum Role {
        IdRole = Qt::UserRole,
        KindRole,    // Colleague::kKind for colleagues, "dept" for departments
        OnlineRole,  // colleagues: on line now
        AvatarUrlRole,
    };
    static QString othersName() { return QStringLiteral("其他"); }

    explicit OrgTreeModel(DirectoryStore* store = nullptr, QObject* parent = nullptr);

    QModelIndex index(int row, int column,
                      const QModelIndex& parent = QModelIndex()) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;

    const DirectoryStore::Colleague* colleagueAt(const QModelIndex& index) const;
    const DirectoryStore::Department* departmentAt(const QModelIndex& index) const;
    // Where a colleague sits in the tree (invalid when the directory does not know them).
    QModelIndex indexOfColleague(const QString& userId) const;
    bool isOnline(const QString& userId) const;
    // The directory changed since the model last read its tree.
    bool isStale() const { return revision_ != store_->revision(); }

public slots:
    // The directory was loaded again.
    void reload();
    // A colleague came on line or went off: their row repaints.
    void setOnline(const QString& userId, bool online);
    void refreshColleague(const QString& userId);

private:
    using Department = DirectoryStore::Department;
    static constexpr quintptr kColleagueTag = 1;

    const Department* topAt(int row) const;
    int topCount() const;
    int rowOfDepartment(const Department* d) const;
    QModelIndex indexOfDepartment(const Department* d) const;
    void rebuild();

    DirectoryStore* store_;
    Department others_;  // holds the unplaced colleagues; its members mirror the store's
    QHash<const Department*, int> rows_;
    quint64 revision_ = 0;
};
