// Measures the room keeper against a private Prosody: bringing the rooms of 500 projects
// (10 members each) onto the server, checking them again when nothing changed (what every
// reconnect costs), and how soon one membership change is applied to the live room.
#include "database.h"
#include "democompany.h"
#include "directory.h"
#include "roomkeeper.h"
#include "support/prosody_server.h"

#include "benchfigures.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTextStream>
#include <QThread>

namespace {

constexpr int kProjects = 500;
constexpr int kMembers = 10;
constexpr int kChanges = 100;

QTextStream out(stdout);

// Milliseconds until every room is ready, -1 after a minute.
qint64 untilReady(RoomKeeper& keeper, const QList<qint64>& ids) {
    QElapsedTimer clock;
    clock.start();
    for (qint64 id : ids) {
        while (keeper.state(id) != RoomQueue::State::Ready) {
            if (clock.elapsed() > 60000) return -1;
            QThread::msleep(2);
        }
    }
    return clock.elapsed();
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ProsodyServer prosody;
    if (!prosody.start()) {
        out << "prosody: " << prosody.lastError() << Qt::endl;
        return 1;
    }
    QTemporaryDir dir;
    Database db(QStringLiteral("sqlite:") + dir.filePath(QStringLiteral("directory.db")));
    QString error;
    if (!db.createSchema() || !DemoCompany::seedGenerated(&db, 1000, 50, 1, &error)) {
        out << "seeding failed: " << error << Qt::endl;
        return 1;
    }
    QList<qint64> users;
    QSqlQuery q(db.connection());
    q.exec(QStringLiteral("SELECT id, company_id FROM users ORDER BY id"));
    qint64 company = 0;
    while (q.next()) {
        users << q.value(0).toLongLong();
        company = q.value(1).toLongLong();
    }
    QList<qint64> projects;
    db.connection().transaction();
    for (int p = 0; p < kProjects; ++p) {
        const qint64 id = 900001 + p;
        projects << id;
        q.prepare(
            QStringLiteral("INSERT INTO project (id, company_id, title, owner_id,"
                           " date_created) VALUES (?, ?, ?, ?, '')"));
        q.addBindValue(id);
        q.addBindValue(company);
        q.addBindValue(QStringLiteral("项目 %1").arg(p));
        q.addBindValue(users[p % users.size()]);
        q.exec();
        for (int m = 0; m < kMembers; ++m) {
            q.prepare(QStringLiteral("INSERT INTO project_member VALUES (?, ?)"));
            q.addBindValue(id);
            q.addBindValue(users[(p + m * 37) % users.size()]);
            q.exec();
        }
    }
    db.connection().commit();

    RoomKeeper::Settings settings;
    settings.host = prosody.host();
    settings.caFile = prosody.caFile();
    settings.port = prosody.port();
    settings.domain = prosody.domain();
    settings.adminJid = prosody.adminJid();
    settings.adminSecret = prosody.adminSecret();
    RoomKeeper keeper(&db, settings);
    keeper.start();
    const qint64 created = untilReady(keeper, projects);
    keeper.stop();
    keeper.start();
    const qint64 unchanged = untilReady(keeper, projects);

    // One colleague joins a project; how long until its room knows.
    Directory directory(&db, QString());
    std::vector<double> applied;
    for (int i = 0; i < kChanges; ++i) {
        const qint64 project = projects[i * 3];
        const qint64 user = users[(i * 7 + 500) % users.size()];
        QElapsedTimer clock;
        clock.start();
        directory.addMembers(project, {user});
        keeper.projectChanged(project);
        if (untilReady(keeper, {project}) < 0) break;
        applied.push_back(double(clock.nsecsElapsed()) / 1e6);
    }
    keeper.stop();

    out << "rooms_create_500_ms=" << created << Qt::endl;
    out << "rooms_check_500_unchanged_ms=" << unchanged << Qt::endl;
    out << "room_change_applied_p50_ms=" << bench::percentile(applied, 0.5) << Qt::endl;
    out << "room_change_applied_p95_ms=" << bench::percentile(applied, 0.95) << Qt::endl;
    return created < 0 || unchanged < 0 || int(applied.size()) != kChanges ? 1 : 0;
}
