// The real client under a burst, measured from outside: the Quelix binary signed in to a
// private Prosody and the reference back end (main window, talk list, title, log and SDK
// store as a signed-in user has them, no conversation open) receives 10,000 one-to-one
// messages; the same run sends the same burst to a bare QXmpp receiver in a process of its
// own. Both are timed from the first message sent to the last one shown (the client's
// window-title count, reported by its unread probe) or received, and their CPU time is read
// from /proc. The sender runs on a thread of its own here, so it is neither of the two.
// Both bursts are repeated QUELIX_BENCH_ROUNDS times (3 by default), turn about, and the
// figures are the medians: one run's CPU time varies by a quarter on a busy machine, for
// the bare receiver as much as for the client.
//
// Run as `bench_gui_burst` for the figures; `bench_gui_burst --bare ...` is the bare
// receiver it starts itself.
#include <QXmppClient.h>
#include <QXmppConfiguration.h>
#include <QXmppMessage.h>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>
#include <algorithm>

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <functional>

#include "demostack.h"
#include "support/prosody_server.h"
#include "support/prosody_trust.h"

using bench::runUntil;

namespace {

int messageCount() {
    const int scale = qEnvironmentVariableIntValue("QUELIX_BENCH_SCALE");
    return scale > 0 ? scale : 10000;
}

// User and system CPU of a process so far, in milliseconds.
double cpuMsOf(qint64 pid) {
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly)) return -1;
    const QByteArray line = stat.readAll();
    // The command name may hold spaces; the fields we need follow its closing parenthesis.
    const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
    if (fields.size() < 13) return -1;
    const double ticks = fields.at(11).toDouble() + fields.at(12).toDouble();
    return ticks * 1000.0 / double(sysconf(_SC_CLK_TCK));
}

// A process whose standard error is watched for a line.
class Watched {
public:
    explicit Watched(QProcess& p) : process_(p) {}
    bool waitFor(const QByteArray& line, int timeoutMs) {
        return runUntil(
                   [&] {
                       seen_ += process_.readAllStandardError();
                       return seen_.contains(line) || process_.state() == QProcess::NotRunning;
                   },
                   timeoutMs) &&
               seen_.contains(line);
    }
    QByteArray seen() const { return seen_; }

private:
    QProcess& process_;
    QByteArray seen_;
};

// A colleague sending from a thread of its own, as from another machine.
class Sender {
public:
    explicit Sender(const QXmppConfiguration& c) {
        thread_.start();
        client_ = new QXmppClient;
        client_->moveToThread(&thread_);
        QMetaObject::invokeMethod(client_, [this, c] {
            QObject::connect(client_, &QXmppClient::connected, client_,
                             [this] { connected_ = true; });
            client_->connectToServer(c);
        });
    }
    ~Sender() {
        QMetaObject::invokeMethod(
            client_, [this] { delete client_; }, Qt::BlockingQueuedConnection);
        thread_.quit();
        thread_.wait();
    }
    bool waitConnected() {
        return runUntil([this] { return connected_.load(); }, 20000);
    }
    void send(const QString& to, int count, const QString& tag) {
        QMetaObject::invokeMethod(client_, [this, to, count, tag] {
            for (int i = 0; i < count; ++i) {
                QXmppMessage m(QString(), to,
                               QStringLiteral("第%1条消息 burst message %2").arg(i).arg(tag));
                m.setType(QXmppMessage::Chat);
                m.setId(QStringLiteral("%1-%2").arg(tag).arg(i));
                client_->sendPacket(m);
            }
        });
    }

private:
    QThread thread_;
    QXmppClient* client_ = nullptr;
    std::atomic<bool> connected_{false};
};

// The bare receiver: signs in, says "ready", counts chat messages with a body and says
// "received N" when it has N of each target given.
int bareReceiver(const QStringList& args) {
    // --bare host port domain user secret target[,target...] [ca-file]
    if (args.size() < 8) return 2;
    QXmppConfiguration c;
    c.setHost(args.at(2));
    c.setPort(args.at(3).toUShort());
    if (args.size() > 8 && !args.at(8).isEmpty())
        c.setCaCertificates(QSslConfiguration::systemCaCertificates() +
                            QSslCertificate::fromPath(args.at(8)));
    c.setDomain(args.at(4));
    c.setUser(args.at(5));
    c.setPassword(args.at(6));
    c.setResource(QStringLiteral("bare"));
    c.setAutoReconnectionEnabled(false);
    QList<int> targets;
    for (const QString& t : args.at(7).split(QLatin1Char(','))) targets << t.toInt();
    QXmppClient client;
    int count = 0;
    QObject::connect(&client, &QXmppClient::connected, [] {
        std::fputs("ready\n", stderr);
        std::fflush(stderr);
    });
    QObject::connect(&client, &QXmppClient::messageReceived, [&](const QXmppMessage& m) {
        if (m.type() != QXmppMessage::Chat || m.body().isEmpty()) return;
        ++count;
        while (!targets.isEmpty() && count >= targets.first()) {
            std::fprintf(stderr, "received %d\n", targets.takeFirst());
            std::fflush(stderr);
        }
    });
    client.connectToServer(c);
    return QCoreApplication::exec();
}

void stop(QProcess& p) {
    if (p.state() == QProcess::NotRunning) return;
    p.terminate();
    if (!p.waitForFinished(10000)) {
        p.kill();
        p.waitForFinished();
    }
}

struct Burst {
    double ms = -1;
    double cpuMs = -1;
};

// Sends the burst to `to` and waits for `process` to print `line`.
Burst measure(Sender& sender, const QString& to, QProcess& process, Watched& watch,
              const QByteArray& line, const QString& prefix) {
    Burst b;
    const double cpuBefore = cpuMsOf(process.processId());
    QElapsedTimer clock;
    clock.start();
    sender.send(to, messageCount(), prefix);
    if (!watch.waitFor(line, 300000)) return b;
    b.ms = double(clock.nsecsElapsed()) / 1e6;
    // Work queued behind the last message (the store, the log) belongs to the burst too.
    QThread::msleep(500);
    b.cpuMs = cpuMsOf(process.processId()) - cpuBefore;
    return b;
}

// The median time and the median CPU time, each on its own.
Burst median(QList<Burst> runs) {
    auto mid = [&runs](double Burst::*field) {
        std::sort(runs.begin(), runs.end(),
                  [field](const Burst& a, const Burst& b) { return a.*field < b.*field; });
        const int k = int(runs.size());
        return k % 2 ? runs.at(k / 2).*field
                     : (runs.at(k / 2 - 1).*field + runs.at(k / 2).*field) / 2;
    };
    Burst m;
    m.ms = mid(&Burst::ms);
    m.cpuMs = mid(&Burst::cpuMs);
    return m;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (app.arguments().value(1) == QLatin1String("--bare")) return bareReceiver(app.arguments());

    QTemporaryDir scratch;
    const QString home = bench::clientHome(scratch);
    // The back end's log is kept, not shown between the figures.
    CompanyRig company(QStringLiteral(QUELIX_BACKEND_BIN), true);
    if (!bench::startCompany(company, scratch.path(), home, 3)) return 1;
    const ProsodyServer& prosody = company.prosody();
    const DemoPerson& me = company.person(0);
    const DemoPerson& colleague = company.person(1);
    const DemoPerson& bare = company.person(2);

    // The client, remembered with automatic sign-in as a returning user's is.
    if (!bench::rememberForAutoLogin(home + QStringLiteral("/Documents"), me.userName)) return 1;
    const int n = messageCount();
    QProcess client;
    QProcessEnvironment env = bench::clientEnvironment(home, prosody.caFile());
    const int rounds = qEnvironmentVariableIsSet("QUELIX_BENCH_ROUNDS")
                           ? std::max(1, qEnvironmentVariableIntValue("QUELIX_BENCH_ROUNDS"))
                           : 3;
    QStringList targets{QStringLiteral("1")};
    for (int r = 1; r <= rounds; ++r) targets << QString::number(r * n + 1);
    env.insert(QStringLiteral("QUELIX_UNREAD_PROBE"), targets.join(QLatin1Char(',')));
    client.setProcessEnvironment(env);
    client.start(QStringLiteral(QUELIX_BINARY), {QStringLiteral("loader")});
    Watched clientOut(client);

    QProcess receiver;
    receiver.start(QCoreApplication::applicationFilePath(),
                   {"--bare", prosody.host(), QString::number(prosody.port()), prosody.domain(),
                    bare.id, bare.secret, targets.join(QLatin1Char(',')), prosody.caFile()});
    Watched receiverOut(receiver);

    Sender sender(plainConfig(prosody, colleague.id, QStringLiteral("sender"), colleague.secret));
    const QString clientJid = me.id + QLatin1Char('@') + prosody.domain();
    const QString bareJid = bare.id + QLatin1Char('@') + prosody.domain();
    // One message each first: it proves both are signed in and ready before the clock runs.
    if (!sender.waitConnected() || !receiverOut.waitFor("ready", 20000)) {
        std::fprintf(stderr, "the sender or the bare receiver did not sign in\n");
        return 1;
    }
    sender.send(clientJid, 1, QStringLiteral("w"));
    sender.send(bareJid, 1, QStringLiteral("w"));
    if (!clientOut.waitFor("unread-reached 1\n", 60000) ||
        !receiverOut.waitFor("received 1\n", 20000)) {
        std::fprintf(stderr, "no first message shown:\n%s\n",
                     clientOut.seen().right(2000).constData());
        stop(client);
        stop(receiver);
        return 1;
    }
    runUntil([] { return false; }, 1500);  // sign-in work settles

    // QUELIX_BENCH_PERF=<file> records the client's first burst with perf, for finding where
    // it goes;
    QProcess perf;
    const QString perfOut = qEnvironmentVariable("QUELIX_BENCH_PERF");
    // QUELIX_BENCH_PERF_ROUND picks another round to record (a larger store, a longer backlog).
    const int perfRound = std::max(1, qEnvironmentVariableIntValue("QUELIX_BENCH_PERF_ROUND"));
    QList<Burst> guiRuns, bareRuns;
    for (int r = 1; r <= rounds; ++r) {
        const QByteArray total = QByteArray::number(r * n + 1);
        if (r == perfRound && !perfOut.isEmpty()) {
            perf.start(QStringLiteral("perf"),
                       {"record", "-q", "-e", "cpu-clock", "--call-graph", "dwarf", "-o", perfOut,
                        "-p", QString::number(client.processId())});
            perf.waitForStarted();
            runUntil([] { return false; }, 1000);
        }
        guiRuns << measure(sender, clientJid, client, clientOut, "unread-reached " + total,
                           QStringLiteral("b%1").arg(r));
        if (perf.state() != QProcess::NotRunning) {
            perf.terminate();  // SIGTERM makes perf write its file and stop
            perf.waitForFinished(60000);
        }
        bareRuns << measure(sender, bareJid, receiver, receiverOut, "received " + total,
                            QStringLiteral("b%1").arg(r));
        if (guiRuns.last().ms < 0 || bareRuns.last().ms < 0) break;
        std::printf("round %d: gui %.0f ms, %.0f CPU-ms; bare %.0f ms, %.0f CPU-ms\n", r,
                    guiRuns.last().ms, guiRuns.last().cpuMs, bareRuns.last().ms,
                    bareRuns.last().cpuMs);
    }
    stop(client);
    stop(receiver);
    company.backend().stop();
    if (guiRuns.last().ms < 0 || bareRuns.last().ms < 0) {
        std::fprintf(stderr, "a burst was not shown in full (gui %.0f ms, bare %.0f ms)\n",
                     guiRuns.last().ms, bareRuns.last().ms);
        return 1;
    }
    const Burst gui = median(guiRuns);
    const Burst plain = median(bareRuns);
    std::printf(
        "gui: %d messages shown in %.0f ms, %.0f CPU-ms; bare: %.0f ms, %.0f CPU-ms "
        "(medians of %d rounds)\n",
        n, gui.ms, gui.cpuMs, plain.ms, plain.cpuMs, rounds);
    const double perK = gui.cpuMs * 1000.0 / n;
    std::printf("gui_burst_ms=%.0f\n", gui.ms);
    std::printf("bare_burst_ms=%.0f\n", plain.ms);
    std::printf("gui_burst_cpu_ms_per_1k=%.1f\n", perK);
    std::printf("bare_burst_cpu_ms_per_1k=%.1f\n", plain.cpuMs * 1000.0 / n);
    // Each round's client against the bare receiver measured right after it.
    QList<Burst> ratios;
    for (int r = 0; r < guiRuns.size(); ++r) {
        Burst ratio;
        ratio.ms = guiRuns.at(r).ms / std::max(1.0, bareRuns.at(r).ms);
        ratio.cpuMs = guiRuns.at(r).cpuMs / std::max(1.0, bareRuns.at(r).cpuMs);
        ratios << ratio;
    }
    const Burst ratio = median(ratios);
    std::printf("gui_vs_bare_cpu_ratio=%.2f\n", ratio.cpuMs);
    std::printf("gui_burst_shown_vs_bare_ratio=%.2f\n", ratio.ms);
    return 0;
}
