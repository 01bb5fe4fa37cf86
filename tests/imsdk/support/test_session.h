#pragma once

#include <QString>
#include <QStringList>
#include <functional>
#include <memory>
#include <vector>

#include "base/scoped_refptr.h"
#include "openim/iconversation.h"
#include "openim/iconversation_service.h"
#include "openim/ilogin_service.h"
#include "openim/itribe.h"
#include "prg/iprg_com.h"
#include "sdk/wide_text.h"
#include "session_probe.h"

class ProsodyServer;
class QProcess;
class SdkInstance;

// One SDK (its own root, thread and store) signed in as one account, with its callbacks
// going to a SessionProbe. Tests run several in one process.
class TestSession {
public:
    // `name` names the data folder below the test's temporary folder.
    explicit TestSession(const QString& name);
    ~TestSession();

    // `authority`: the account whose tribe notices the SDK believes.
    void login(const ProsodyServer& server, const QString& account, const QString& secret,
               const QString& authority = QString());
    // The same through another port of the server's host (a proxy in front of it).
    void loginVia(const ProsodyServer& server, quint16 port, const QString& account,
                  const QString& secret, const QString& authority = QString());
    void setSignInTimeout(int ms) { signInTimeoutMs_ = ms; }
    // Require TLS although the test's server is on loopback.
    void setRequireTls(bool on) { requireTls_ = on; }
    // A cluster's nodes ("host:port,..."), tried in order.
    void setEndpoints(const QString& list) { endpoints_ = list; }
    // Trusts this authority instead of the server's own (a null string: the server's).
    void setCaFile(const QString& path) { caFile_ = path; }
    void relogin();
    void logout();
    // Signs in as `account` (secret "pw-<account>") and waits for the server's word.
    bool signIn(const ProsodyServer& server, const QString& account,
                const QString& authority = QString());
    bool signInVia(const ProsodyServer& server, quint16 port, const QString& account);
    // Logs out and waits until the SDK says so.
    bool signOut();
    // Asks to sign in again until it works, as the client's retry timer does.
    bool reloginUntilOk(int pauseMs = 300);

    SessionProbe& probe() { return *probe_; }
    template <class T>
    base::scoped_refptr<T> service(const char* module, const char* iface) {
        base::scoped_refptr<T> out;
        out.adopt(root()->GetService<T>(module, iface));
        return out;
    }
    base::scoped_refptr<openim::IConversation> conversation(const QString& peer);
    base::scoped_refptr<openim::ITribe> tribe(quint64 id);
    base::scoped_refptr<openim::ILoginService> loginService();
    base::scoped_refptr<openim::IConversationService> conversationService();
    prg::IPrgCOM* root();
    QString dataFolder() const { return folder_; }
    QString receiveFolder() const { return folder_ + QStringLiteral("/Receive"); }

    void sendText(const QString& peer, const QString& text);
    void sendCustom(const QString& peer, const QString& json, const QString& summary);
    void sendImage(const QString& peer, const QString& file, int width, int height);
    int unreadCount(const QString& peer);
    std::vector<openim::IMMessage> unread(const QString& peer);
    void markRead(const QString& peer);
    void requestHistory(const QString& peer, int count);
    // The conversation's history, page after page back to its start (readBackPages).
    QStringList readBack(const QString& peer, int pageSize);

    static QString appKey() { return QStringLiteral("23015524"); }

private:
    QString folder_;
    int signInTimeoutMs_ = 20000;
    bool requireTls_ = false;
    QString caFile_;
    QString endpoints_;
    std::unique_ptr<SdkInstance> sdk_;
    base::scoped_refptr<SessionProbe> probe_;
};

// The texts of SDK messages (a conversation's or a tribe's), in their order.
template <class Messages>
QStringList texts(const Messages& messages) {
    QStringList out;
    for (const auto& m : messages) out << wide_text::toQ(m.content.content);
    return out;
}

// Asks for history page after page (`askNext`, answered in `log` as "history:<code>",
// `lastPage` then giving the page) back to its start; oldest first, ending in "<failed>" if
// a page fails or never comes, "<endless>" if the pages never run out.
QStringList readBackPages(const EventLog& log, const std::function<void()>& askNext,
                          const std::function<QStringList()>& lastPage);

// Starts plain_client.py, a plain XMPP client (slixmpp), as `user` (secret "pw-<user>")
// towards `peer` (an account of the server, or a whole address), with the rest of its
// arguments.
void startPlainClient(QProcess& process, const ProsodyServer& server, const QString& user,
                      const QString& peer, const QStringList& args);

// Waits (running the caller's events) until `done` holds or `timeoutMs` passes.
bool waitUntil(const std::function<bool()>& done, int timeoutMs = 15000);
