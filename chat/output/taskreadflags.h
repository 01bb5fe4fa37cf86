#pragma once

#include <QHash>
#include <QObject>
#include <QSet>
#include <QStringList>
#include <QTimer>

#include <functional>

namespace qx_output {

// The user's own read flags of tasks, as the back end keeps them, for the "已读" / "未读"
// of task cards. Flags are asked for when a card first needs one, many at a time; opening
// a task marks it read here as it does on the back end.
class TaskReadFlags : public QObject {
    Q_OBJECT
public:
    // Asks the back end for these tasks' flags; the answer comes back through setFlags().
    using Fetch = std::function<void(const QStringList& taskIds)>;
    static constexpr int kBatch = 100;

    explicit TaskReadFlags(QObject* parent = nullptr);

    void setFetcher(Fetch fetch) { fetch_ = std::move(fetch); }
    // 1 read, 0 unread, -1 not known yet (then it is asked for, once).
    int flag(const QString& taskId);
    void setFlags(const QHash<QString, bool>& flags);
    void markRead(const QString& taskId);
    // The flag may have changed on the back end (a new event on the task): ask again.
    void forget(const QString& taskId);
    // The flags of a read-flag reply's results: [{"taskId", "readFlag": "0"/"1"}].
    static QHash<QString, bool> parse(const QJsonValue& results);

signals:
    void changed(const QString& taskId, bool read);

private:
    void sendBatch();

    Fetch fetch_;
    QHash<QString, bool> flags_;
    // Opened here: an answer asked for before the page marked it read must not undo it.
    QSet<QString> readHere_;
    QSet<QString> asked_;
    QStringList waiting_;
    QTimer batch_;
};

}  // namespace qx_output
