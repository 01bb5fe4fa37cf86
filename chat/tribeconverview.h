#pragma once

#include <QTimer>
#include <QWidget>

#include <functional>

#include "tribemember.h"

class AvatarPixmapCache;
class ColleageNameSearchEdit;
class DirectoryStore;
class PersonalInforCard;
class QLabel;
class QListWidget;
class QListWidgetItem;
class QMovie;
class QSignalMapper;
class QStackedWidget;
class TribeMemberView;
class TribeTitleView;

// The tribe page: the user's tribes (one per project) with a search box and a talk button
// per row on the left; the chosen tribe's head and member list on the right, with a
// colleague's card while the pointer rests on a member. It shows and forwards: opening a
// conversation, the task page, quitting and sharing are the signals' receivers' to do.
class TribeConverView : public QWidget {
    Q_OBJECT
public:
    // Fetches a tribe's members and calls `done` with them (on the GUI thread), or with
    // ok false and a reason.
    using MemberFetcher = std::function<void(
        const QString& tribeId,
        std::function<void(bool ok, const TribeMembers& members, const QString& reason)> done)>;
    static constexpr int kCardHideDelayMs = 300;

    explicit TribeConverView(QWidget* parent = nullptr, DirectoryStore* store = nullptr,
                             AvatarPixmapCache* avatars = nullptr);

    void setMemberFetcher(MemberFetcher fetch) { fetch_ = std::move(fetch); }
    // Reads the back end's member reply ("userList" of colleague records).
    static bool parseMembers(const QByteArray& body, TribeMembers* out, QString* error);
    // The task page of a project, from the address table.
    static QString taskPageUrl(const QString& tribeId);

    QListWidget* tribeList() const { return list_; }
    ColleageNameSearchEdit* searchEdit() const { return search_; }
    TribeTitleView* titleView() const { return title_; }
    TribeMemberView* memberView() const { return members_; }
    PersonalInforCard* card() const { return card_; }
    QLabel* loadingLabel() const { return loading_; }
    QLabel* emptyLabel() const { return emptyList_; }
    QStackedWidget* detail() const { return detail_; }
    QString currentTribeId() const;
    int rowOf(const QString& tribeId) const;

signals:
    // Open the conversation of an id (a tribe, or a colleague from the member list).
    void chatButtonClicked(const QString& id);
    void openTaskPage(const QString& url);
    void quitTribe(const QString& tribeId);
    void shareColleague(const QString& userId);

public slots:
    // The user's tribes are being fetched (true) or have arrived (false: list them).
    void setLoadingTribes(bool loading);
    void reloadTribes();
    void initialTribe(int index);
    void showConversationViewsOfId(QListWidgetItem* item);
    void turnToConversationView(const QString& id);
    void showResultOfsearch(const QString& tribeId);
    void showInfoCardSlot(const QString& userId);
    void hideInfoCardSlot(const QString& userId);
    void showShareOfPersonal(const QString& userId);
    void showSearchList(QListWidget* list);
    void setCurrentList();
    void cancelSearch();
    void UpdateUserIcon(const QString& userId);
    void setOnline(const QString& userId, bool online);
    // A member joined or left a tribe: its list is read again when it is the one shown.
    void tribeMembersChanged(const QString& tribeId);
    // Dissolving or leaving a tribe did not happen: the user is told why, over the window.
    void showActionFailure(const QString& tribeId, const QString& text);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void addRow(const QString& tribeId, const QString& name);
    void loadMembers(const QString& tribeId);

    DirectoryStore* store_;
    AvatarPixmapCache* avatars_;
    MemberFetcher fetch_;
    ColleageNameSearchEdit* search_;
    QStackedWidget* lists_;
    QListWidget* list_;
    QWidget* searchHost_;
    QLabel* loading_;
    QMovie* movie_;
    QLabel* emptyList_;
    QSignalMapper* mapper_;
    QStackedWidget* detail_;
    TribeTitleView* title_;
    TribeMemberView* members_;
    PersonalInforCard* card_;
    QTimer hideCard_;
    quint64 fetchTicket_ = 0;
};
