#pragma once

#include "taskcardoutbox.h"
#include "taskstore.h"

#include <QByteArray>
#include <QJsonObject>

#include <functional>

namespace httplib {
struct Request;
struct Response;
}  // namespace httplib

class Database;
class Directory;
class RoomKeeper;

// The task address (/work/task.htm): the task page and the creation form (GET), and the
// changes the pages post: create, assign, reply, state, cancel. Changes need a member of
// the task's project and the form token of the caller's session, so another site cannot
// make a signed-in colleague's browser post one. Every change becomes a task card in the
// project's room, posted by the room keeper's XMPP session.
class TaskEditor {
public:
    // Card events, as the client's task cards number them.
    enum Event {
        Created = 0,
        Assigned = 1,
        Replied = 2,
        CancelledEvent = 3,
        StateWaiting = 4,  // + the new state
    };

    // `rooms` may be null: then no cards are posted.
    TaskEditor(Database* db, Directory* directory, RoomKeeper* rooms);

    // Runs when a change adds an account to the directory (the company's task assistant):
    // cached organisation replies are made again and the account gets its IM account.
    void setAccountMade(std::function<void(qint64 userId)> made) { accountMade_ = made; }

    // `caller` is the signed-in user (never 0 here), `session` its session id.
    void handle(const httplib::Request& req, httplib::Response& res, qint64 caller,
                const QByteArray& session);

    // The work platform's home page for the signed-in `caller`.
    QByteArray home(qint64 caller) const;

    // The token the forms of `session`'s pages carry.
    QByteArray formToken(const QByteArray& session) const;

    // The card of one event, as posted into the project's room.
    static QJsonObject card(const QJsonObject& task, int event, qint64 actor,
                            const QString& actorName, const QString& replyText = QString());

private:
    void view(const httplib::Request& req, httplib::Response& res, qint64 caller,
              const QByteArray& session);
    void creationForm(const httplib::Request& req, httplib::Response& res, qint64 caller,
                      const QByteArray& session);
    void create(const httplib::Request& req, httplib::Response& res, qint64 caller);
    void change(const httplib::Request& req, httplib::Response& res, qint64 caller,
                const QString& verb);
    // Queues the card of an event on `taskId` and wakes the room keeper.
    void post(qint64 taskId, int event, qint64 actor, const QString& replyText = QString());
    bool executorValid(qint64 projectId, const QString& text, qint64* executor) const;

    Directory* directory_;
    TaskStore tasks_;
    TaskCardOutbox cards_;
    RoomKeeper* rooms_;
    std::function<void(qint64)> accountMade_;
    QByteArray formKey_;  // random per start; sessions do not outlive it either
};
