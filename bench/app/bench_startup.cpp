// Start-up figures: process start to the log-in window drawn (median of 5), the memory
// with the log-in window up, on the offscreen platform. One HOME for all runs: the first
// (not counted) lays out the configuration tree as a first start does, the others start
// as a returning user's client does.
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <cstdio>
#include <vector>

#include "benchfigures.h"

namespace {
long rssOf(qint64 pid) {
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly)) return 0;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith("VmRSS:")) return line.mid(6).trimmed().split(' ').first().toLong();
    return 0;
}
}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    std::vector<double> times, rss;
    QTemporaryDir home;
    for (int run = 0; run < 6; ++run) {
        QProcess quelix;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("HOME"), home.path());
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        env.insert(QStringLiteral("QUELIX_STARTUP_PROBE"), QStringLiteral("1"));
        quelix.setProcessEnvironment(env);
        QElapsedTimer clock;
        clock.start();
        quelix.setReadChannel(QProcess::StandardError);
        quelix.start(QStringLiteral(QUELIX_BINARY), {QStringLiteral("loader")});
        QByteArray err;
        while (!err.contains("login-window-shown") && clock.elapsed() < 20000) {
            quelix.waitForReadyRead(50);
            err += quelix.readAllStandardError();
        }
        const double ms = double(clock.nsecsElapsed()) / 1e6;
        if (!err.contains("login-window-shown")) {
            std::fprintf(stderr, "the log-in window did not come up:\n%s\n", err.constData());
            quelix.kill();
            quelix.waitForFinished();
            return 1;
        }
        // What stays resident once the window is up and the start-up work has settled.
        QThread::msleep(1500);
        const long kb = rssOf(quelix.processId());
        quelix.terminate();
        if (!quelix.waitForFinished(10000)) {
            quelix.kill();
            quelix.waitForFinished();
        }
        if (run == 0) continue;  // the first start, and the disk cache warming up
        times.push_back(ms);
        rss.push_back(double(kb));
    }
    std::printf("startup_to_login_ms=%.1f\n", bench::percentile(times, 0.5));
    std::printf("login_window_rss_kb=%.0f\n", bench::percentile(rss, 0.5));
    return 0;
}
