// Measures the back end over loopback HTTP: the organisation reply of a company of 100,000
// colleagues in 5,000 departments, and log-ins per second at the production hashing cost.
#include "backendserver.h"
#include "database.h"
#include "democompany.h"
#include "passwordhasher.h"

#include <httplib.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTextStream>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

namespace {

QTextStream out(stdout);

bool startServer(QTemporaryDir& dir, Database& db, std::unique_ptr<BackendServer>& server) {
    BackendServer::Options options;
    options.filesDir = dir.filePath(QStringLiteral("attachments"));
    server = std::make_unique<BackendServer>(&db, options);
    return server->start(QStringLiteral("127.0.0.1"), 0);
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    if (!dir.isValid()) return 1;
    QString error;

    // Organisation reply. The accounts are seeded with a token hashing cost: the reply does
    // not depend on it, and 100,000 full-cost hashes would take most of an hour.
    qint64 orgMs = 0;
    qint64 orgBytes = 0;
    {
        Database db(QStringLiteral("sqlite:%1/org.db").arg(dir.path()));
        if (!db.createSchema()) return 1;
        QElapsedTimer seed;
        seed.start();
        if (!DemoCompany::seedGenerated(&db, 100000, 5000, 1, &error)) {
            out << "seeding failed: " << error << Qt::endl;
            return 1;
        }
        out << "seed_100k_ms=" << seed.elapsed() << Qt::endl;
        std::unique_ptr<BackendServer> server;
        if (!startServer(dir, db, server)) return 1;
        // The organisation is only for a signed-in colleague: sign in as its first one.
        std::string cookie;
        {
            httplib::Client login("127.0.0.1", server->port());
            const std::string user = DemoCompany::accounts(&db, 1).value(0).toStdString();
            const auto r =
                login.Post("/work/checkIn.htm?m=MobileLogin",
                           "username=" + user + "&password=" + DemoCompany::kPassword + "&client=3",
                           "application/x-www-form-urlencoded");
            const int at = r ? int(r->body.find("\"sessionId\":\"")) : -1;
            if (at < 0) {
                out << "sign-in failed" << Qt::endl;
                return 1;
            }
            const size_t from = size_t(at) + 13;
            cookie = "QXSESSION=" + r->body.substr(from, r->body.find('"', from) - from);
        }
        const std::string path =
            "/work/mobileUserInfo.htm?m=findAllUserAndDept&userId=10001&companyId=1";
        // The client's network stack asks for gzip and inflates the reply; time it that way
        // (inflating included), and also plain.
        auto median = [&](bool gzip, qint64* bytes, qint64* first) -> qint64 {
            httplib::Client client("127.0.0.1", server->port());
            client.set_read_timeout(120, 0);
            httplib::Headers headers{{"Cookie", cookie}};
            if (!gzip) headers.emplace("Accept-Encoding", "identity");
            std::vector<qint64> times;
            for (int i = 0; i < 6; ++i) {
                QElapsedTimer t;
                t.start();
                const auto r = client.Get(path, headers);
                const qint64 ms = t.elapsed();
                if (!r || r->status != 200 || r->body.compare(0, 14, "{\"errorCode\":0") != 0)
                    return -1;
                *bytes = qint64(r->body.size());
                if (i == 0 && first) {
                    *first = ms;
                } else {
                    times.push_back(ms);
                }
            }
            std::sort(times.begin(), times.end());
            return times[times.size() / 2];
        };
        qint64 first = 0;
        qint64 plainBytes = 0;
        const qint64 plainMs = median(false, &plainBytes, &first);
        out << "org_reply_100k_first_ms=" << first << Qt::endl;  // builds the cache
        out << "org_reply_100k_plain_ms=" << plainMs << Qt::endl;
        httplib::Client raw("127.0.0.1", server->port());
        raw.set_decompress(false);
        raw.set_read_timeout(120, 0);
        const auto wire = raw.Get(path, {{"Cookie", cookie}, {"Accept-Encoding", "gzip"}});
        if (!wire) return 1;
        out << "org_reply_100k_gzip_bytes=" << wire->body.size() << Qt::endl;
        orgMs = median(true, &orgBytes, nullptr);
        if (orgMs < 0 || plainMs < 0) {
            out << "organisation request failed" << Qt::endl;
            return 1;
        }
        server->stop();
    }

    // Log-ins at the default cost, from four clients at once.
    double loginsPerSecond = 0;
    {
        Database db(QStringLiteral("sqlite:%1/login.db").arg(dir.path()));
        if (!db.createSchema() ||
            !DemoCompany::seedGenerated(&db, 16, 2, PasswordHasher::kDefaultIterations, &error)) {
            out << "seeding failed: " << error << Qt::endl;
            return 1;
        }
        const QStringList accounts = DemoCompany::accounts(&db, 16);
        std::unique_ptr<BackendServer> server;
        if (!startServer(dir, db, server)) return 1;
        std::atomic<int> done{0};
        std::atomic<int> failed{0};
        QElapsedTimer t;
        t.start();
        std::vector<std::thread> clients;
        for (int c = 0; c < 4; ++c) {
            clients.emplace_back([&, c] {
                httplib::Client client("127.0.0.1", server->port());
                for (int i = 0; t.elapsed() < 3000; ++i) {
                    const QString user = accounts[(c * 4 + i) % accounts.size()];
                    const auto r = client.Post("/work/checkIn.htm?m=MobileLogin",
                                               "username=" + user.toStdString() + "&password=" +
                                                   DemoCompany::kPassword + "&client=3",
                                               "application/x-www-form-urlencoded");
                    if (r && r->body.compare(0, 14, "{\"errorCode\":0") == 0) {
                        ++done;
                    } else {
                        ++failed;
                    }
                }
            });
        }
        for (auto& th : clients) th.join();
        loginsPerSecond = done.load() * 1000.0 / double(t.elapsed());
        if (failed.load() > 0) {
            out << "log-ins failed: " << failed.load() << Qt::endl;
            return 1;
        }
        server->stop();
    }

    out << "org_reply_100k_ms=" << orgMs << Qt::endl;
    out << "org_reply_100k_bytes=" << orgBytes << Qt::endl;
    out << "login_per_s=" << qRound(loginsPerSecond) << Qt::endl;
    return 0;
}
