#include "logger.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QMessageLogger>
#include <QMutexLocker>
#include <QStandardPaths>
#include <QTextStream>

Logger& Logger::instance() {
    static Logger logger;
    return logger;
}

Logger::Logger(FolderSource documentsFolder, Clock clock)
    : documentsFolder_(documentsFolder ? std::move(documentsFolder) : defaultDocumentsFolder),
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

bool Logger::write(const QString& text) {
    QMutexLocker locker(&mutex_);
    const QDateTime now = clock_();
    const QString line = now.time().toString(QStringLiteral("hh:mm:ss.zzz ")) + text;
    QMessageLogger(nullptr, 0, nullptr).debug().noquote() << line;

    // The folder and name are worked out again for every line: the day may have changed.
    QFile file(logFolder() + QLatin1Char('/') +
               now.date().toString(QStringLiteral("yyyy_MM_dd.log")));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Append)) return false;
    QTextStream out(&file);
    out << line << "\r\n";
    out.flush();
    return out.status() == QTextStream::Ok;
}
