#include <QtTest>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>

#include <sys/wait.h>
#include <unistd.h>
#include <csignal>

#include "functiontrace.h"
#include "logger.h"
#include "logstream.h"

namespace {
QStringList g_debugLines;
void captureDebug(QtMsgType type, const QMessageLogContext&, const QString& msg) {
    if (type == QtDebugMsg) g_debugLines << msg;
}

QByteArray readAll(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}
}  // namespace

class TestLogger : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void lineFormatAndEmbeddedBreaks();
    void midnightStartsANewFile();
    void systemClockStampsMatchTheLocalTime();
    void linesSurviveSuddenDeath();
    void missingQuelixFolderWritesNothing();
    void streamsAndTraces();
    void qualifiedNames_data();
    void qualifiedNames();
    void threadsNeverInterleave();

private:
    QScopedPointer<QTemporaryDir> tmp_;
    QString docs_;
    QDateTime now_;
    QScopedPointer<Logger> logger_;
};

void TestLogger::init() {
    tmp_.reset(new QTemporaryDir);
    docs_ = tmp_->path();
    QDir().mkpath(docs_ + QStringLiteral("/Quelix"));
    now_ = QDateTime(QDate(2016, 3, 9), QTime(8, 5, 7, 42));
    logger_.reset(new Logger([this] { return docs_; }, [this] { return now_; }));
    g_debugLines.clear();
    qInstallMessageHandler(captureDebug);
}

void TestLogger::cleanup() {
    qInstallMessageHandler(nullptr);
    logger_.reset();
    tmp_.reset();
}

void TestLogger::lineFormatAndEmbeddedBreaks() {
    QVERIFY(logger_->write(QStringLiteral("hello")));
    QVERIFY(logger_->write(QStringLiteral("two\nlines\r\n")));
    const QString file = docs_ + QStringLiteral("/Quelix/Log/2016_03_09.log");
    QCOMPARE(logger_->logFilePath(), file);
    QCOMPARE(readAll(file), QByteArray("08:05:07.042 hello\r\n08:05:07.042 two\nlines\r\n\r\n"));
    // The debug channel gets the same text with its prefix, without the line end.
    QCOMPARE(g_debugLines, QStringList({"08:05:07.042 hello", "08:05:07.042 two\nlines\r\n"}));
}

// The real clock's stamps are worked out once a second; each line still carries its own
// milliseconds, zero-padded, and the local time of the moment it was written.
void TestLogger::systemClockStampsMatchTheLocalTime() {
    Logger logger([this] { return docs_; });
    QStringList lines;
    QList<QDateTime> before;
    for (int i = 0; i < 40; ++i) {
        before << QDateTime::currentDateTime();
        QVERIFY(logger.write(QStringLiteral("tick %1").arg(i)));
        QThread::usleep(2500);
    }
    const QString day = before.first().date().toString(QStringLiteral("yyyy_MM_dd.log"));
    const QList<QByteArray> written = readAll(docs_ + "/Quelix/Log/" + day).split('\n');
    QCOMPARE(written.size(), 41);  // the text after the last line end is empty
    const QRegularExpression shape(
        QStringLiteral("^(\\d\\d:\\d\\d:\\d\\d\\.\\d{3}) tick (\\d+)\r$"));
    for (int i = 0; i < 40; ++i) {
        const QRegularExpressionMatch m = shape.match(QString::fromUtf8(written.at(i)));
        QVERIFY2(m.hasMatch(), written.at(i).constData());
        const QTime stamped = QTime::fromString(m.captured(1), QStringLiteral("hh:mm:ss.zzz"));
        const int late = before.at(i).time().msecsTo(stamped);
        QVERIFY2(late >= 0 && late < 1000, written.at(i).constData());
    }
}

void TestLogger::midnightStartsANewFile() {
    now_ = QDateTime(QDate(2016, 12, 31), QTime(23, 59, 59, 999));
    logger_->write(QStringLiteral("last of the year"));
    now_ = now_.addMSecs(2);
    logger_->write(QStringLiteral("first of the year"));
    const QString folder = docs_ + QStringLiteral("/Quelix/Log/");
    QCOMPARE(readAll(folder + "2016_12_31.log"), QByteArray("23:59:59.999 last of the year\r\n"));
    QCOMPARE(readAll(folder + "2017_01_01.log"), QByteArray("00:00:00.001 first of the year\r\n"));
    // A clock set back a day (a time zone change) returns to that day's file and appends.
    now_ = now_.addDays(-1);
    logger_->write(QStringLiteral("clock set back"));
    QCOMPARE(readAll(folder + "2016_12_31.log"),
             QByteArray("23:59:59.999 last of the year\r\n00:00:00.001 clock set back\r\n"));
}

void TestLogger::linesSurviveSuddenDeath() {
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    QVERIFY(logger_->write(QStringLiteral("before")));  // the file is open from here on
    const pid_t child = fork();
    QVERIFY(child >= 0);
    if (child == 0) {
        logger_->write(QStringLiteral("last words"));
        now_ = now_.addDays(1);
        logger_->write(QStringLiteral("next day"));
        raise(SIGKILL);  // no destructor, no flush, no exit handler runs
        _exit(0);
    }
    int status = 0;
    QCOMPARE(waitpid(child, &status, 0), child);
    QVERIFY(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    QCOMPARE(readAll(logger_->logFilePath()),
             QByteArray("08:05:07.042 before\r\n08:05:07.042 last words\r\n"));
    QCOMPARE(readAll(docs_ + QStringLiteral("/Quelix/Log/2016_03_10.log")),
             QByteArray("08:05:07.042 next day\r\n"));
    // The parent's open file still appends after what the child wrote.
    QVERIFY(logger_->write(QStringLiteral("after")));
    QVERIFY(readAll(logger_->logFilePath()).endsWith("last words\r\n08:05:07.042 after\r\n"));
}

void TestLogger::missingQuelixFolderWritesNothing() {
    const QString bare = docs_ + QStringLiteral("/elsewhere");
    QDir().mkpath(bare);
    Logger logger([&] { return bare; }, [this] { return now_; });
    QVERIFY(!QDir(bare + QStringLiteral("/Quelix")).exists());
    QVERIFY(!logger.write(QStringLiteral("lost")));
    QVERIFY(!QDir(bare + QStringLiteral("/Quelix")).exists());
    QCOMPARE(g_debugLines.last(), QStringLiteral("08:05:07.042 lost"));
}

void TestLogger::streamsAndTraces() {
    {
        LogStream s(logger_.data(), QStringLiteral("count: "));
        s << 3 << QStringLiteral(", id: ") << quint64(18446744073709551615ULL) << ", ok: " << true;
    }
    { LogStream(nullptr, QStringLiteral("nobody hears this")) << "at all"; }
    {
        FunctionTrace trace(logger_.data(), QStringLiteral("OpenIMManager::showChatMsg"));
        logger_->write(QStringLiteral("inside"));
    }
    QCOMPARE(readAll(logger_->logFilePath()),
             QByteArray("08:05:07.042 count: 3, id: 18446744073709551615, ok: true\r\n"
                        "08:05:07.042 --> OpenIMManager::showChatMsg\r\n"
                        "08:05:07.042 inside\r\n"
                        "08:05:07.042 <-- OpenIMManager::showChatMsg\r\n"));
}

void TestLogger::qualifiedNames_data() {
    QTest::addColumn<QString>("pretty");
    QTest::addColumn<QString>("name");
    QTest::newRow("member") << "void OpenIMManager::showChatMsg(bool, const QString&)"
                            << "OpenIMManager::showChatMsg";
    QTest::newRow("template return") << "QMap<int, QString> Store::load(int) const"
                                     << "Store::load";
    QTest::newRow("constructor") << "MainWindow::MainWindow(ConfigStore&, QWidget*)"
                                 << "MainWindow::MainWindow";
    QTest::newRow("call operator") << "void Filter::operator()(int)"
                                   << "Filter::operator()";
}

void TestLogger::qualifiedNames() {
    QFETCH(QString, pretty);
    QFETCH(QString, name);
    QCOMPARE(FunctionTrace::qualifiedName(pretty.toLatin1().constData()), name);
}

void TestLogger::threadsNeverInterleave() {
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    const int threads = 6;
    const int lines = 300;
    QList<QThread*> workers;
    for (int t = 0; t < threads; ++t) {
        workers << QThread::create([this, t] {
            for (int i = 0; i < lines; ++i)
                logger_->write(QStringLiteral("thread %1 line %2 ").arg(t).arg(i) +
                               QString(40, QChar('x' + t % 3)));
        });
        workers.last()->start();
    }
    for (QThread* w : workers) {
        QVERIFY(w->wait(30000));
        delete w;
    }
    const QList<QByteArray> written = readAll(logger_->logFilePath()).split('\n');
    QCOMPARE(written.size(), threads * lines + 1);  // the last split is empty
    QRegularExpression line(
        QStringLiteral("^08:05:07\\.042 thread (\\d) line \\d+ (x{40}|y{40}|z{40})\\r$"));
    for (int i = 0; i < threads * lines; ++i)
        QVERIFY2(line.match(QString::fromLatin1(written.at(i))).hasMatch(),
                 written.at(i).constData());
}

QTEST_GUILESS_MAIN(TestLogger)
#include "tst_logger.moc"
