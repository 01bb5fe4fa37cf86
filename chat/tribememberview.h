#pragma once

#include <QVector>
#include <QWidget>

#include "tribemember.h"

class AvatarPixmapCache;
class DirectoryStore;
class MemberIconAndNameWidget;
class QLabel;
class QScrollBar;
class QStackedWidget;

// The member list beside an open tribe: "群成员" with the count, then the members. Rows
// are a small pool of MemberIconAndNameWidget, as many as fit on screen, handed new
// members as the list scrolls: a tribe of thousands lists at once and costs a few widgets.
class TribeMemberView : public QWidget {
    Q_OBJECT
public:
    static constexpr int kRowHeight = 36;
    static constexpr int kAvatar = 28;
    // The two kinds of tribe. A project tribe ("advanced") has an owner who can dissolve
    // it, so the owner heads the list and carries the mark; an ad-hoc discussion group
    // ("group") has no such role and lists its members as they come.
    static const char* const kAdvanced;
    static const char* const kGroup;

    explicit TribeMemberView(QWidget* parent = nullptr, DirectoryStore* store = nullptr,
                             AvatarPixmapCache* avatars = nullptr);

    void setTribe(const QString& tribeId, const TribeMembers& members, const QString& ownerId,
                  const QString& typeWord);
    // No tribe chosen: the hint shows instead of a list.
    void clearTribe();
    // The tribe is chosen and its members are on their way.
    void setLoading(const QString& tribeId);

    const QString& tribeId() const { return tribeId_; }
    const TribeMembers& members() const { return members_; }
    int memberCount() const { return members_.size(); }
    // Row widgets now in use, top to bottom (tests and benchmarks look at them).
    QVector<MemberIconAndNameWidget*> visibleRows() const;
    int poolSize() const { return pool_.size(); }
    QScrollBar* scrollBar() const { return bar_; }
    QLabel* heading() const { return heading_; }
    QLabel* hint() const { return hint_; }

signals:
    void showPersonalInfoCard(const QString& userId);
    void hidePersonalInfoCard(const QString& userId);
    void StartTalkWith(const QString& userId);

public slots:
    void UpdateUserIcon(const QString& userId);
    void setOnline(const QString& userId, bool online);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void layoutRows();
    void fillRow(MemberIconAndNameWidget* row, int index);
    bool isOnline(const QString& userId) const;

    DirectoryStore* store_;
    AvatarPixmapCache* avatars_;
    QString tribeId_;
    QString ownerId_;
    bool ownerMarked_ = false;
    TribeMembers members_;
    QLabel* heading_;
    QLabel* hint_;
    QStackedWidget* stack_;
    QWidget* viewport_;
    QScrollBar* bar_;
    QVector<MemberIconAndNameWidget*> pool_;
    QVector<int> shown_;  // the member index each pool row shows now, -1 for none
};
