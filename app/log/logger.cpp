#include "logger.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <QMessageLogger>
#include <QMutexLocker>
#include <QStandardPaths>

Logger& Logger::instance() {
    static Logger logger;
    return logger;
}

Logger::Logger(FolderSource documentsFolder, Clock clock)
    : systemClock_(!clock),
      documentsFolder_(documentsFolder ? std::move(documentsFolder) : defaultDocumentsFolder),
      clock_(clock ? std::move(clock) : [] { return QDateTime::currentDateTime(); }) {
    // One level only: without <Documents>/Quelix the log stays off rather than
    // creating a folder tree the configuration store has not laid out.
    const QString folder = logFolder();
    if (!QDir(folder).exists()) QDir().mkdir(folder);
}

QString Logger::defaultDocumentsFolder() {
    const QStringList docs = QStandardPaths::standardLocations(QStandardPaths::DocumentsLocation);
    return docs.isEmpty() ? QString() : docs.first();
}

QString Logger::logFolder() const { return documentsFolder_() + QStringLiteral("/Quelix/Log"); }

QString Logger::logFilePath() const {
    return logFolder() + QLatin1Char('/') +
           clock_().date().toString(QStringLiteral("yyyy_MM_dd.log"));
}

bool Logger::openFor(const QDate& day) {
    if (file_.isOpen() && fileDay_ == day) return true;
    file_.close();
    file_.setFileName(logFolder() + QLatin1Char('/') +
                      day.toString(QStringLiteral("yyyy_MM_dd.log")));
    // Unbuffered: Qt keeps nothing back, every write() below is one system call.
    if (!file_.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered)) {
        fileDay_ = QDate();
        return false;
    }
    fileDay_ = day;
    return true;
}

// "hh:mm:ss.zzz " of now, and today's date. Lines come in bursts: the local time of a
// second is worked out once, and the lines within it only add their milliseconds.
QString Logger::stamp(QDate* day) {
    if (!systemClock_) {
        const QDateTime now = clock_();
        *day = now.date();
        return now.time().toString(QStringLiteral("hh:mm:ss.zzz "));
    }
    const qint64 ms = QDateTime::currentMSecsSinceEpoch();
    const qint64 second = ms / 1000;
    if (second != stampSecond_) {
        const QDateTime local = QDateTime::fromMSecsSinceEpoch(second * 1000);
        stampSecond_ = second;
        stampDay_ = local.date();
        stampPrefix_ = local.time().toString(QStringLiteral("hh:mm:ss."));
    }
    *day = stampDay_;
    const int milli = int(ms % 1000);
    QString out = stampPrefix_;
    out.append(QLatin1Char('0' + milli / 100));
    out.append(QLatin1Char('0' + milli / 10 % 10));
    out.append(QLatin1Char('0' + milli % 10));
    out.append(QLatin1Char(' '));
    return out;
}

bool Logger::write(const QString& text) {
    QMutexLocker locker(&mutex_);
    QDate day;
    const QString line = stamp(&day) + text;
    // The framework would drop the echo itself when debug output is off; asking first
    // spares building it for every line.
    const QLoggingCategory* echo = QLoggingCategory::defaultCategory();
    if (!echo || echo->isDebugEnabled())
        QMessageLogger(nullptr, 0, nullptr).debug().noquote() << line;

    // A file that failed to open is tried again on the next line, so a log folder that
    // comes back (a network Documents folder, say) is written to again.
    if (!openFor(day)) return false;
    const QByteArray bytes = line.toUtf8() + "\r\n";
    if (file_.write(bytes) == bytes.size()) return true;
    // A failed write (disk full, file gone bad) closes the file so the next line reopens it.
    file_.close();
    return false;
}
