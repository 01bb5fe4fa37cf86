// Loading and searching the organisation of a company of 100,000 colleagues in 5,000
// departments, as the back end's generator makes it and its organisation address sends it.
#include <httplib.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTextStream>

#include <algorithm>
#include <memory>
#include <vector>

#include "backendserver.h"
#include "benchfigures.h"
#include "database.h"
#include "democompany.h"
#include "directorystore.h"

namespace {

QTextStream out(stdout);

}  // namespace

// Seeds the generated company, asks the back end for its organisation and writes the
// reply to a file. Runs in a child process, so that the measuring process holds nothing
// but the reply when it measures its memory.
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
    // The organisation is only for a signed-in colleague: sign in as its first one.
    const std::string user = DemoCompany::accounts(&db, 1).value(0).toStdString();
    const auto login =
        client.Post("/work/checkIn.htm?m=MobileLogin",
                    "username=" + user + "&password=" + DemoCompany::kPassword + "&client=3",
                    "application/x-www-form-urlencoded");
    const int at = login ? int(login->body.find("\"sessionId\":\"")) : -1;
    if (at < 0) {
        out << "sign-in failed" << Qt::endl;
        return 1;
    }
    const size_t from = size_t(at) + 13;
    const httplib::Headers headers{
        {"Cookie", "QXSESSION=" + login->body.substr(from, login->body.find('"', from) - from)}};
    auto reply = client.Get(
        "/work/mobileUserInfo.htm?m=findAllUserAndDept&userId=10001&companyId=1", headers);
    if (!reply || reply->status != 200) return 1;
    QFile f(file);
    if (!f.open(QIODevice::WriteOnly)) return 1;
    f.write(reply->body.data(), qint64(reply->body.size()));
    server.stop();
    return 0;
}

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (argc == 3 && QByteArray(argv[1]) == "--write-reply")
        return writeReply(QString::fromLocal8Bit(argv[2]));

    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("org.json"));
    QProcess child;
    child.setProcessChannelMode(QProcess::ForwardedChannels);
    child.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--write-reply"), file});
    if (!child.waitForFinished(600000) || child.exitCode() != 0) return 1;
    QFile f(file);
    if (!f.open(QIODevice::ReadOnly)) return 1;
    const QByteArray body = f.readAll();
    out << "org_reply_bytes=" << body.size() << Qt::endl;

    const int rounds = 5;
    // Memory first, in a process that has not parsed anything yet.
    const long before = bench::rssKb();
    auto store = std::make_unique<DirectoryStore>();
    if (!store->load(body)) return 1;
    store->prepareSearch();
    const long after = bench::rssKb();

    std::vector<double> parse;
    for (int i = 0; i < rounds; ++i) {
        QElapsedTimer t;
        t.start();
        const QJsonDocument doc = QJsonDocument::fromJson(body);
        parse.push_back(double(t.nsecsElapsed()) / 1e6);
        if (!doc.isObject()) return 1;
    }

    std::vector<double> load;
    for (int i = 0; i < rounds; ++i) {
        store = std::make_unique<DirectoryStore>();
        QElapsedTimer t;
        t.start();
        if (!store->load(body)) return 1;
        store->prepareSearch();  // parse, build and index
        load.push_back(double(t.nsecsElapsed()) / 1e6);
    }
    if (store->colleagueCount() != 100000 || store->departmentCount() != 5000) {
        out << "unexpected directory: " << store->colleagueCount() << " colleagues, "
            << store->departmentCount() << " departments" << Qt::endl;
        return 1;
    }

    // Names typed a keystroke at a time: real names, then the same people by pinyin.
    std::vector<double> search;
    const auto& all = store->colleaguesInOrder();
    QRandomGenerator random(42);
    for (int person = 0; person < 100; ++person) {
        const DirectoryStore::Colleague* c = all[random.bounded(int(all.size()))];
        for (const QString& name : {c->realName(), c->fullNamePinyin()}) {
            for (int n = 1; n <= name.size(); ++n) {
                QElapsedTimer t;
                t.start();
                const auto hits = store->search(name.left(n));
                search.push_back(double(t.nsecsElapsed()) / 1e6);
                if (n == name.size() && hits.isEmpty()) return 1;
            }
        }
    }

    out << "org_search_keystrokes=" << search.size() << Qt::endl;
    out << "org_search_ms_median=" << QString::number(bench::percentile(search, 0.5), 'f', 2)
        << Qt::endl;
    out << "org_raw_parse_ms=" << qRound(bench::percentile(parse, 0.5)) << Qt::endl;
    out << "org_load_ms=" << qRound(bench::percentile(load, 0.5)) << Qt::endl;
    out << "org_search_ms_p99=" << QString::number(bench::percentile(search, 0.99), 'f', 1)
        << Qt::endl;
    out << "org_rss_kb=" << (after - before) << Qt::endl;
    return 0;
}
