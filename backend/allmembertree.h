#pragma once

#include <QTreeView>

class AvatarPixmapCache;
class DirectoryStore;
class OrgTreeModel;

// The department and colleague tree of the organisation page: a view over OrgTreeModel
// with rows of one height, so that scrolling a company of any size lays out only what is
// on screen. A click on a colleague shows their card, a double click opens the chat.
class AllMemberTree : public QTreeView {
    Q_OBJECT
public:
    explicit AllMemberTree(QWidget* parent = nullptr, DirectoryStore* store = nullptr,
                           AvatarPixmapCache* avatars = nullptr);

    OrgTreeModel* orgModel() const { return model_; }
    AvatarPixmapCache* avatars() const { return avatars_; }
    // Shows a colleague: opens the departments above them and selects their row.
    bool revealColleague(const QString& userId);

signals:
    void colleagueClicked(const QString& userId);
    void colleagueActivated(const QString& userId);

private:
    void onClicked(const QModelIndex& index);

    OrgTreeModel* model_;
    AvatarPixmapCache* avatars_;
};
