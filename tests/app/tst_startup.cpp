#include <QtTest>

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>

#include <signal.h>

// Runs the built program as a user would, with this test's own empty HOME.
class TestStartup : public QObject {
    Q_OBJECT
private slots:
    void firstStartLaysOutTheTreeAndQuitsCleanly();
};

namespace {
QJsonObject readJson(const QString& path) {
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) return QJsonObject();
    return QJsonDocument::fromJson(f.readAll()).object();
}

QString readText(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? QString::fromLocal8Bit(f.readAll()) : QString();
}
}  // namespace

void TestStartup::firstStartLaysOutTheTreeAndQuitsCleanly() {
    const QString base =
        QStandardPaths::standardLocations(QStandardPaths::DocumentsLocation).first() + "/Quelix";
    QVERIFY2(base.startsWith(qEnvironmentVariable("HOME")),
             "the test must run with a HOME of its own");

    // A URL table pointing elsewhere (as the demo writes it) must survive the rewrite.
    QDir().mkpath(base + "/Resource/Text");
    {
        QFile url(base + "/Resource/Text/UrlText.ini");
        QVERIFY(url.open(QIODevice::WriteOnly));
        url.write(
            "{\"UrlOrg\": \"http://127.0.0.1:8080/work/mobileUserInfo.htm?m=findAllUserAndDept\"}");
    }

    QProcess quelix;
    quelix.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("QT_QPA_PLATFORM", "offscreen");
    quelix.setProcessEnvironment(env);
    quelix.start(QStringLiteral(QUELIX_BINARY), {"loader", "-Kicked"});
    QVERIFY(quelix.waitForStarted());

    const QString log = base + "/Log/" + QDate::currentDate().toString("yyyy_MM_dd") + ".log";
    QTRY_VERIFY_WITH_TIMEOUT(readText(log).contains("Quelix 1.1.9.0 started"), 15000);

    for (const char* folder :
         {"Config", "User Data", "User Data/All Users", "Resource/Image", "Resource/Image/Avatar",
          "Resource/Image/ScreenShot", "Resource/Text", "Update", "Log"})
        QVERIFY2(QDir(base + "/" + folder).exists(), folder);

    const QJsonObject settings = readJson(base + "/Config/Settings.ini");
    QCOMPARE(settings.value("CloseQuit").toString(), QStringLiteral("false"));
    QCOMPARE(settings.value("LastTime").toInt(), 16);
    QCOMPARE(settings.value("CheckState").toInt(), 5);
    QCOMPARE(settings.value("NetConnect").toInt(), 7);
    QVERIFY(settings.contains("UserDir"));

    const QJsonObject urls = readJson(base + "/Resource/Text/UrlText.ini");
    QCOMPARE(urls.size(), 15);
    QCOMPARE(urls.value("UrlOrg").toString(),
             QStringLiteral("http://127.0.0.1:8080/work/mobileUserInfo.htm?m=findAllUserAndDept"));
    QVERIFY(urls.value("UrlLogin").toString().endsWith("/work/checkIn.htm?m=MobileLogin"));

    // A termination request from the system ends the event loop normally.
    ::kill(pid_t(quelix.processId()), SIGTERM);
    QVERIFY(quelix.waitForFinished(15000));
    QCOMPARE(quelix.exitStatus(), QProcess::NormalExit);
    QCOMPARE(quelix.exitCode(), 0);
    QVERIFY(readText(log).contains("Quelix exits with code 0"));
    QVERIFY(QFile::exists(base + "/Config/MainWindow.ini"));
}

QTEST_GUILESS_MAIN(TestStartup)
#include "tst_startup.moc"
