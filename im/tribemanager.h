#pragma once

#include <QList>
#include <QMessageBox>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>

#include <deque>
#include <functional>
#include <vector>

#include "directorystore.h"
#include "openim/im_tribe_message.h"

class OpenIMManager;
class QThread;
class Requester;
class TribeUnreadReader;

// The IM core's tribe side, beside OpenIMManager which forwards to it: the user's projects
// (fetched from the back end at sign-in and handed to the SDK, whose rooms they are), new
// tribe messages read off the SDK thread and shown a slice at a time, the tribe events
// turned into main-window operations, and dissolving or leaving a project.
class TribeManager : public QObject {
    Q_OBJECT
public:
    // Asks the user a yes/no question in a box over `parent` (the main window); tests
    // replace it.
    using Question =
        std::function<QMessageBox::StandardButton(QWidget* parent, const QString& text)>;
    // The question box of the client: "确定" and "取消", centred over parent's window.
    static QMessageBox::StandardButton askOver(QWidget* parent, const QString& text);

    TribeManager(OpenIMManager* core, QThread* readingThread);
    ~TribeManager() override;

    void setRequester(Requester* requester) { requester_ = requester; }
    void setQuestion(Question ask) { ask_ = std::move(ask); }
    // The window the questions belong to.
    void setDialogParent(QWidget* parent) { dialogParent_ = parent; }

    // Fetches the signed-in user's projects into the directory's tribe records and tells
    // the SDK which rooms are the user's.
    void fetchProjects();
    // Reads a project list reply ("projectList" records); false with a reason when the
    // reply is unusable.
    static bool parseProjects(const QByteArray& body, QVector<DirectoryStore::Tribe>* out,
                              QString* error);
    // Hands tribes to the SDK, so that it joins their rooms.
    static void syncWithSdk(const QVector<DirectoryStore::Tribe>& tribes);

    // Any thread: a tribe has new messages.
    void newMessages(quint64 tribe);
    // GUI thread: the client is ready to show messages (or not any more).
    void setReady(bool ready);

    // Tribe events, GUI thread.
    void memberJoined(quint64 tribe, const QString& userId);
    void memberQuit(quint64 tribe, const QString& userId);
    void memberKicked(quint64 tribe, const QString& userId);
    void dismissed(quint64 tribe);
    void infoChanged(quint64 tribe, const QString& name);

    // Dissolves the project (its owner) or leaves it (anyone else), after asking.
    void dissolveOrLeave(quint64 tribe);
    // The address the action would request: "" when the tribe is unknown.
    static QString actionUrl(quint64 tribe, bool* owner);
    // What the user is told when dissolving (owner) or leaving did not happen: the back
    // end's own reason when it gave one, else what went wrong in general terms.
    static QString failureText(bool owner, bool networkFailed, const QString& errorMsg);

signals:
    void projectsLoaded(int count);
    void projectsFailed(const QString& reason);
    // The dissolve or leave request went out (address), and what the back end answered.
    void projectActionSent(const QString& url);
    void projectActionDone(quint64 tribe, bool ok, const QString& message);
    // The action did not happen; `text` says so to the user (failureText).
    void projectActionFailed(quint64 tribe, const QString& text);

private:
    struct Queued {
        quint64 tribe;
        openim::IMTribeMessage message;
    };
    void onUnread(quint64 tribe, const std::vector<openim::IMTribeMessage>& unread);
    void showQueued();
    void leftTribe(quint64 tribe);

    OpenIMManager* core_;
    TribeUnreadReader* reader_;
    Requester* requester_ = nullptr;
    Question ask_;
    QPointer<QWidget> dialogParent_;
    bool ready_ = false;
    QSet<quint64> waiting_;  // tribes with news while the client was not ready
    std::deque<Queued> queue_;
    QSet<quint64> queuedIds_;
    bool showScheduled_ = false;
    // A member arriving in a tribe we do not know yet is reported once the projects are in.
    QList<QPair<quint64, QString>> joinsAwaitingProjects_;
};
