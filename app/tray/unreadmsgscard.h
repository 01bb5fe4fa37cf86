#pragma once

#include <QList>
#include <QRect>
#include <QTimer>
#include <QWidget>

#include <functional>

class QVBoxLayout;

// The hover card of the tray icon: one row per conversation with unread messages (avatar,
// name, latest summary, count), newest first. A click on a row opens that conversation.
// While shown, it checks every 200 ms whether the pointer has left both the icon and the
// card, and hides when it has.
class UnreadMsgsCard : public QWidget {
    Q_OBJECT
public:
    struct Entry {
        QString id;
        QString name;
        QString summary;
        QString avatar;
        int count = 0;
    };

    explicit UnreadMsgsCard(QWidget* parent = nullptr);

    // Adds or refreshes a conversation and moves it to the top; a count of 0 removes it.
    // An empty summary keeps the one shown before.
    void setUnread(const Entry& entry);
    void remove(const QString& id);
    void clear();
    const QList<Entry>& entries() const { return entries_; }
    int conversationCount() const { return entries_.size(); }
    int totalCount() const;

    // Shows the card beside the icon's area (above it when there is room) and starts
    // watching the pointer.
    void showNear(const QRect& iconArea);
    QRect iconArea() const { return iconArea_; }
    bool isWatchingPointer() const { return leaveTimer_.isActive(); }
    // Where the pointer is; QCursor::pos by default. Tests move a pointer of their own.
    void setPointerSource(std::function<QPoint()> source) { pointer_ = std::move(source); }

signals:
    void unreadItemClicked(const QString& id, const QString name);
    void ignoreAllClicked();

public slots:
    void leaveTrayIconSlot();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    // Rows are widgets: they are built only for a card on screen (at most once per event-loop
    // turn), so a burst of messages to a hidden card costs a list update each, not a layout.
    void changed();
    void rebuild();

    QList<Entry> entries_;
    QVBoxLayout* rows_ = nullptr;
    QRect iconArea_;
    QTimer leaveTimer_;
    std::function<QPoint()> pointer_;
    bool stale_ = false;
    bool rebuildQueued_ = false;
};
