// The quelix-backend program under load, measured from this second process: a mixed load of
// 50 clients, a normal client's latency while 500 connections trickle a byte a second, and
// the back end's peak memory while 50 clients fetch a 100,000-colleague organisation at once.
#include "benchfigures.h"

#include <httplib.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTextStream>
#include <QUrl>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

namespace {

QTextStream out(stdout);

struct Backend {
    QProcess process;
    int port = 0;

    bool start(const QStringList& args) {
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.start(QStringLiteral(QUELIX_BACKEND_BIN), args);
        QByteArray seen;
        QElapsedTimer clock;
        clock.start();
        while (!seen.contains("listening on http://") && clock.elapsed() < 300000) {
            if (!process.waitForReadyRead(200) && process.state() == QProcess::NotRunning)
                return false;
            seen += process.readAllStandardOutput();
        }
        const int at = seen.indexOf("http://");
        if (at < 0) return false;
        port =
            QUrl(QString::fromLatin1(seen.mid(at, seen.indexOf('\n', at) - at).trimmed())).port();
        return port > 0;
    }
    long rssKb() const {
        QFile status(QStringLiteral("/proc/%1/status").arg(process.processId()));
        if (!status.open(QIODevice::ReadOnly)) return 0;
        for (const QByteArray& line : status.readAll().split('\n'))
            if (line.startsWith("VmRSS:")) return line.mid(6).trimmed().split(' ').first().toLong();
        return 0;
    }
    ~Backend() {
        process.terminate();
        if (!process.waitForFinished(20000)) process.kill();
        process.waitForFinished(5000);
    }
};

QStringList accounts(const QStringList& seedArgs, int n) {
    QProcess p;
    p.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    p.start(QStringLiteral(QUELIX_BACKEND_BIN),
            seedArgs + QStringList{QStringLiteral("--print-accounts"), QString::number(n)});
    if (!p.waitForFinished(600000)) return {};
    QStringList names;
    for (const QByteArray& line : p.readAllStandardOutput().split('\n'))
        if (!line.trimmed().isEmpty())
            names << QString::fromUtf8(line.trimmed().split(' ').first());
    return names;
}

QJsonObject envelope(const httplib::Result& r) {
    return r ? QJsonDocument::fromJson(QByteArray::fromStdString(r->body)).object() : QJsonObject();
}

bool succeeded(const httplib::Result& r) {
    return r && r->status == 200 && r->body.compare(0, 14, "{\"errorCode\":0") == 0;
}

struct Session {
    std::string cookie;
    std::string userId;
    std::string companyId;
};

bool logIn(httplib::Client& c, const QString& user, Session* s) {
    const auto r = c.Post("/work/checkIn.htm?m=MobileLogin",
                          "username=" + user.toStdString() + "&password=quelix123&client=3",
                          "application/x-www-form-urlencoded");
    if (!succeeded(r)) return false;
    const QJsonObject u = envelope(r)["results"].toObject();
    s->cookie = "QXSESSION=" + u["sessionId"].toString().toStdString();
    s->userId = u["id"].toString().toStdString();
    s->companyId = u["companyId"].toString().toStdString();
    return true;
}

// 50 clients, 10,000 requests: each client signs in, loads the organisation (gzip, as the
// client's network stack asks), then looks up colleagues, its projects, one project and its
// members, signing in again (and reloading the organisation) every 50 requests.
bool mixed(const QString& data) {
    const QStringList users =
        accounts({QStringLiteral("--data-dir"), data, QStringLiteral("--seed-demo")}, 50);
    Backend backend;
    if (users.size() < 50 || !backend.start({QStringLiteral("--data-dir"), data,
                                             QStringLiteral("--port"), QStringLiteral("0")}))
        return false;
    std::mutex mutex;
    std::vector<double> latencies;
    std::atomic<int> errors{0};
    QElapsedTimer wall;
    wall.start();
    std::vector<std::thread> clients;
    for (int c = 0; c < 50; ++c) {
        clients.emplace_back([&, c] {
            httplib::Client client("127.0.0.1", backend.port);
            client.set_read_timeout(60, 0);
            Session s;
            std::string projectId = "50001";
            std::vector<double> mine;
            for (int i = 0; i < 200; ++i) {
                QElapsedTimer t;
                t.start();
                bool ok = false;
                const int step = i % 50;
                const httplib::Headers as{{"Cookie", s.cookie}};
                if (step == 0) {
                    ok = logIn(client, users[c], &s);
                } else if (step == 1) {
                    const auto r = client.Get(
                        "/work/mobileUserInfo.htm?m=findAllUserAndDept&userId=" + s.userId +
                            "&companyId=" + s.companyId,
                        {{"Cookie", s.cookie}, {"Accept-Encoding", "gzip"}});
                    ok = succeeded(r);
                } else if (step % 4 == 0) {
                    ok = succeeded(client.Get(
                        "/work/mobileUserInfo.htm?m=findSomeOne&manyUserIds=10001,10002,10003," +
                            std::to_string(10004 + (i % 200)),
                        as));
                } else if (step % 4 == 1) {
                    const auto r = client.Get("/work/project.htm?m=myProjectList", as);
                    ok = succeeded(r);
                    const QJsonArray list =
                        envelope(r)["results"].toObject()["projectList"].toArray();
                    if (!list.isEmpty())
                        projectId = list[i % list.size()].toObject()["id"].toString().toStdString();
                } else if (step % 4 == 2) {
                    ok = succeeded(client.Get(
                        "/work/mobileProject.htm?m=queryProjectById&projectId=" + projectId, as));
                } else {
                    ok = succeeded(client.Get("/work/gen.htm?m=user&projectId=" + projectId, as));
                }
                mine.push_back(double(t.nsecsElapsed()) / 1e6);
                if (!ok) ++errors;
            }
            std::lock_guard<std::mutex> lock(mutex);
            latencies.insert(latencies.end(), mine.begin(), mine.end());
        });
    }
    for (auto& t : clients) t.join();
    const double seconds = double(wall.elapsed()) / 1000.0;
    out << "backend_mixed_req_per_s=" << qRound(double(latencies.size()) / seconds) << Qt::endl;
    out << "backend_mixed_p50_ms=" << QString::number(bench::percentile(latencies, 0.5), 'f', 1)
        << Qt::endl;
    out << "backend_mixed_p99_ms=" << QString::number(bench::percentile(latencies, 0.99), 'f', 1)
        << Qt::endl;
    out << "backend_mixed_errors=" << errors.load() << Qt::endl;
    return true;
}

// A normal client's requests while 500 connections (from ten loopback addresses, under the
// cap per address) each send one byte a second; a trickler the back end cuts off connects
// again at once, so 500 are trickling all the time.
bool slowClients(const QString& data) {
    const QStringList users = accounts({QStringLiteral("--data-dir"), data}, 1);
    Backend backend;
    if (users.isEmpty() || !backend.start({QStringLiteral("--data-dir"), data,
                                           QStringLiteral("--port"), QStringLiteral("0")}))
        return false;
    const auto connectFrom = [&](int source) {
        const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
        sockaddr_in from{};
        from.sin_family = AF_INET;
        from.sin_addr.s_addr = htonl(0x7f000002 + quint32(source));
        ::bind(fd, reinterpret_cast<sockaddr*>(&from), sizeof from);
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(quint16(backend.port));
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof to);
        return fd;
    };
    std::atomic<bool> stop{false};
    std::atomic<int> reconnects{0};
    std::thread trickler([&] {
        std::vector<int> fds;
        for (int i = 0; i < 500; ++i) fds.push_back(connectFrom(i % 10));
        const char head[] = "GET /work/checkIn.htm HTTP/1.1\r\nHost: x\r\n";
        std::vector<size_t> sent(fds.size(), 0);
        while (!stop) {
            for (size_t i = 0; i < fds.size(); ++i) {
                char c = head[sent[i] % (sizeof head - 1)];
                if (::send(fds[i], &c, 1, MSG_NOSIGNAL) != 1 && errno != EAGAIN &&
                    errno != EINPROGRESS && errno != ENOTCONN) {
                    ::close(fds[i]);
                    fds[i] = connectFrom(int(i % 10));
                    sent[i] = 0;
                    ++reconnects;
                } else {
                    ++sent[i];
                }
            }
            for (int w = 0; w < 10 && !stop; ++w)
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        for (int fd : fds) ::close(fd);
    });
    std::this_thread::sleep_for(std::chrono::seconds(3));
    httplib::Client client("127.0.0.1", backend.port);
    client.set_read_timeout(30, 0);
    Session s;
    std::vector<double> latencies;
    int errors = 0;
    QElapsedTimer window;
    window.start();
    if (!logIn(client, users.first(), &s)) ++errors;
    while (window.elapsed() < 20000) {
        QElapsedTimer t;
        t.start();
        if (!succeeded(client.Get("/work/project.htm?m=myProjectList", {{"Cookie", s.cookie}})))
            ++errors;
        latencies.push_back(double(t.nsecsElapsed()) / 1e6);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    stop = true;
    trickler.join();
    out << "backend_slow_clients_p50_ms="
        << QString::number(bench::percentile(latencies, 0.5), 'f', 1) << Qt::endl;
    out << "backend_slow_clients_p99_ms="
        << QString::number(bench::percentile(latencies, 0.99), 'f', 1) << Qt::endl;
    out << "backend_slow_clients_errors=" << errors << Qt::endl;
    out << "backend_slow_clients_cut_off=" << reconnects.load() << Qt::endl;
    return true;
}

// Peak resident memory of the back end while 50 clients fetch the organisation of 100,000
// colleagues at once (twice each), uncompressed and then compressed.
bool organisation(const QString& data) {
    const QStringList seedArgs{QStringLiteral("--data-dir"),          data,
                               QStringLiteral("--generate"),          QStringLiteral("100000"),
                               QStringLiteral("--departments"),       QStringLiteral("5000"),
                               QStringLiteral("--pbkdf2-iterations"), QStringLiteral("1")};
    const QStringList users = accounts(seedArgs, 1);
    Backend backend;
    if (users.isEmpty() || !backend.start({QStringLiteral("--data-dir"), data,
                                           QStringLiteral("--port"), QStringLiteral("0")}))
        return false;
    httplib::Client first("127.0.0.1", backend.port);
    first.set_read_timeout(120, 0);
    Session s;
    if (!logIn(first, users.first(), &s)) return false;
    const std::string path = "/work/mobileUserInfo.htm?m=findAllUserAndDept&userId=" + s.userId +
                             "&companyId=" + s.companyId;
    for (const char* encoding : {"identity", "gzip"}) {
        if (!succeeded(first.Get(path, {{"Cookie", s.cookie}, {"Accept-Encoding", encoding}})))
            return false;
    }
    out << "backend_org100k_idle_rss_mb=" << backend.rssKb() / 1024 << Qt::endl;
    for (const char* encoding : {"identity", "gzip"}) {
        std::atomic<bool> running{true};
        std::atomic<long> peak{0};
        std::thread sampler([&] {
            while (running) {
                peak = std::max(peak.load(), backend.rssKb());
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            }
        });
        std::atomic<int> errors{0};
        std::atomic<qint64> bytes{0};
        std::vector<std::thread> clients;
        for (int c = 0; c < 50; ++c) {
            clients.emplace_back([&] {
                httplib::Client client("127.0.0.1", backend.port);
                client.set_read_timeout(120, 0);
                client.set_decompress(false);
                for (int i = 0; i < 2; ++i) {
                    qint64 got = 0;
                    // Counted and dropped as it arrives: this process keeps no copies.
                    const auto r =
                        client.Get(path, {{"Cookie", s.cookie}, {"Accept-Encoding", encoding}},
                                   [&](const char*, size_t n) {
                                       got += qint64(n);
                                       return true;
                                   });
                    if (!r || r->status != 200 || got < 1000000) ++errors;
                    bytes += got;
                }
            });
        }
        for (auto& t : clients) t.join();
        running = false;
        sampler.join();
        const QString name = QLatin1String(encoding) == QLatin1String("gzip")
                                 ? QStringLiteral("backend_org100k_50c_gzip_peak_rss_mb")
                                 : QStringLiteral("backend_org100k_50c_peak_rss_mb");
        out << name << "=" << peak.load() / 1024 << Qt::endl;
        if (errors.load() > 0) {
            out << "organisation requests failed: " << errors.load() << Qt::endl;
            return false;
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    if (!dir.isValid()) return 1;
    if (!mixed(dir.filePath(QStringLiteral("demo")))) {
        out << "mixed load failed" << Qt::endl;
        return 1;
    }
    if (!slowClients(dir.filePath(QStringLiteral("demo")))) {
        out << "slow clients failed" << Qt::endl;
        return 1;
    }
    if (!organisation(dir.filePath(QStringLiteral("org")))) {
        out << "organisation load failed" << Qt::endl;
        return 1;
    }
    return 0;
}
