#include "packageinstaller.h"

#include <QCryptographicHash>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QSettings>
#include <QStorageInfo>
#include <QTimer>
#include <QUrl>

#include "logger.h"
#include "platform/process.h"

namespace {
// Unpacking needs the package, the unpacked copy and the old folder side by side.
constexpr qint64 kSpaceFactor = 3;
constexpr qint64 kMaxPackage = qint64(2) * 1024 * 1024 * 1024;
}  // namespace

PackageInstaller::PackageInstaller(const Options& options) : options_(options) {
    if (options_.workDir.isEmpty()) options_.workDir = QFileInfo(options_.iniPath).absolutePath();
}

QString PackageInstaller::programName() {
#ifdef Q_OS_WIN
    return QStringLiteral("Quelix.exe");
#else
    return QStringLiteral("Quelix");
#endif
}

bool PackageInstaller::fail(const QString& text) {
    error_ = text;
    Logger::instance().write(QStringLiteral("update failed: ") + text);
    return false;
}

bool PackageInstaller::run() {
    if (options_.key != QLatin1String("url_maximum") &&
        options_.key != QLatin1String("url_minimum"))
        return fail(QStringLiteral("unknown package key ") + options_.key);
    const QString kind = options_.key.mid(4);  // "maximum" / "minimum"
    QSettings ini(options_.iniPath, QSettings::IniFormat);
    const QString url = ini.value(options_.key).toString();
    bool sizeOk = false;
    const qint64 size = ini.value(QStringLiteral("size_") + kind).toLongLong(&sizeOk);
    const QByteArray sha =
        QByteArray::fromHex(ini.value(QStringLiteral("sha256_") + kind).toString().toLatin1());
    // Nothing unchecked is installed: without its size and checksum a package is refused.
    if (url.isEmpty() || !sizeOk || size <= 0 || size > kMaxPackage || sha.size() != 32)
        return fail(QStringLiteral("the update description names no complete package for ") +
                    options_.key);

    const QDir install(QFileInfo(options_.installDir).absoluteFilePath());
    const QString program = install.filePath(programName());
    if (!QFileInfo(program).isFile())
        return fail(QStringLiteral("no installed client in ") + install.path());
    QDir parent(install);
    parent.cdUp();
    // A folder the user cannot change (a system-wide install) is updated by the system's
    // package manager, not here.
    if (!QFileInfo(parent.path()).isWritable() || !QFileInfo(install.path()).isWritable())
        return fail(QStringLiteral("the installed folder is not writable: ") + install.path());
    const QStorageInfo disk(parent.path());
    if (disk.bytesAvailable() >= 0 && disk.bytesAvailable() < size * kSpaceFactor)
        return fail(QStringLiteral("not enough disk space"));

    QDir().mkpath(options_.workDir);
    const QString package = QDir(options_.workDir).filePath(QFileInfo(QUrl(url).path()).fileName());
    if (!download(url, size, sha, package)) return false;

    const QString name = install.dirName();
    const QString stage = parent.filePath(name + QStringLiteral(".new"));
    const QString old = parent.filePath(name + QStringLiteral(".old"));
    QDir(stage).removeRecursively();
    if (!unpack(package, stage)) {
        QDir(stage).removeRecursively();
        return false;
    }
    const QString fresh = findProgramFolder(stage);
    if (fresh.isEmpty()) {
        QDir(stage).removeRecursively();
        return fail(QStringLiteral("the package holds no client program"));
    }

    platform::terminateProcessesOf(program.toStdString());
    QDir(old).removeRecursively();
    if (!QDir().rename(install.path(), old)) {
        QDir(stage).removeRecursively();
        return fail(QStringLiteral("the installed folder could not be moved aside"));
    }
    if (!QDir().rename(fresh, install.path())) {
        QDir().rename(old, install.path());
        QDir(stage).removeRecursively();
        return fail(QStringLiteral("the new folder could not be put in place"));
    }
    QDir(stage).removeRecursively();
    if (options_.startClient && !startProgram(install.path())) {
        // Back to the old client: the new one is kept aside for a look, not in the way.
        const QString failed = parent.filePath(name + QStringLiteral(".failed"));
        QDir(failed).removeRecursively();
        QDir().rename(install.path(), failed);
        QDir().rename(old, install.path());
        return fail(QStringLiteral("the new client did not start; the old one is back"));
    }
    QDir(old).removeRecursively();
    QFile::remove(package);
    Logger::instance().write(QStringLiteral("update installed into ") + install.path());
    return true;
}

bool PackageInstaller::download(const QString& url, qint64 size, const QByteArray& sha256,
                                const QString& to) {
    const QString part = to + QStringLiteral(".part");
    QFile file(part);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return fail(QStringLiteral("cannot write ") + part);
    QNetworkAccessManager network;
    QNetworkRequest request{QUrl(url)};
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::NoLessSafeRedirectPolicy);
    QNetworkReply* reply = network.get(request);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    qint64 received = 0;
    bool tooLarge = false, writeFailed = false;
    QEventLoop loop;
    QTimer stall;
    stall.setSingleShot(true);
    stall.setInterval(options_.stallTimeoutMs);
    QObject::connect(&stall, &QTimer::timeout, reply, &QNetworkReply::abort);
    QObject::connect(reply, &QNetworkReply::readyRead, &loop, [&] {
        stall.start();
        const QByteArray chunk = reply->readAll();
        received += chunk.size();
        if (received > size) {
            tooLarge = true;
            reply->abort();
            return;
        }
        hash.addData(chunk);
        if (file.write(chunk) != chunk.size()) {
            writeFailed = true;
            reply->abort();
        }
    });
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    stall.start();
    if (!reply->isFinished()) loop.exec();
    const QByteArray rest = reply->readAll();
    if (!rest.isEmpty() && received + rest.size() <= size) {
        received += rest.size();
        hash.addData(rest);
        writeFailed = writeFailed || file.write(rest) != rest.size();
    }
    const bool networkOk = reply->error() == QNetworkReply::NoError;
    const QString networkError = reply->errorString();
    delete reply;
    writeFailed = writeFailed || !file.flush();
    file.close();
    QString problem;
    if (tooLarge)
        problem = QStringLiteral("the package is larger than published");
    else if (writeFailed)
        problem = QStringLiteral("the package could not be written (disk full?)");
    else if (received < size)
        problem = QStringLiteral("download cut short: %1 of %2 bytes (%3)")
                      .arg(received)
                      .arg(size)
                      .arg(networkOk ? QStringLiteral("no error") : networkError);
    else if (!networkOk)
        problem = QStringLiteral("download failed: ") + networkError;
    else if (hash.result() != sha256)
        problem = QStringLiteral("the package's checksum is wrong");
    if (!problem.isEmpty()) {
        QFile::remove(part);
        return fail(problem);
    }
    QFile::remove(to);
    if (!QFile::rename(part, to)) {
        QFile::remove(part);
        return fail(QStringLiteral("cannot keep the package at ") + to);
    }
    return true;
}

bool PackageInstaller::unpack(const QString& package, const QString& stage) {
    if (!QDir().mkpath(stage)) return fail(QStringLiteral("cannot create ") + stage);
    if (!package.endsWith(QLatin1String(".tar.gz")) && !package.endsWith(QLatin1String(".tgz")))
        return fail(QStringLiteral("unsupported package type: ") + QFileInfo(package).fileName());
    QProcess tar;
    // Members with absolute or parent paths are refused by tar itself (its default).
    tar.start(QStringLiteral("tar"), {QStringLiteral("-xzf"), package, QStringLiteral("-C"), stage,
                                      QStringLiteral("--no-same-owner")});
    if (!tar.waitForFinished(10 * 60 * 1000) || tar.exitStatus() != QProcess::NormalExit ||
        tar.exitCode() != 0)
        return fail(QStringLiteral("the package could not be unpacked: ") +
                    QString::fromLocal8Bit(tar.readAllStandardError()).trimmed());
    return true;
}

QString PackageInstaller::findProgramFolder(const QString& root) const {
    // The program's folder may sit a few levels down (a package's own top folder, then its
    // installation prefix).
    QStringList level{root};
    for (int depth = 0; depth < 5 && !level.isEmpty(); ++depth) {
        QStringList next;
        for (const QString& dir : level) {
            const QFileInfo program(QDir(dir).filePath(programName()));
            if (program.isFile() && !program.isSymLink()) return dir;
            for (const QFileInfo& sub :
                 QDir(dir).entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::NoSymLinks))
                next << sub.absoluteFilePath();
        }
        level = next;
    }
    return QString();
}

bool PackageInstaller::startProgram(const QString& folder) {
    const QString program = QDir(folder).filePath(programName());
    if (!QFileInfo(program).isExecutable()) return false;
    QProcess client;
    client.setProgram(program);
    client.setArguments({QStringLiteral("loader")});
    client.setWorkingDirectory(folder);
    // The client outlives the loader and owes nothing to whoever started the loader.
    client.setStandardInputFile(QProcess::nullDevice());
    client.setStandardOutputFile(QProcess::nullDevice());
    client.setStandardErrorFile(QProcess::nullDevice());
    return client.startDetached();
}
