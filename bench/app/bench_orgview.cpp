// The organisation page over a company of 100,000 colleagues in 5,000 departments (the
// back end's generator, its organisation address), and a tribe of 2,000 members.
#include <httplib.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QListWidget>
#include <QProcess>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QTextStream>

#include <memory>
#include <vector>

#include "allmembertree.h"
#include "avatarmanager.h"
#include "avatarpixmapcache.h"
#include "backendserver.h"
#include "benchfigures.h"
#include "configstore.h"
#include "database.h"
#include "democompany.h"
#include "directorystore.h"
#include "orgnizationview.h"
#include "orgtreemodel.h"
#include "resources.h"
#include "tribeconverview.h"
#include "tribememberview.h"

namespace {
QTextStream out(stdout);

double msSince(const QElapsedTimer& t) { return double(t.nsecsElapsed()) / 1e6; }

// Runs in a child process, so that the measuring process holds nothing of the server.
int writeReply(const QString& file) {
    QTemporaryDir dir;
    QString error;
    Database db(QStringLiteral("sqlite:%1/org.db").arg(dir.path()));
    if (!db.createSchema() || !DemoCompany::seedGenerated(&db, 100000, 5000, 1, &error)) {
        out << "seeding failed: " << error << Qt::endl;
        return 1;
    }
    BackendServer::Options options;
    options.filesDir = dir.filePath(QStringLiteral("attachments"));
    BackendServer server(&db, options);
    if (!server.start(QStringLiteral("127.0.0.1"), 0)) return 1;
    httplib::Client client("127.0.0.1", server.port());
    client.set_read_timeout(60, 0);
    // The organisation is given to a signed-in colleague only.
    const QString user = DemoCompany::accounts(&db, 1).value(0);
    auto login = client.Post(
        "/work/checkIn.htm?m=MobileLogin",
        "username=" + user.toStdString() + "&password=" + DemoCompany::kPassword + "&client=3",
        "application/x-www-form-urlencoded");
    if (!login || login->status != 200) return 1;
    const QJsonObject signedIn = QJsonDocument::fromJson(QByteArray::fromStdString(login->body))
                                     .object()
                                     .value(QStringLiteral("results"))
                                     .toObject();
    const std::string session =
        signedIn.value(QStringLiteral("sessionId")).toString().toStdString();
    const std::string userId = signedIn.value(QStringLiteral("id")).toString().toStdString();
    auto reply = client.Get(
        ("/work/mobileUserInfo.htm?m=findAllUserAndDept&userId=" + userId + "&companyId=1").c_str(),
        {{"Cookie", "QXSESSION=" + session}});
    if (!reply || reply->status != 200) return 1;
    QFile f(file);
    if (!f.open(QIODevice::WriteOnly)) return 1;
    f.write(reply->body.data(), qint64(reply->body.size()));
    server.stop();
    return 0;
}

// Opens departments breadth first until at least `rows` rows are visible.
int expandUntil(AllMemberTree* tree, int rows) {
    OrgTreeModel* model = tree->orgModel();
    QVector<QModelIndex> queue;
    for (int r = 0; r < model->rowCount(); ++r) queue.append(model->index(r, 0));
    int visible = model->rowCount();
    while (!queue.isEmpty() && visible < rows) {
        const QModelIndex d = queue.takeFirst();
        if (!model->departmentAt(d)) continue;
        tree->expand(d);
        const int n = model->rowCount(d);
        visible += n;
        for (int r = 0; r < n; ++r) queue.append(model->index(r, 0, d));
    }
    return visible;
}

QByteArray membersReply(const DirectoryStore& store, int n) {
    QJsonArray list;
    const auto& all = store.colleaguesInOrder();
    for (int i = 0; i < n && i < int(all.size()); ++i)
        list.append(QJsonObject{{"id", all[i]->id()},
                                {"realName", all[i]->realName()},
                                {"userIcon", all[i]->userIcon()},
                                {"section", all[i]->section()}});
    return QJsonDocument(
               QJsonObject{{"errorCode", 0}, {"results", QJsonObject{{"userList", list}}}})
        .toJson(QJsonDocument::Compact);
}
}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && QByteArray(argv[1]) == "--write-reply") {
        QCoreApplication app(argc, argv);
        return writeReply(QString::fromLocal8Bit(argv[2]));
    }
    QApplication app(argc, argv);
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("org.json"));
    QProcess child;
    child.setProcessChannelMode(QProcess::ForwardedChannels);
    child.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--write-reply"), file});
    if (!child.waitForFinished(600000) || child.exitCode() != 0) return 1;
    QByteArray body;
    {
        QFile f(file);
        if (!f.open(QIODevice::ReadOnly)) return 1;
        body = f.readAll();
    }
    quelixInitResources();
    ConfigStore::instance().init();
    DirectoryStore store;
    if (!store.load(body) || store.colleagueCount() != 100000 || store.departmentCount() != 5000) {
        out << "unexpected directory" << Qt::endl;
        return 1;
    }
    body.clear();
    body.squeeze();
    store.setSelfId(store.colleaguesInOrder().front()->id());
    // Nobody answers these: pictures stay placeholders, as on a first start.
    quelix::AvatarManager avatars(dir.filePath(QStringLiteral("avatars")));
    {
        // Warm the widget machinery (style, fonts) on something else, so that the page's
        // figure is the page's.
        QWidget warm;
        warm.show();
        QCoreApplication::processEvents();
    }

    // From the loaded directory to the page on screen with its top level painted.
    const long before = bench::rssKb();
    QElapsedTimer t;
    t.start();
    auto cache = std::make_unique<AvatarPixmapCache>(&store, &avatars);
    auto page = std::make_unique<OrgnizationView>(nullptr, &store, cache.get());
    page->resize(900, 640);
    page->show();
    QCoreApplication::processEvents();
    page->tree()->viewport()->repaint();
    const double buildMs = msSince(t);

    // Scrolling through 2,000 expanded rows, one frame per step of three rows.
    AllMemberTree* tree = page->tree();
    const int rows = expandUntil(tree, 2000);
    QCoreApplication::processEvents();
    std::vector<double> frames;
    QScrollBar* bar = tree->verticalScrollBar();
    for (int y = 0; y <= bar->maximum() && frames.size() < 2000; y += 3 * 36) {
        QElapsedTimer frame;
        frame.start();
        bar->setValue(y);
        tree->viewport()->repaint();
        frames.push_back(msSince(frame));
    }
    QCoreApplication::processEvents();
    const long after = bench::rssKb();

    // A 2,000-member tribe: the back end's reply read and the list painted.
    const QByteArray reply = membersReply(store, 2000);
    store.setTribes({{"900", "大项目", "1", store.colleaguesInOrder()[5]->id(), "", false}});
    TribeConverView tribes(nullptr, &store, cache.get());
    tribes.setMemberFetcher([&reply](const QString&, auto done) {
        TribeMembers members;
        QString error;
        const bool ok = TribeConverView::parseMembers(reply, &members, &error);
        done(ok, members, error);
    });
    tribes.resize(900, 640);
    tribes.show();
    tribes.setLoadingTribes(false);
    QCoreApplication::processEvents();
    std::vector<double> tribeMs;
    for (int round = 0; round < 5; ++round) {
        tribes.memberView()->clearTribe();
        QCoreApplication::processEvents();
        QElapsedTimer m;
        m.start();
        tribes.tribeList()->setCurrentRow(-1);
        tribes.tribeList()->setCurrentRow(0);
        tribes.memberView()->repaint();
        tribeMs.push_back(msSince(m));
        if (tribes.memberView()->memberCount() != 2000) {
            out << "tribe list has " << tribes.memberView()->memberCount() << Qt::endl;
            return 1;
        }
    }

    out << "orgview_build_ms=" << QString::number(buildMs, 'f', 1) << Qt::endl;
    out << "orgview_scroll_rows=" << rows << Qt::endl;
    out << "orgview_scroll_frames=" << frames.size() << Qt::endl;
    out << "orgview_scroll_p99_ms=" << QString::number(bench::percentile(frames, 0.99), 'f', 2)
        << Qt::endl;
    out << "orgview_rss_kb=" << (after - before) << Qt::endl;
    out << "orgview_avatar_requests=" << cache->requested() << Qt::endl;
    out << "tribe_members_2000_ms=" << QString::number(bench::percentile(tribeMs, 0.5), 'f', 1)
        << Qt::endl;
    out << "tribe_member_widgets=" << tribes.memberView()->poolSize() << Qt::endl;
    return 0;
}
