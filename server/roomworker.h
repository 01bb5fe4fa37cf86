#pragma once

#include "projectroom.h"
#include "roomkeeper.h"

#include <QHash>
#include <QObject>

#include <atomic>
#include <functional>
#include <memory>

class Directory;
class NoticeOutbox;
class TaskCardOutbox;
class XmppAdminSession;

// The room keeper's side on its own thread: the XMPP session, and the passes over the
// rooms that wait in the queue, a few at a time.
class RoomWorker : public QObject {
    Q_OBJECT

public:
    RoomWorker(Database* db, RoomQueue* queue, const RoomKeeper::Settings& settings,
               std::atomic<bool>* online);
    ~RoomWorker() override;

    void start();
    void stop();
    // Starts passes over waiting rooms while there is room for them.
    void pump();

private:
    void onOnline();
    void checkAll(const char* why);
    void onOffline();
    void onFinished(qint64 projectId, bool succeeded, const QString& error);
    // Sends the project's waiting notices; they leave the outbox once the server has them.
    void sendNotices(qint64 projectId);
    // Posts the project's waiting task cards into its room (entering it for the purpose);
    // they leave the outbox once the server has them.
    void sendCards(qint64 projectId);
    // Sends the project's waiting cards for single colleagues, in the name of their
    // company's task assistant; they leave the outbox once the server has them.
    void sendDirectCards(qint64 projectId);
    // Pings the server after stanzas just sent: it handles a stream's stanzas in order, so
    // an answer means it has them all. `done` runs with whether it answered.
    void confirm(std::function<void(bool)> done);

    Database* db_;
    RoomQueue* queue_;
    RoomKeeper::Settings settings_;
    std::atomic<bool>* online_;
    std::unique_ptr<Directory> directory_;
    std::unique_ptr<NoticeOutbox> notices_;
    std::unique_ptr<TaskCardOutbox> cards_;
    QHash<qint64, bool> posting_;        // projects whose cards are on their way
    QHash<qint64, bool> sendingDirect_;  // projects whose direct cards are on their way
    XmppAdminSession* session_ = nullptr;
    QHash<qint64, bool> running_;  // project id -> the pass destroys a dissolved room
    bool checkingAll_ = false;
    int checked_ = 0;
    int refused_ = 0;  // rooms of the current check that failed
};
