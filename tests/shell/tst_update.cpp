// The update check against the reference back end and the loader's whole round into a
// temporary install folder: a good package, and every way it can go wrong leaving the old
// client in place and running.
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

#include "../support/backendlistening.h"
#include "configstore.h"
#include "triggermanager.h"

using quelix::TriggerManager;

class TestUpdate : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void versionPacking();
    void decisionFromTheDescription();
    void checkAgainstTheBackEnd();
    void fullRoundInstallsAndStartsTheNewClient();
    void failuresLeaveTheOldClient();
    void backEndServesOnlyPublishedPackages();
    void runningCopiesOfOneProgramAreEnded();

private:
    // A fake client program: records that it started, and its tag, in the marker file.
    void writeClient(const QString& dir, const QString& tag, const QString& version,
                     bool executable = true);
    QString makePackage(const QString& tag, const QString& version, bool executable = true);
    void publish(const QString& version, const QString& package);
    void freshInstall();
    QString marker() const;
    int runLoader(const QString& ini, QString* errors);
    QString installedVersion() const;

    QTemporaryDir tmp_;
    QProcess backend_;
    QString backendUrl_;
    QString installDir_;
    QString updateDir_;
};

void TestUpdate::initTestCase() {
    QVERIFY(tmp_.isValid());
    qRegisterMetaType<QProcess::ExitStatus>();
    updateDir_ = tmp_.filePath("published");
    QDir().mkpath(updateDir_);
    backend_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    backend_.start(QStringLiteral(QUELIX_BACKEND_BIN), {"--data-dir", tmp_.filePath("backend"),
                                                        "--port", "0", "--update-dir", updateDir_});
    QVERIFY(backend_.waitForStarted());
    QByteArray printed;
    backendUrl_ = waitForBackendUrl(backend_, &printed);
    QVERIFY2(!backendUrl_.isEmpty(), printed.constData());
}

void TestUpdate::cleanupTestCase() {
    backend_.terminate();
    backend_.waitForFinished(10000);
}

void TestUpdate::versionPacking() {
    QCOMPARE(TriggerManager::packVersion("1.1.9.0"), 0x01010900u);
    QVERIFY(TriggerManager::packVersion("1.1.10.0") > TriggerManager::packVersion("1.1.9.0"));
    // Each part keeps its low 8 bits only.
    QCOMPARE(TriggerManager::packVersion("1.1.256.0"), TriggerManager::packVersion("1.1.0.0"));
    // Fewer than four fields leave the low parts zero; nothing at all is version 0.
    QCOMPARE(TriggerManager::packVersion("5.15"), 0x050f0000u);
    QCOMPARE(TriggerManager::packVersion(""), 0u);
    QCOMPARE(TriggerManager::packVersion("garbage"), 0u);
    // And back, as the question shows it; an unknown installed version is left out.
    QCOMPARE(TriggerManager::versionText(TriggerManager::packVersion("2.10.255.3")),
             QString("2.10.255.3"));
    QVERIFY(TriggerManager::updateQuestion(0x01020000u, 0)
                .startsWith("发现新版本 1.2.0.0，是否现在更新？"));
}

void TestUpdate::decisionFromTheDescription() {
    TriggerManager tm(nullptr, tmp_.path());
    tm.setLocalVersions(TriggerManager::packVersion("1.1.9.0"),
                        TriggerManager::packVersion("5.15.8"));
    int n = 0;
    const auto decideOn = [&](const QByteArray& text) {
        // A file of its own each time: settings files are cached by name.
        const QString ini = tmp_.filePath(QString("decide-%1.ini").arg(++n));
        QFile f(ini);
        f.open(QIODevice::WriteOnly | QIODevice::Truncate);
        f.write(text);
        f.close();
        return tm.decide(ini);
    };
    QCOMPARE(decideOn("[info]\nExeVersion=1.1.10.0\nQtVersion=5.15.8\n"),
             TriggerManager::UpdateMinimum);
    QCOMPARE(decideOn("[info]\nExeVersion=1.1.10.0\nQtVersion=5.15.9\n"),
             TriggerManager::UpdateMaximum);
    QCOMPARE(decideOn("[info]\nExeVersion=1.1.256.0\nQtVersion=5.15.9\n"),
             TriggerManager::UpToDate);
    QCOMPARE(decideOn("[info]\nExeVersion=1.1.9.0\n"), TriggerManager::UpToDate);
    QCOMPARE(decideOn("[other]\nsomething=1\n"), TriggerManager::UpToDate);
    QCOMPARE(tm.remoteVersion(), 0u);
}

void TestUpdate::writeClient(const QString& dir, const QString& tag, const QString& version,
                             bool executable) {
    QDir().mkpath(dir);
    QFile program(QDir(dir).filePath("Quelix"));
    QVERIFY(program.open(QIODevice::WriteOnly | QIODevice::Truncate));
    program.write("#!/bin/sh\necho " + tag.toUtf8() + " >> '" + marker().toUtf8() + "'\n");
    program.close();
    program.setPermissions(executable ? QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner
                                      : QFile::ReadOwner | QFile::WriteOwner);
    QFile v(QDir(dir).filePath("Quelix.version"));
    QVERIFY(v.open(QIODevice::WriteOnly | QIODevice::Truncate));
    v.write(version.toUtf8() + "\n");
    QVERIFY(QFile::copy(QStringLiteral(QUELIX_LOADER_BIN), QDir(dir).filePath("qxload")) ||
            QFileInfo::exists(QDir(dir).filePath("qxload")));
}

// Laid out as the build's .tar.gz is: a top folder, then the installation prefix.
QString TestUpdate::makePackage(const QString& tag, const QString& version, bool executable) {
    const QString src = tmp_.filePath("src-" + tag);
    QDir(src).removeRecursively();
    const QString top = "Quelix-" + version + "-Linux";
    writeClient(src + "/" + top + "/lib/quelix", tag, version, executable);
    const QString name = "Quelix-" + tag + ".tar.gz";
    QProcess tar;
    tar.start("tar", {"-czf", QDir(updateDir_).filePath(name), "-C", src, top});
    tar.waitForFinished();
    return name;
}

void TestUpdate::publish(const QString& version, const QString& package) {
    QFile f(QDir(updateDir_).filePath("release.ini"));
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    f.write(QString("[info]\nExeVersion=%1\nQtVersion=%2\n[General]\npackage_maximum=%3\n"
                    "package_minimum=%3\n")
                .arg(version, QLatin1String(qVersion()), package)
                .toUtf8());
}

void TestUpdate::freshInstall() {
    installDir_ = tmp_.filePath("install/quelix");
    QDir(tmp_.filePath("install")).removeRecursively();
    QFile::remove(marker());
    writeClient(installDir_, "old", "1.1.9.0");
}

QString TestUpdate::marker() const { return tmp_.filePath("started.txt"); }

QString TestUpdate::installedVersion() const {
    QFile v(QDir(installDir_).filePath("Quelix.version"));
    v.open(QIODevice::ReadOnly);
    return QString::fromUtf8(v.readAll()).trimmed();
}

int TestUpdate::runLoader(const QString& ini, QString* errors) {
    QProcess loader;
    loader.start(QStringLiteral(QUELIX_LOADER_BIN),
                 {"url_minimum", "--ini", ini, "--install-dir", installDir_, "--quiet"});
    QSignalSpy done(&loader, qOverload<int, QProcess::ExitStatus>(&QProcess::finished));
    // The event loop keeps running meanwhile: the cut-short server below lives on it.
    if (!done.wait(60000)) return -1;
    *errors = QString::fromLocal8Bit(loader.readAllStandardError());
    return loader.exitCode();
}

void TestUpdate::checkAgainstTheBackEnd() {
    publish("1.1.10.0", makePackage("new", "1.1.10.0"));
    freshInstall();
    TriggerManager tm(nullptr, installDir_);
    QCOMPARE(tm.localProductVersion(), TriggerManager::packVersion("1.1.9.0"));
    tm.setUpdateUrl(backendUrl_ + "/update/QX_update.ini");
    tm.setIniPath(tmp_.filePath("check/QX_update.ini"));
    QStringList asked, told, started;
    bool answer = false;
    QWidget window;
    tm.setDialogParent(&window);
    QList<QWidget*> over;
    tm.setAsker([&](QWidget* parent, const QString& t) {
        asked << t;
        over << parent;
        return answer;
    });
    tm.setInformer([&](QWidget* parent, const QString& t) {
        told << t;
        over << parent;
    });
    tm.setLoaderStarter([&](const QString& key) {
        started << key;
        return true;
    });
    int quits = 0;
    tm.setQuitter([&] { ++quits; });
    QSignalSpy finished(&tm, &TriggerManager::checkFinished);

    // Newer program, same framework: asked; "no" does nothing.
    tm.checkUpdate();
    QVERIFY(finished.wait(20000));
    QCOMPARE(finished.last().at(0).toInt(), int(TriggerManager::UpdateMinimum));
    QCOMPARE(asked.size(), 1);
    QVERIFY(asked[0].startsWith("发现新版本 1.1.10.0（当前版本 1.1.9.0），是否现在更新？"));
    QVERIFY(started.isEmpty());
    // "yes" hands over with the program-only package and steps aside.
    answer = true;
    tm.checkUpdate();
    QVERIFY(finished.wait(20000));
    QCOMPARE(started, QStringList{"url_minimum"});
    QCOMPARE(quits, 1);
    QSettings saved(tmp_.filePath("check/QX_update.ini"), QSettings::IniFormat);
    QCOMPARE(saved.value("size_minimum").toLongLong(),
             QFileInfo(QDir(updateDir_).filePath("Quelix-new.tar.gz")).size());

    // Up to date: silent says nothing, from the about box it says so.
    publish("1.1.9.0", "Quelix-new.tar.gz");
    tm.setSilent(true);
    tm.checkUpdate();
    QVERIFY(finished.wait(20000));
    QVERIFY(told.isEmpty());
    tm.setSilent(false);
    tm.checkUpdate();
    QVERIFY(finished.wait(20000));
    QCOMPARE(told.size(), 1);

    // No server: the check ends quietly even when asked for from the about box.
    QTcpServer closed;
    closed.listen(QHostAddress::LocalHost);
    const quint16 port = closed.serverPort();
    closed.close();
    tm.setUpdateUrl(QString("http://127.0.0.1:%1/update/QX_update.ini").arg(port));
    tm.checkUpdate();
    QVERIFY(finished.wait(20000));
    QCOMPARE(finished.last().at(1).toBool(), false);
    QCOMPARE(told.size(), 1);
    QCOMPARE(asked.size(), 2);
    // Every box of the check opens over the window it was given.
    QCOMPARE(over.size(), 3);
    QVERIFY(std::all_of(over.begin(), over.end(), [&](QWidget* w) { return w == &window; }));
}

void TestUpdate::fullRoundInstallsAndStartsTheNewClient() {
    publish("1.1.10.0", makePackage("new", "1.1.10.0"));
    freshInstall();
    // The real hand-over: the installed folder's own loader, started detached.
    TriggerManager tm(nullptr, installDir_);
    tm.setUpdateUrl(backendUrl_ + "/update/QX_update.ini");
    tm.setIniPath(tmp_.filePath("round/QX_update.ini"));
    tm.setAsker([](QWidget*, const QString&) { return true; });
    tm.setLoaderArguments({"--quiet"});
    int quits = 0;
    tm.setQuitter([&] { ++quits; });
    QSignalSpy finished(&tm, &TriggerManager::checkFinished);
    tm.checkUpdate();
    QVERIFY(finished.wait(20000));
    QCOMPARE(quits, 1);
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(marker()), 60000);
    QFile m(marker());
    QVERIFY(m.open(QIODevice::ReadOnly));
    QCOMPARE(m.readAll().trimmed(), QByteArray("new"));
    QCOMPARE(installedVersion(), QString("1.1.10.0"));
    QVERIFY(QFileInfo(QDir(installDir_).filePath("qxload")).isExecutable());
    // The old folder goes once the new client has started; nothing is left beside it.
    QTRY_COMPARE_WITH_TIMEOUT(
        QDir(tmp_.filePath("install")).entryList(QDir::Dirs | QDir::NoDotAndDotDot),
        QStringList{"quelix"}, 10000);
}

void TestUpdate::failuresLeaveTheOldClient() {
    const QString good = makePackage("new", "1.1.10.0");
    const QString goodPath = QDir(updateDir_).filePath(good);
    const qint64 goodSize = QFileInfo(goodPath).size();
    QFile goodFile(goodPath);
    QVERIFY(goodFile.open(QIODevice::ReadOnly));
    const QByteArray goodBytes = goodFile.readAll();
    const QString goodSha = QCryptographicHash::hash(goodBytes, QCryptographicHash::Sha256).toHex();

    // A server that promises the whole package and hangs up half way.
    QTcpServer cut;
    QVERIFY(cut.listen(QHostAddress::LocalHost));
    connect(&cut, &QTcpServer::newConnection, this, [&] {
        QTcpSocket* s = cut.nextPendingConnection();
        connect(s, &QTcpSocket::readyRead, s, [s, goodBytes] {
            s->readAll();
            s->write(
                "HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\n"
                "Content-Length: " +
                QByteArray::number(goodBytes.size()) + "\r\n\r\n");
            s->write(goodBytes.left(goodBytes.size() / 2));
            s->flush();
            s->disconnectFromHost();
        });
    });

    const QString garbled = "Quelix-garbled.tar.gz";
    {
        QFile g(QDir(updateDir_).filePath(garbled));
        QVERIFY(g.open(QIODevice::WriteOnly));
        g.write(QByteArray(4096, 'x'));
    }
    const QString broken = makePackage("broken", "1.1.10.0", false);
    const auto sha = [&](const QString& name) {
        QFile f(QDir(updateDir_).filePath(name));
        f.open(QIODevice::ReadOnly);
        return QString(QCryptographicHash::hash(f.readAll(), QCryptographicHash::Sha256).toHex());
    };
    const auto size = [&](const QString& name) {
        return QFileInfo(QDir(updateDir_).filePath(name)).size();
    };
    const struct {
        const char* what;
        QString url;
        qint64 size;
        QString sha;
        const char* expected;
    } cases[] = {
        {"cut short", QString("http://127.0.0.1:%1/p.tar.gz").arg(cut.serverPort()), goodSize,
         goodSha, "cut short"},
        {"wrong checksum", backendUrl_ + "/update/" + good, goodSize, QString(64, 'a'), "checksum"},
        {"larger than published", backendUrl_ + "/update/" + good, goodSize - 10, goodSha,
         "larger"},
        {"no checksum published", backendUrl_ + "/update/" + good, goodSize, QString(),
         "no complete package"},
        {"not a package", backendUrl_ + "/update/" + garbled, size(garbled), sha(garbled),
         "unpacked"},
        {"new client does not start", backendUrl_ + "/update/" + broken, size(broken), sha(broken),
         "did not start"},
    };
    for (const auto& c : cases) {
        freshInstall();
        const QString ini = tmp_.filePath("fail.ini");
        QFile f(ini);
        QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
        f.write(QString("[info]\nExeVersion=1.1.10.0\n[General]\nurl_minimum=%1\nsize_minimum=%2\n"
                        "sha256_minimum=%3\n")
                    .arg(c.url)
                    .arg(c.size)
                    .arg(c.sha)
                    .toUtf8());
        f.close();
        QString errors;
        QCOMPARE(runLoader(ini, &errors), 1);
        QVERIFY2(errors.contains(QLatin1String(c.expected)), qPrintable(c.what + (": " + errors)));
        QVERIFY2(installedVersion() == "1.1.9.0", c.what);
        // The old client is started again, and nothing half-made is left in the way.
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(marker()), 10000);
        QFile m(marker());
        QVERIFY(m.open(QIODevice::ReadOnly));
        QVERIFY2(m.readAll().trimmed() == "old", c.what);
        QStringList left =
            QDir(tmp_.filePath("install")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
        left.removeAll("quelix.failed");
        QVERIFY2(left == QStringList{"quelix"}, qPrintable(left.join(',')));
    }
}

void TestUpdate::backEndServesOnlyPublishedPackages() {
    const QString name = makePackage("served", "1.1.10.0");
    QFile package(QDir(updateDir_).filePath(name));
    QVERIFY(package.open(QIODevice::ReadOnly));
    QNetworkAccessManager network;
    const auto get = [&](const QString& path, QByteArray* body) {
        QNetworkReply* reply = network.get(QNetworkRequest(QUrl(backendUrl_ + path)));
        QSignalSpy done(reply, &QNetworkReply::finished);
        done.wait(20000);
        *body = reply->readAll();
        const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        reply->deleteLater();
        return status;
    };
    QByteArray body;
    QCOMPARE(get("/update/" + name, &body), 200);
    QCOMPARE(body, package.readAll());
    // Nothing but plain names of the folder: not the description of the release, not a
    // way out of the folder, not a file that is not there.
    QCOMPARE(get("/update/release.ini", &body), 404);
    QCOMPARE(get("/update/..%2Fbackend%2Fdirectory.db", &body), 404);
    QCOMPARE(get("/update/.hidden", &body), 404);
    QCOMPARE(get("/update/missing.tar.gz", &body), 404);
}

void TestUpdate::runningCopiesOfOneProgramAreEnded() {
    // Two copies of one program file, and the same program under another path.
    const QString dir = tmp_.filePath("procs");
    QDir().mkpath(dir + "/a");
    QDir().mkpath(dir + "/b");
    QVERIFY(QFile::copy("/bin/sleep", dir + "/a/Quelix"));
    QVERIFY(QFile::copy("/bin/sleep", dir + "/b/Quelix"));
    QProcess first, second, other;
    first.start(dir + "/a/Quelix", {"30"});
    second.start(dir + "/a/Quelix", {"30"});
    other.start(dir + "/b/Quelix", {"30"});
    QVERIFY(first.waitForStarted() && second.waitForStarted() && other.waitForStarted());
    QCOMPARE(TriggerManager::terminateProcessesOf(dir + "/a/Quelix"), 2);
    QVERIFY(first.waitForFinished(5000));
    QVERIFY(second.waitForFinished(5000));
    QCOMPARE(other.state(), QProcess::Running);
    other.kill();
    other.waitForFinished();
}

QTEST_MAIN(TestUpdate)
#include "tst_update.moc"
