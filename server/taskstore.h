#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>

class Database;

// Tasks as the pages change them: creation, assignment, replies, state changes and
// cancelling. Reads of a single task and of a project's tasks stay in Directory.
class TaskStore {
public:
    // Task states as stored; 4 is a cancelled task, kept so that cards already posted still
    // open a page that says what became of it.
    enum Status { Waiting = 0, Working = 1, Paused = 2, Done = 3, Cancelled = 4 };

    static constexpr int kMaxTitleLength = 100;
    static constexpr int kMaxDescriptionLength = 2000;
    static constexpr int kMaxReplyLength = 2000;
    static constexpr int kMaxRepliesShown = 500;

    explicit TaskStore(Database* db);

    // The new task's id, 0 on failure. `deadline` is "yyyy-MM-dd" or empty (no deadline).
    qint64 create(qint64 projectId, qint64 creator, qint64 executor, const QString& title,
                  const QString& description, const QString& deadline);
    bool assign(qint64 taskId, qint64 executor);
    bool setStatus(qint64 taskId, int status);
    qint64 reply(qint64 taskId, qint64 userId, const QString& text);
    // Oldest first: {replyId, userId, userName, text, dateCreated}.
    QJsonArray replies(qint64 taskId) const;
    int status(qint64 taskId) const;  // -1 when unknown
    // The tasks `userId` is to do (not finished nor cancelled), at most `limit`, oldest first.
    QList<qint64> openTasksOf(qint64 userId, int limit) const;

private:
    Database* db_;
};
