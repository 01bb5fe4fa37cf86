#pragma once

// A scripted IM SDK for the IM core's tests: log-in, account, presence, sync and one-to-one
// conversations registered under the real GUIDs. The services do what g_script says and
// count what they were asked; nothing is ever answered unless a test answers it.

#include <QStringList>
#include <functional>
#include <vector>

#include "mainviewdelegate.h"
#include "openim/im_message.h"
#include "openim/im_user_id.h"

struct Script {
    int logins = 0;
    int relogins = 0;
    int presenceRequests = 0;
    int syncs = 0;
    int markReads = 0;
    int historyResets = 0;
    std::vector<openim::IMMessage> unread;
    // The page every history request is answered with, at once.
    std::vector<openim::IMMessage> history;
    // "kind|what": "text|hello", "[名片]|{json}" (custom: its summary), "image|a.png".
    QStringList sends;
};
extern Script g_script;

openim::IMUserID user(const wchar_t* account);
// A text from colleague 101 to the user (100).
openim::IMMessage textMessage(quint64 id, qint64 time, const QString& text);
// Registers the scripted services with the SDK root, which must be initialised.
void installScriptedSdk();

// The main window's side of the conversation, as the IM core sees it.
class Shell : public MainViewDelegate {
public:
    void loginSuccess(const QString& id) override { calls << "loginSuccess " + id; }
    void loginFailed(const QString& text) override { calls << "loginFailed " + text; }
    void kicked(const QString&) override { calls << QStringLiteral("kicked"); }
    void setOnline(bool online) override {
        calls << QStringLiteral("setOnline %1%2")
                     .arg(online)
                     .arg(retryRunning && retryRunning() ? " retrying" : "");
    }
    void newMessageMark(const QString& id, int n) override {
        calls << QStringLiteral("mark %1 %2").arg(id).arg(n);
    }
    void newMessage(const ConversationRecord& r, const QString& text) override {
        calls << "message " + r.id + " " + text;
    }
    QStringList calls;
    std::function<bool()> retryRunning;
};
