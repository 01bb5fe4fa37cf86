// update_round_ms: the loader's whole round (download from the local back end, size and
// SHA-256 check, unpack beside, swap, start) for a package of 20 MB, median of 3.
#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QUrl>

#include <cstdio>
#include <vector>

#include "benchfigures.h"

namespace {
bool writeProgram(const QString& dir, const QString& version) {
    QDir().mkpath(dir);
    QFile p(dir + "/Quelix");
    if (!p.open(QIODevice::WriteOnly)) return false;
    p.write("#!/bin/sh\nexit 0\n");
    p.close();
    p.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QFile v(dir + "/Quelix.version");
    return v.open(QIODevice::WriteOnly) && v.write(version.toUtf8()) > 0;
}
}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QTemporaryDir tmp;
    const QString updates = tmp.filePath("updates");
    const QString src = tmp.filePath("src/Quelix-2.0.0.0-Linux/usr/lib/quelix");
    if (!writeProgram(src, "2.0.0.0")) return 1;
    // Incompressible filler, so the package really is 20 MB on the wire.
    QFile filler(src + "/payload.bin");
    if (!filler.open(QIODevice::WriteOnly)) return 1;
    QByteArray block(1 << 20, Qt::Uninitialized);
    for (int i = 0; i < 20; ++i) {
        QRandomGenerator::global()->fillRange(reinterpret_cast<quint32*>(block.data()),
                                              block.size() / 4);
        filler.write(block);
    }
    filler.close();
    QDir().mkpath(updates);
    QProcess tar;
    tar.start("tar", {"-czf", updates + "/Quelix-2.0.0.0-Linux.tar.gz", "-C", tmp.filePath("src"),
                      "Quelix-2.0.0.0-Linux"});
    tar.waitForFinished(120000);
    QFile release(updates + "/release.ini");
    release.open(QIODevice::WriteOnly);
    release.write(
        "[info]\nExeVersion=2.0.0.0\n[General]\npackage_minimum=Quelix-2.0.0.0-Linux.tar.gz\n");
    release.close();

    QProcess backend;
    backend.start(QStringLiteral(QUELIX_BACKEND_BIN),
                  {"--data-dir", tmp.filePath("backend"), "--port", "0", "--update-dir", updates});
    QByteArray line;
    QElapsedTimer wait;
    wait.start();
    while (!line.contains('\n') && wait.elapsed() < 60000) {
        backend.waitForReadyRead(200);
        line += backend.readAllStandardOutput();
    }
    if (!line.contains("listening on http://")) return 1;
    const QString url = QString::fromLatin1(line.trimmed().split(' ').last());

    std::vector<double> rounds;
    int status = 0;
    for (int run = 0; run < 3 && status == 0; ++run) {
        const QString install = tmp.filePath(QString("install%1/quelix").arg(run));
        writeProgram(install, "1.0.0.0");
        // The description as the client saves it from the back end.
        const QString ini = tmp.filePath(QString("QX_update%1.ini").arg(run));
        QNetworkAccessManager network;
        QNetworkReply* reply = network.get(QNetworkRequest(QUrl(url + "/update/QX_update.ini")));
        QEventLoop loop;
        QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
        loop.exec();
        QFile out(ini);
        if (!out.open(QIODevice::WriteOnly) || out.write(reply->readAll()) <= 0) status = 1;
        out.close();
        delete reply;
        QElapsedTimer clock;
        clock.start();
        QProcess loader;
        loader.setProcessChannelMode(QProcess::ForwardedChannels);
        loader.start(QStringLiteral(QUELIX_LOADER_BIN),
                     {"url_minimum", "--ini", ini, "--install-dir", install, "--quiet"});
        loader.waitForFinished(300000);
        rounds.push_back(double(clock.nsecsElapsed()) / 1e6);
        if (loader.exitCode() != 0) status = 1;
    }
    backend.terminate();
    backend.waitForFinished(10000);
    if (status != 0) {
        std::fprintf(stderr, "the loader failed\n");
        return 1;
    }
    std::printf("update_round_ms=%.1f\n", bench::percentile(rounds, 0.5));
    return 0;
}
