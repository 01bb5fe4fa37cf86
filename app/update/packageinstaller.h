#pragma once

#include <QString>
#include <QStringList>

// The loader's round: download the package the update description names under a key,
// check its size and SHA-256, end the running copies, unpack it beside the installed
// folder, swap the two, start the new client and only then drop the old folder. Any
// failure leaves (or puts back) the old client and starts it again.
class PackageInstaller {
public:
    struct Options {
        QString iniPath;     // the saved update description
        QString key;         // "url_maximum" or "url_minimum"
        QString installDir;  // the folder holding the program
        QString workDir;     // where the download is kept; the description's folder if empty
        bool startClient = true;
        int stallTimeoutMs = 30000;  // a download that receives nothing this long fails
    };

    explicit PackageInstaller(const Options& options);

    // The whole round; false with error() set when the old client was kept.
    bool run();
    const QString& error() const { return error_; }
    // The installed program's file name on this platform.
    static QString programName();
    // Starts the client in folder, detached from the loader.
    static bool startProgram(const QString& folder);

private:
    bool fail(const QString& text);
    bool download(const QString& url, qint64 size, const QByteArray& sha256, const QString& to);
    bool unpack(const QString& package, const QString& stage);
    QString findProgramFolder(const QString& root) const;

    Options options_;
    QString error_;
};
