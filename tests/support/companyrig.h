#pragma once

#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QVector>

#include "demobackend.h"
#include "support/prosody_server.h"

// The demo company a client signs in to, for a test or a benchmark: a private Prosody, the
// reference back end with the demo company beside it, and the first few demo colleagues
// signed in to the back end. Colleague 0 is the user whose client is under test.
class CompanyRig {
public:
    // With `captureLog`, what the back end logs is kept for backend().log() instead of shown.
    explicit CompanyRig(const QString& backendBinary, bool captureLog = false)
        : backend_(backendBinary, captureLog) {}

    // Where the back end keeps its data: a temporary folder of its own unless set.
    void setDataDir(const QString& dir) { dataDir_ = dir; }

    // Prosody, then the back end, then the user names of the first `count` colleagues;
    // false, with error() saying why, if one of them fails.
    bool startServers(int count) {
        if (!prosody_.start()) return fail("prosody: " + prosody_.lastError());
        if (!startBackend()) return false;
        userNames_ = backend_.userNames(count);
        if (userNames_.size() != count)
            return fail(QStringLiteral("the back end has %1 of %2 demo colleagues")
                            .arg(userNames_.size())
                            .arg(count));
        return true;
    }
    // The back end again (stopped, say, to change its data): with the same data.
    bool startBackend() {
        QByteArray printed;
        if (!backend_.start(prosody_, dataDir(), &printed))
            return fail("the back end did not start:\n" + QString::fromUtf8(printed));
        return true;
    }
    // Every colleague startServers() named signs in to the back end.
    bool signInColleagues() {
        people_.clear();
        for (const QString& name : qAsConst(userNames_)) {
            people_ << backend_.signIn(name);
            const DemoPerson& p = people_.last();
            if (p.id.isEmpty() || p.secret.isEmpty() || p.session.isEmpty())
                return fail("the demo colleague " + name + " did not sign in");
        }
        return true;
    }
    bool start(int count) { return startServers(count) && signInColleagues(); }

    ProsodyServer& prosody() { return prosody_; }
    DemoBackend& backend() { return backend_; }
    QString dataDir() const { return dataDir_.isEmpty() ? ownData_.path() : dataDir_; }
    const QStringList& userNames() const { return userNames_; }
    const QVector<DemoPerson>& people() const { return people_; }
    const DemoPerson& person(int index) const { return people_.at(index); }
    // Why the last start failed.
    QString error() const { return error_; }

private:
    bool fail(const QString& why) {
        error_ = why;
        return false;
    }

    QTemporaryDir ownData_;
    QString dataDir_;
    ProsodyServer prosody_;
    DemoBackend backend_;
    QStringList userNames_;
    QVector<DemoPerson> people_;
    QString error_;
};
