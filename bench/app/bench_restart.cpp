// A returning colleague's start: the real client, signed in automatically against a private
// Prosody and the reference back end, with a store of 50 conversations and 100,000 messages
// of which some were never seen. Prints how long from the program's start to the talk list
// restored with its badges, and whether every badge came back on every start.
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <functional>

#include "demostack.h"
#include "store/message_store.h"

namespace {

constexpr int kConversations = 50;
constexpr int kMessages = 100000;

// The store a long-time user has: every conversation's history, seen, and conversation i
// (0-based) with i + 1 messages shown but never looked at. Returns the talk list expected
// (newest activity first) as the client prints it.
QByteArray fillStore(const QString& file, const QString& own, const QStringList& peers,
                     int* unseenTotal) {
    MessageStore store;
    if (!store.open(file)) return QByteArray();
    const int perPeer = kMessages / int(peers.size());
    const qint64 start = 1700000000;
    store.beginBatch();
    for (int p = 0; p < peers.size(); ++p) {
        for (int n = 0; n < perPeer; ++n) {
            StoredMessage m;
            m.peer = peers.at(p);
            m.outgoing = n % 3 == 0;
            m.sender = m.outgoing ? own : peers.at(p);
            m.kind = 0;
            m.content = QStringLiteral("第 %1 条消息").arg(n);
            m.summary = m.content;
            // Conversation p's newest message is later than every one of conversation p - 1.
            m.time = start + qint64(p) * perPeer + n;
            m.stanzaId = QStringLiteral("s-%1-%2").arg(p).arg(n);
            m.unread = false;
            store.insert(m);
        }
    }
    store.endBatch();
    *unseenTotal = 0;
    QStringList rows;
    QSqlQuery q(QSqlDatabase::database(store.connectionName(), false));
    for (int p = 0; p < peers.size(); ++p) {
        const int unseen = p + 1;
        q.prepare(QStringLiteral(
            "UPDATE messages SET seen = 0 WHERE id IN (SELECT id FROM messages WHERE peer = ? "
            "AND outgoing = 0 ORDER BY time DESC LIMIT ?)"));
        q.addBindValue(peers.at(p));
        q.addBindValue(unseen);
        if (!q.exec()) return QByteArray();
        *unseenTotal += unseen;
        rows.prepend(peers.at(p) + QLatin1Char(':') + QString::number(unseen));
    }
    q = QSqlQuery();
    store.close();
    return rows.join(QLatin1Char(' ')).toUtf8();
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QTemporaryDir scratch;
    const QString home = bench::clientHome(scratch);
    const QString docs = home + QStringLiteral("/Documents");
    CompanyRig company(QStringLiteral(QUELIX_BACKEND_BIN));
    if (!bench::startCompany(company, scratch.path(), home, kConversations + 1)) return 1;
    const ProsodyServer& prosody = company.prosody();
    QStringList ids;
    for (const DemoPerson& p : company.people()) ids << p.id;
    const QString own = ids.takeFirst();

    int unseenTotal = 0;
    const QString storeFile = docs + QStringLiteral("/Quelix/OpenIM/") + own + QLatin1Char('@') +
                              prosody.domain() + QStringLiteral("/messages.db");
    const QByteArray expectedRows = fillStore(storeFile, own, ids, &unseenTotal);
    if (expectedRows.isEmpty()) {
        std::fprintf(stderr, "the store could not be filled\n");
        return 1;
    }
    if (!bench::rememberForAutoLogin(docs, company.userNames().first())) return 1;

    QProcessEnvironment env = bench::clientEnvironment(home, prosody.caFile());
    env.insert(QStringLiteral("QUELIX_TALK_PROBE"), QStringLiteral("1"));
    const QByteArray wanted = "talk-list " + QByteArray::number(unseenTotal) + ' ';
    std::vector<double> samples, firstRows;
    bool kept = true;
    for (int run = 0; run < 5; ++run) {
        QProcess client;
        client.setProcessEnvironment(env);
        QElapsedTimer clock;
        clock.start();
        client.start(QStringLiteral(QUELIX_BINARY), {QStringLiteral("loader")});
        QByteArray seen, line;
        double first = -1;
        const bool reached = bench::runUntil(
            [&] {
                seen += client.readAllStandardError();
                if (first < 0 && seen.contains("talk-list ")) first = double(clock.elapsed());
                const int at = seen.indexOf(wanted);
                if (at < 0) return false;
                const int end = seen.indexOf('\n', at);
                if (end < 0) return false;
                line = seen.mid(at, end - at);
                return true;
            },
            60000);
        const double ms = double(clock.elapsed());
        if (!reached || !line.endsWith("|" + expectedRows)) {
            kept = false;
            std::fprintf(stderr, "run %d: the talk list did not come back: %s\n", run,
                         (reached ? line : seen.right(600)).constData());
        } else {
            samples.push_back(ms);
            firstRows.push_back(first);
        }
        client.kill();
        client.waitForFinished(10000);
    }
    company.backend().stop();
    std::sort(samples.begin(), samples.end());
    std::sort(firstRows.begin(), firstRows.end());
    // The saved rows show once the back end's log-in is done; the badges once the IM
    // session is up, as the store is the IM account's.
    std::printf("restart_to_saved_rows_ms=%.0f\n",
                firstRows.empty() ? -1.0 : firstRows[firstRows.size() / 2]);
    std::printf("restart_conversations=%d\nrestart_messages=%d\n", kConversations, kMessages);
    std::printf("restart_to_talk_list_ms=%.0f\n",
                samples.empty() ? -1.0 : samples[samples.size() / 2]);
    std::printf("unread_kept_after_restart=%d\n", kept ? 1 : 0);
    return kept ? 0 : 1;
}
