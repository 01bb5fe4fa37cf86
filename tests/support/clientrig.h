#pragma once

#include <QLoggingCategory>
#include <QString>

#include <memory>
#include <vector>

#include "clientsignin.h"
#include "companyrig.h"
#include "configstore.h"
#include "mainviewdelegate.h"
#include "mainwindow.h"
#include "openimmanager.h"
#include "resources.h"
#include "support/test_session.h"

// The real client in the test's own process against the demo company: its main window
// wired as the application wires it and signed in as colleague 0 through the log-in window,
// with SDK sessions for colleagues who write to it. A test starts the company, opens the
// client (wiring what else it needs before the sign-in), signs in and adds the sessions.
class ClientRig {
public:
    explicit ClientRig(const QString& backendBinary) : company_(backendBinary) {}

    // Prosody, the back end and the names of the first `count` colleagues, after what every
    // client test needs first: the client's resources, no session bus (notices would go to
    // the desktop's), and the client's trace lines only in its log file (echoed into the
    // test's output they would bury the message of a failure).
    bool startServers(int count) {
        QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
        quelixInitResources();
        qunsetenv("DBUS_SESSION_BUS_ADDRESS");
        return company_.startServers(count);
    }
    // The same, with the colleagues signed in to the back end.
    bool start(int count) { return startServers(count) && company_.signInColleagues(); }

    // The client's configuration and IM core set up as the application sets them up, and
    // its main window showing the log-in window; null if the IM core does not start.
    MainWindow* openClient() {
        ConfigStore::instance().init();
        if (!OpenIMManager::instance()->init()) return nullptr;
        window_ = startClient();
        return window_;
    }
    // True once the client signed in as colleague 0 through its log-in window.
    bool signIn() { return signInThroughLoginWindow(window_, company_.person(0).userName); }

    // Colleague `index` in an SDK session of its own (its data in folder `name`), signing
    // in. With `roomNotices`, it believes the tribe notices the back end sends through the
    // server's admin account.
    TestSession* addSession(const QString& name, int index, bool roomNotices = true) {
        const DemoPerson& p = company_.person(index);
        sessions_.push_back(std::make_unique<TestSession>(name));
        sessions_.back()->login(prosody(), p.id, p.secret,
                                roomNotices ? prosody().adminJid().section('@', 0, 0) : QString());
        return sessions_.back().get();
    }
    // True once every session added has signed in (once).
    bool sessionsSignedIn() {
        return waitUntil([this] {
            for (const auto& s : sessions_)
                if (s->probe().count("loginOk") != 1) return false;
            return true;
        });
    }

    // The window no longer takes the IM core's calls, and the back end stops.
    void stop() {
        MainViewDelegate::setInstance(nullptr);
        company_.backend().stop();
    }

    CompanyRig& company() { return company_; }
    ProsodyServer& prosody() { return company_.prosody(); }
    DemoBackend& backend() { return company_.backend(); }
    const DemoPerson& person(int index) const { return company_.person(index); }
    QString error() const { return company_.error(); }

private:
    CompanyRig company_;
    MainWindow* window_ = nullptr;
    std::vector<std::unique_ptr<TestSession>> sessions_;
};
