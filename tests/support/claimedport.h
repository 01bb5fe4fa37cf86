#pragma once

#include <QProcess>
#include <QStringList>

// A loopback port for a server the test starts a little later (devstack/free-ports): outside
// the range the kernel gives outgoing connections, so no client takes it in the meantime,
// and claimed for the machine, so a test running beside this one does not pick it too.
// 0 when none could be had.
inline int claimedPort() {
    QProcess pick;
    pick.start(QStringLiteral(QUELIX_DEVSTACK_DIR "/free-ports"), {QStringLiteral("1")});
    if (!pick.waitForFinished(10000) || pick.exitCode() != 0) return 0;
    return pick.readAllStandardOutput().trimmed().toInt();
}
