#include "prosody_server.h"

#include <QDir>
#include <QDirIterator>
#include <QProcess>

#ifndef QUELIX_DEVSTACK_DIR
#error "QUELIX_DEVSTACK_DIR must name the devstack folder"
#endif

QString ProsodyServer::kind() {
    const QString chosen = QString::fromLocal8Bit(qgetenv("QUELIX_XMPP_SERVER")).trimmed();
    return chosen.isEmpty() ? QStringLiteral("prosody") : chosen.toLower();
}

ProsodyServer::ProsodyServer() : kind_(kind()) {
    const QByteArray tmp = qgetenv("QUELIX_TEST_TMP");
    root_ = std::make_unique<QTemporaryDir>(tmp.isEmpty()
                                                ? QString()
                                                : QString::fromLocal8Bit(tmp) + QLatin1Char('/') +
                                                      kind() + QStringLiteral("-XXXXXX"));
    dir_ = root_->path() + QStringLiteral("/instance");
}

ProsodyServer::~ProsodyServer() {
    if (running_) run({QStringLiteral("stop")});
}

bool ProsodyServer::run(const QStringList& args, QString* out) {
    // The server this object started, whatever QUELIX_XMPP_SERVER says by now.
    const QString& server = kind_;
    if (server != QLatin1String("prosody") && server != QLatin1String("ejabberd")) {
        error_ = QStringLiteral("QUELIX_XMPP_SERVER=%1: use prosody or ejabberd").arg(server);
        return false;
    }
    QProcess p;
    p.start(QStringLiteral(QUELIX_DEVSTACK_DIR "/") + server + QStringLiteral("-dev"),
            QStringList{QStringLiteral("-d"), dir_} + args);
    // An Erlang node takes a few seconds to start, more on a busy machine.
    if (!p.waitForFinished(120000) || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0) {
        error_ = QString::fromLocal8Bit(p.readAllStandardError());
        return false;
    }
    if (out) *out = QString::fromLocal8Bit(p.readAllStandardOutput());
    return true;
}

bool ProsodyServer::startCluster(int nodes) {
    if (kind_ != QLatin1String("ejabberd")) {
        error_ = QStringLiteral("a cluster needs QUELIX_XMPP_SERVER=ejabberd");
        return false;
    }
    return start(false, nodes);
}

bool ProsodyServer::start(bool plain) { return start(plain, 1); }

bool ProsodyServer::start(bool plain, int nodes) {
    QString out;
    QStringList args{nodes > 1 ? QStringLiteral("cluster") : QStringLiteral("start")};
    if (nodes > 1) args << QString::number(nodes);
    if (plain) args << QStringLiteral("--plain");
    if (!run(args, &out)) return false;
    nodePorts_.clear();
    nodePids_.clear();
    running_ = true;
    for (const QString& line : out.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const QString key = line.section(QLatin1Char('='), 0, 0);
        const QString value = line.section(QLatin1Char('='), 1);
        if (key == QLatin1String("XMPP_HOST")) host_ = value;
        if (key == QLatin1String("XMPP_PORT")) port_ = quint16(value.toUInt());
        if (key == QLatin1String("XMPP_DOMAIN")) domain_ = value;
        if (key == QLatin1String("XMPP_ADMIN_JID")) adminJid_ = value;
        if (key == QLatin1String("XMPP_ADMIN_SECRET")) adminSecret_ = value;
        if (key == QLatin1String("XMPP_CA_FILE")) caFile_ = value;
        if (key == QLatin1String("TLS_CERT_FILE")) certFile_ = value;
        if (key == QLatin1String("TLS_KEY_FILE")) keyFile_ = value;
        if (key == QLatin1String("XMPP_API_URL")) apiUrl_ = value;
        if (key == QLatin1String("XMPP_ROSTER_GROUP")) rosterGroup_ = value;
        if (key == QLatin1String("XMPP_PORTS"))
            for (const QString& p : value.split(QLatin1Char(',')))
                nodePorts_ << quint16(p.toUInt());
        if (key == QLatin1String("QUELIX_EJABBERD_PIDS"))
            for (const QString& p : value.split(QLatin1Char(','))) nodePids_ << p.toLongLong();
    }
    return port_ != 0 && !domain_.isEmpty();
}

bool ProsodyServer::stopKeepingData() {
    if (!run({QStringLiteral("stop"), QStringLiteral("--keep")})) return false;
    running_ = false;
    return true;
}

bool ProsodyServer::wipeArchives() {
    if (running_) return false;
    if (kind_ == QLatin1String("ejabberd")) return run({QStringLiteral("wipe-archives")});
    // The file store keeps one folder per store and host: "archive" for the accounts,
    // "muc_log" for the rooms.
    QStringList found;
    QDirIterator it(dataDir(), {QStringLiteral("archive"), QStringLiteral("muc_log")},
                    QDir::Dirs | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (it.hasNext()) found << it.next();
    for (const QString& dir : found)
        if (!QDir(dir).removeRecursively()) return false;
    return !found.isEmpty();
}

QStringList ProsodyServer::provisionArguments() const {
    if (kind_ == QLatin1String("ejabberd"))
        return {QStringLiteral("--ejabberd-api"),
                apiUrl_,
                QStringLiteral("--ejabberd-roster-group"),
                rosterGroup_,
                QStringLiteral("--im-admin-jid"),
                adminJid_,
                QStringLiteral("--im-admin-secret-file"),
                adminSecretFile(),
                QStringLiteral("--im-ca-file"),
                caFile_};
    return {QStringLiteral("--prosody-data"), dataDir()};
}

bool ProsodyServer::registerUser(const QString& user, const QString& secret) {
    return run({QStringLiteral("register"), user, secret});
}

bool ProsodyServer::announce(const QString& user, const QString& text) {
    return run({QStringLiteral("announce"), user, text});
}

bool ProsodyServer::forgetOccupant(const QString& room, const QString& nick) {
    return run({QStringLiteral("forget-occupant"), room, nick});
}
