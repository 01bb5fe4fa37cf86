#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>

#include <functional>

class QNetworkAccessManager;
class QNetworkReply;
class QWidget;

namespace quelix {

// Looks for a newer client and, when the user agrees, hands over to the loader. The
// installed program's version and the framework's are compared with the two versions of
// the update description ("info/ExeVersion", "info/QtVersion"); a newer program with the
// same framework takes the program-only package ("url_minimum"), a newer framework the
// full one ("url_maximum"). Also the small process helpers used around the hand-over.
class TriggerManager : public QObject {
    Q_OBJECT
public:
    enum Decision { UpToDate = 0, UpdateMinimum, UpdateMaximum };

    // appDir empty: the running program's folder.
    explicit TriggerManager(QObject* parent = nullptr, const QString& appDir = QString());

    // Four parts of 8 bits each, most significant first; missing parts are zero.
    static quint32 packVersion(const QString& text);
    // A packed version as people read it ("1.1.10.0").
    static QString versionText(quint32 version);
    // The question put to the user: which version is offered, and which is installed
    // (left out when unknown, 0).
    static QString updateQuestion(quint32 offered, quint32 installed);
    static QString programName();
    static QString loaderName();

    void setSilent(bool silent) { silent_ = silent; }
    bool isSilent() const { return silent_; }
    // The update description's address; the back end's "/update/QX_update.ini" by default.
    void setUpdateUrl(const QString& url) { updateUrl_ = url; }
    const QString& updateUrl() const { return updateUrl_; }
    // Where the description is kept (the Update folder's "QX_update.ini" by default).
    void setIniPath(const QString& path) { iniPath_ = path; }

    void checkUpdate();
    void onUpdateIniDownloaded(QNetworkReply* reply);
    // Reads a saved description and decides, without asking anybody.
    Decision decide(const QString& iniPath);

    static bool openWithShell(const QString& file, const QString& parameters);
    static int terminateProcessesOf(const QString& path);

    quint32 localVersion() const { return localVersion_; }
    quint32 localProductVersion() const { return localProductVersion_; }
    quint32 localCoreVersion() const { return localCoreVersion_; }
    quint32 localCoreProductVersion() const { return localCoreProductVersion_; }
    quint32 remoteVersion() const { return remoteVersion_; }
    quint32 remoteCoreVersion() const { return remoteCoreVersion_; }
    // For tests and the demo: pretend the installed versions are these.
    void setLocalVersions(quint32 program, quint32 core);

    // The user's answers and the hand-over; message boxes over the dialog parent (the
    // main window) and the real loader by default.
    using Asker = std::function<bool(QWidget* parent, const QString& text)>;
    using Informer = std::function<void(QWidget* parent, const QString& text)>;
    void setAsker(Asker ask) { ask_ = std::move(ask); }
    void setInformer(Informer inform) { inform_ = std::move(inform); }
    void setDialogParent(QWidget* parent);
    void setLoaderStarter(std::function<bool(const QString& key)> start) {
        startLoader_ = std::move(start);
    }

    // How the client steps aside for the loader (the application's quit by default).
    void setQuitter(std::function<void()> quit) { quit_ = std::move(quit); }
    // Extra switches for the loader (tests ask it to report on standard error only).
    void setLoaderArguments(const QStringList& args) { loaderArgs_ = args; }

signals:
    // One per check, once it is decided (also when the network failed: UpToDate, ok false).
    void checkFinished(int decision, bool ok);

private:
    bool startLoader(const QString& key);

    QNetworkAccessManager* network_;
    QString appDir_;
    QString updateUrl_;
    QString iniPath_;
    bool silent_ = true;
    bool busy_ = false;
    quint32 localVersion_ = 0;
    quint32 localProductVersion_ = 0;
    quint32 localCoreVersion_ = 0;
    quint32 localCoreProductVersion_ = 0;
    quint32 remoteVersion_ = 0;
    quint32 remoteCoreVersion_ = 0;
    Asker ask_;
    Informer inform_;
    QPointer<QWidget> dialogParent_;
    std::function<bool(const QString&)> startLoader_;
    std::function<void()> quit_;
    QStringList loaderArgs_;
};

}  // namespace quelix
