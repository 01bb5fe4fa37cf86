#include <QtTest>

#include <QProcess>
#include <QTemporaryDir>

class TestCrashDump : public QObject {
    Q_OBJECT
private slots:
    void fatalSignalLeavesAReport();
    void overflowOnAnotherThreadNamesIt();
};

namespace {
// Runs the crashing child and returns its one report.
QString crashReport(const QStringList& extra) {
    QTemporaryDir tmp;
    const QString dumpFolder = tmp.path() + QStringLiteral("/Dump");
    QProcess child;
    child.start(QStringLiteral(CRASH_CHILD_PATH), QStringList{dumpFolder} + extra);
    if (!child.waitForFinished(20000) || child.exitStatus() != QProcess::CrashExit) return {};
    const QStringList reports = QDir(dumpFolder).entryList({"crash_*.txt"}, QDir::Files);
    if (reports.size() != 1) return {};
    QFile f(dumpFolder + QLatin1Char('/') + reports.first());
    return f.open(QIODevice::ReadOnly) ? QString::fromLocal8Bit(f.readAll()) : QString();
}
}  // namespace

void TestCrashDump::overflowOnAnotherThreadNamesIt() {
    const QString report = crashReport({QStringLiteral("thread")});
    QVERIFY2(report.contains(QStringLiteral("signal: 11 (SIGSEGV)")), qPrintable(report));
    QVERIFY2(report.contains(QStringLiteral("thread: deep-worker (tid ")), qPrintable(report));
    QVERIFY(report.contains(QStringLiteral("backtrace:\n")));
}

void TestCrashDump::fatalSignalLeavesAReport() {
    QTemporaryDir tmp;
    const QString dumpFolder = tmp.path() + QStringLiteral("/Dump");  // created by the handler
    QProcess child;
    child.start(QStringLiteral(CRASH_CHILD_PATH), {dumpFolder});
    QVERIFY(child.waitForFinished(20000));
    QCOMPARE(child.exitStatus(), QProcess::CrashExit);  // the crash still reaches the system

    const QStringList reports = QDir(dumpFolder).entryList({"crash_*.txt"}, QDir::Files);
    QCOMPARE(reports.size(), 1);
    QFile f(dumpFolder + QLatin1Char('/') + reports.first());
    QVERIFY(f.open(QIODevice::ReadOnly));
    const QString report = QString::fromLocal8Bit(f.readAll());
    QVERIFY2(report.contains(QStringLiteral("signal: 11 (SIGSEGV)")), qPrintable(report));
    QVERIFY2(report.contains(QStringLiteral("thread: crash_child")), qPrintable(report));
    const int trace = report.indexOf(QStringLiteral("backtrace:\n"));
    const int maps = report.indexOf(QStringLiteral("memory map:\n"));
    QVERIFY(trace > 0 && maps > trace);
    // The frames name the program that crashed.
    QVERIFY2(report.mid(trace, maps - trace).contains(QStringLiteral("crash_child")),
             qPrintable(report));
}

QTEST_GUILESS_MAIN(TestCrashDump)
#include "tst_crashdump.moc"
