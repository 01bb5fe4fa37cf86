#pragma once

#include <QHash>
#include <QObject>

#include <QSet>
#include <QString>
#include "basemsg.h"

class QMovie;
class QNetworkAccessManager;

namespace qx_output {

class FileTransfer;
class TaskReadFlags;

// The one relay between every conversation's output and the rest of the client. It also
// shares what all outputs share: one animation player per picture path and the file
// transfers, which outlive the item widgets that show them.
class Manager : public QObject {
    Q_OBJECT
public:
    static Manager* instance();

    // The running player of an animated picture, created on first use; null when the
    // file is not an animation.
    QMovie* getMovie(const QString& path);

    // Network access for file transfers (the signed-in back-end session's, so that its
    // cookies go along).
    void setNetwork(QNetworkAccessManager* network) { network_ = network; }
    QNetworkAccessManager* network();

    // The transfer of a file, by key: the back end's file id, or the local path of a
    // file whose upload has not finished. Created on first use.
    FileTransfer* transfer(const QString& key);
    FileTransfer* findTransfer(const QString& key) const { return transfers_.value(key); }
    void rekeyTransfer(const QString& from, const QString& to);

    // Received pictures whose download failed before their message was shown.
    void setMediaFailed(quint64 msgId) { failedMedia_.insert(msgId); }
    bool mediaFailed(quint64 msgId) const { return failedMedia_.contains(msgId); }

    // The user's read flags of tasks, shared by every task card.
    TaskReadFlags* readFlags() const { return readFlags_; }

    // Opens a page (a task, a project's tasks, a goals table) in the sidebar: the one way
    // in for buttons outside the message list.
    void openTaskPage(const QString& url) { emit openTaskSignal(url); }

    // Mutes or unmutes a conversation from anywhere; the talk list applies and keeps it
    // and says so with muteChanged.
    void requestMute(const QString& id, bool muted) { emit muteRequested(id, muted); }

signals:
    void createTaskSignal(const QString& strUrl);
    void openTaskSignal(const QString& strUrl);
    // One manager serves every conversation, so the conversation goes along.
    void sendCustemMsgSignal(const QString& id, const QString& summry, const QString& content);
    void getHistoryMsgSignal(const QString& id);
    void talkToSignal(const QString& userId);
    void mainWinPressedSignal();
    void mainWinDeactiveSignal();
    void mainWinActiveSignal();
    void setAtTipHiddenSignal(const QString& id, bool isHidden);
    void setAtTextHiddenSignal(const QString& id, bool isHidden);
    // The user asked to send again a message that was not sent.
    void resendRequested(const BaseMsg::MMessage& msg);
    void muteRequested(const QString& id, bool muted);
    void muteChanged(const QString& id, bool muted);

private:
    explicit Manager(QObject* parent = nullptr);

    QHash<QString, QMovie*> movies_;
    QHash<QString, FileTransfer*> transfers_;
    QSet<quint64> failedMedia_;
    QNetworkAccessManager* network_ = nullptr;
    QNetworkAccessManager* ownNetwork_ = nullptr;
    TaskReadFlags* readFlags_;
};

}  // namespace qx_output
