// Measures provisioning colleagues' IM accounts on the dev stack's ejabberd through its HTTP
// API, as the back end does at every start: 1,000 new accounts, each also made a member of
// the colleagues' shared roster group; the same 1,000 again (a restart on kept data: every
// secret is reset, nobody joins the group twice); and 1,000 more without the group, to show
// what the roster group costs (each new member is pushed to every member's roster).
#include "ejabberdapiprovisioner.h"
#include "support/prosody_server.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTextStream>

namespace {

constexpr int kAccounts = 1000;

QTextStream out(stdout);

QVector<ImProvisioner::Account> accounts(int first) {
    QVector<ImProvisioner::Account> list;
    for (int i = 0; i < kAccounts; ++i)
        list.append({QString::number(first + i), QStringLiteral("secret-%1").arg(first + i)});
    return list;
}

// Milliseconds to provision `list`, -1 after saying why it failed.
qint64 timed(EjabberdApiProvisioner& provisioner, const QVector<ImProvisioner::Account>& list) {
    QElapsedTimer clock;
    clock.start();
    QString error;
    if (!provisioner.provision(list, &error)) {
        out << "provisioning failed: " << error << Qt::endl;
        return -1;
    }
    return clock.elapsed();
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    qputenv("QUELIX_XMPP_SERVER", "ejabberd");
    ProsodyServer server;
    if (!server.start()) {
        out << "ejabberd: " << server.lastError() << Qt::endl;
        return 1;
    }
    EjabberdApiProvisioner::Settings settings;
    settings.api = QUrl(server.apiUrl());
    settings.domain = server.domain();
    settings.adminJid = server.adminJid();
    settings.adminSecret = server.adminSecret();
    settings.caFile = server.caFile();
    settings.rosterGroup = server.rosterGroup();
    EjabberdApiProvisioner withGroup(settings);
    settings.rosterGroup.clear();
    EjabberdApiProvisioner withoutGroup(settings);

    const qint64 fresh = timed(withGroup, accounts(20001));
    const qint64 again = timed(withGroup, accounts(20001));
    const qint64 plain = timed(withoutGroup, accounts(40001));
    if (fresh < 0 || again < 0 || plain < 0) return 1;
    out << "ejabberd_provision_1000_ms=" << fresh << Qt::endl;
    out << "ejabberd_reprovision_1000_ms=" << again << Qt::endl;
    out << "ejabberd_provision_1000_no_roster_group_ms=" << plain << Qt::endl;
    return 0;
}
