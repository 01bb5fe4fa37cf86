#pragma once

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcessEnvironment>
#include <QString>
#include <QTemporaryDir>
#include <QThread>

#include <cstdio>
#include <functional>

#include "companyrig.h"

// What the benchmarks that run the real client share beside the demo company (CompanyRig):
// a client home of their own that signs in by itself as a returning user's does.
namespace bench {

// Runs the event loop until `done` or the time is up.
inline bool runUntil(const std::function<bool()>& done, int timeoutMs) {
    QElapsedTimer clock;
    clock.start();
    while (!done() && clock.elapsed() < timeoutMs)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5), QThread::msleep(1);
    return done();
}

// A client home in `scratch` ("home", its documents folder made), kept after the run when
// QUELIX_BENCH_KEEP is set, to look at the client's files.
inline QString clientHome(QTemporaryDir& scratch) {
    if (qEnvironmentVariableIsSet("QUELIX_BENCH_KEEP")) {
        scratch.setAutoRemove(false);
        std::printf("client files in %s\n", qPrintable(scratch.path()));
    }
    const QString home = scratch.filePath(QStringLiteral("home"));
    QDir().mkpath(home + QStringLiteral("/Documents/Quelix/Config"));
    return home;
}

// The environment the client runs in from `home`: offscreen, trusting the authority in
// `caFile` as a company's desktops do.
inline QProcessEnvironment clientEnvironment(const QString& home, const QString& caFile) {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), home);
    env.insert(QStringLiteral("QUELIX_CA_FILE"), caFile);
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    env.remove(QStringLiteral("XDG_CONFIG_HOME"));
    env.remove(QStringLiteral("XDG_DATA_HOME"));
    return env;
}

// The demo company for the client in `home`, its back end's data in `dataDir`, with the
// first `count` colleagues signed in; false after saying why. The client needs no project
// rooms, so the back end keeps none.
inline bool startCompany(CompanyRig& company, const QString& dataDir, const QString& home,
                         int count) {
    company.setDataDir(dataDir);
    company.backend().setClientDocuments(home + QStringLiteral("/Documents"));
    company.backend().setKeepsRooms(false);
    if (company.start(count)) return true;
    std::fprintf(stderr, "%s\n", qPrintable(company.error()));
    return false;
}

// The client in the home whose documents are `docs` remembers `userName` and signs in
// automatically.
inline bool rememberForAutoLogin(const QString& docs, const QString& userName) {
    QFile logins(docs + QStringLiteral("/Quelix/Config/LoginList.db"));
    if (!logins.open(QIODevice::WriteOnly)) return false;
    logins.write(QStringLiteral("{\"AutoLogin\": \"%1\", \"LoginList\": [{\"username\": \"%1\", "
                                "\"password\": \"quelix123\"}]}\n")
                     .arg(userName)
                     .toUtf8());
    return true;
}

}  // namespace bench
