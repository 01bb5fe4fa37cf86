// Cost of one diagnostic log line as the client pays it: the mean wall time of Logger::write
// over a run of lines into a fresh log folder, the debug echo silenced as in a release run.
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <cstdio>

#include "logger.h"

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    QTemporaryDir tmp;
    QDir().mkpath(tmp.path() + QStringLiteral("/Quelix"));
    Logger logger([&] { return tmp.path(); });

    const int lines = 20000;
    const QString text = QStringLiteral("OpenIMManager::showChatMsg from alice@quelix.local id ");
    for (int i = 0; i < 200; ++i) logger.write(text + QString::number(i));  // warm up
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < lines; ++i)
        if (!logger.write(text + QString::number(i))) {
            std::fprintf(stderr, "a log line did not reach the file\n");
            return 1;
        }
    std::printf("log_line_us=%.2f\n", double(timer.nsecsElapsed()) / 1000.0 / lines);
    return 0;
}
