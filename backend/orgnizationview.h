#pragma once

#include <QWidget>

class AllMemberTree;
class AvatarPixmapCache;
class ColleageNameSearchEdit;
class DirectoryStore;
class PersonalInforCard;
class QListWidget;
class QModelIndex;
class QStackedWidget;

// The organisation page: the search box over the department tree on the left, the card
// of the chosen colleague on the right. It shows and forwards; the chat and the share
// flow belong to the conversation views (chatButtonClicked, shareColleague).
class OrgnizationView : public QWidget {
    Q_OBJECT
public:
    explicit OrgnizationView(QWidget* parent = nullptr, DirectoryStore* store = nullptr,
                             AvatarPixmapCache* avatars = nullptr);

    AllMemberTree* tree() const { return tree_; }
    ColleageNameSearchEdit* searchEdit() const { return search_; }
    PersonalInforCard* card() const { return card_; }
    // True while the search results stand in place of the tree.
    bool isSearching() const;

signals:
    void chatButtonClicked(const QString& userId);
    void shareColleague(const QString& userId);

public slots:
    void showInfoOfUser(const QModelIndex& index);
    void showViewOfUser(const QString& userId);
    void turnToConversationView(const QString& userId);
    void showResultOfsearch(const QString& userId);
    void showSearchList(QListWidget* list);
    void setCurrentList();
    void cancelSearch();
    // The directory was loaded again.
    void reload();
    void setOnline(const QString& userId, bool online);
    void UpdateUserIcon(const QString& userId);

protected:
    void showEvent(QShowEvent* event) override;

private:
    DirectoryStore* store_;
    ColleageNameSearchEdit* search_;
    QStackedWidget* lists_;
    AllMemberTree* tree_;
    QWidget* searchHost_;
    QStackedWidget* right_;
    PersonalInforCard* card_;
};
