// Unread is what the user has not seen in an open conversation: the real client, run as a
// program against a private Prosody and the reference back end, keeps its badges, talk-list
// order and title count across a clean quit and across kill -9.
#include <QtTest>

#include <QDir>
#include <QLoggingCategory>
#include <QProcess>

#include <csignal>

#include "../support/companyrig.h"
#include "base/at_exit.h"
#include "support/test_session.h"

namespace {

// The client as a returning user starts it: signed in automatically, its HOME its own.
class ClientProcess {
public:
    ClientProcess(const QString& home, const QString& caFile) {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("HOME"), home);
        env.insert(QStringLiteral("QUELIX_CA_FILE"), caFile);
        env.insert(QStringLiteral("QUELIX_TALK_PROBE"), QStringLiteral("1"));
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        env.remove(QStringLiteral("XDG_CONFIG_HOME"));
        env.remove(QStringLiteral("XDG_DATA_HOME"));
        process_.setProcessEnvironment(env);
        process_.setProcessChannelMode(QProcess::SeparateChannels);
        process_.start(QStringLiteral(QUELIX_BINARY), {QStringLiteral("loader")});
    }
    ~ClientProcess() {
        if (process_.state() != QProcess::NotRunning) {
            process_.kill();
            process_.waitForFinished(10000);
        }
    }
    // The last talk-list line once its total is `total` and it stayed so for a moment.
    QByteArray waitForTotal(int total, int timeoutMs = 60000) {
        const QByteArray prefix = "talk-list " + QByteArray::number(total) + ' ';
        QElapsedTimer clock;
        clock.start();
        QByteArray last;
        qint64 since = -1;
        while (clock.elapsed() < timeoutMs) {
            process_.waitForReadyRead(100);
            seen_ += process_.readAllStandardError();
            const int at = seen_.lastIndexOf("talk-list ");
            if (at >= 0) {
                const int end = seen_.indexOf('\n', at);
                const QByteArray line = end < 0 ? QByteArray() : seen_.mid(at, end - at);
                if (!line.isEmpty() && line != last) {
                    last = line;
                    since = clock.elapsed();
                }
            }
            if (last.startsWith(prefix) && clock.elapsed() - since > 1500) return last;
        }
        return "timed out; last: " + last;
    }
    bool quit() {
        ::kill(pid_t(process_.processId()), SIGTERM);
        return process_.waitForFinished(30000) && process_.exitStatus() == QProcess::NormalExit &&
               process_.exitCode() == 0;
    }
    void killHard() {
        ::kill(pid_t(process_.processId()), SIGKILL);
        process_.waitForFinished(10000);
    }

private:
    QProcess process_;
    QByteArray seen_;
};

}  // namespace

class TestUnreadRestart : public QObject {
    Q_OBJECT
private slots:
    void badgesOrderAndTitleSurviveQuitAndKill();
};

void TestUnreadRestart::badgesOrderAndTitleSurviveQuitAndKill() {
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
    CompanyRig company(QStringLiteral(QUELIX_BACKEND_BIN));
    QVERIFY2(company.start(4), qPrintable(company.error()));
    const ProsodyServer& prosody = company.prosody();
    const DemoPerson me = company.person(0);
    QList<DemoPerson> others{company.person(1), company.person(2), company.person(3)};

    // The client's own home, with the URL table the back end wrote for this test's user.
    const QString home = company.dataDir() + QStringLiteral("/client-home");
    const QString docs = home + QStringLiteral("/Documents/Quelix");
    const QString ownDocs =
        QStandardPaths::standardLocations(QStandardPaths::DocumentsLocation).first() +
        QStringLiteral("/Quelix");
    QVERIFY(QDir().mkpath(docs + QStringLiteral("/Config")));
    QVERIFY(QDir().mkpath(docs + QStringLiteral("/Resource/Text")));
    QVERIFY(QFile::copy(ownDocs + QStringLiteral("/Resource/Text/UrlText.ini"),
                        docs + QStringLiteral("/Resource/Text/UrlText.ini")));
    QFile logins(docs + QStringLiteral("/Config/LoginList.db"));
    QVERIFY(logins.open(QIODevice::WriteOnly));
    logins.write(QStringLiteral("{\"AutoLogin\": \"%1\", \"LoginList\": [{\"username\": \"%1\", "
                                "\"password\": \"quelix123\"}]}\n")
                     .arg(me.userName)
                     .toUtf8());
    logins.close();

    std::vector<std::unique_ptr<TestSession>> senders;
    for (const DemoPerson& p : others) {
        senders.push_back(std::make_unique<TestSession>(p.userName));
        senders.back()->login(prosody, p.id, p.secret);
    }
    QVERIFY(waitUntil([&] {
        for (auto& s : senders)
            if (s->probe().count("loginOk") != 1) return false;
        return true;
    }));

    QByteArray before;
    {
        auto client = std::make_unique<ClientProcess>(home, prosody.caFile());
        QVERIFY(client->waitForTotal(0).startsWith("talk-list 0"));
        // 300 messages from three colleagues; the last to write ends on top.
        const int counts[] = {100, 50, 150};
        int total = 0;
        for (int i = 0; i < 3; ++i) {
            for (int n = 0; n < counts[i]; ++n)
                senders[size_t(i)]->sendText(me.id, QStringLiteral("消息 %1").arg(n));
            total += counts[i];
            if (i < 2) QVERIFY(client->waitForTotal(total).startsWith("talk-list"));
        }
        before = client->waitForTotal(300);
        QVERIFY2(before.startsWith("talk-list 300 Quelix (300)|"), before.constData());
        const QByteArray expectedRows = others[2].id.toLatin1() + ":150 " +
                                        others[1].id.toLatin1() + ":50 " + others[0].id.toLatin1() +
                                        ":100";
        QVERIFY2(before.endsWith(expectedRows), before.constData());
        QVERIFY(client->quit());
    }
    {
        // A clean quit, then a start: the same rows, counts and title, and nothing alerts.
        ClientProcess client(home, prosody.caFile());
        const QByteArray after = client.waitForTotal(300);
        QCOMPARE(after, before);
        client.killHard();
    }
    {
        // Killed without a chance to save anything: the same again.
        ClientProcess client(home, prosody.caFile());
        const QByteArray after = client.waitForTotal(300);
        QCOMPARE(after, before);
        // One more message while killed-and-restarted adds to its row and goes on top.
        senders[0]->sendText(me.id, QStringLiteral("还在吗"));
        const QByteArray more = client.waitForTotal(301);
        QVERIFY2(more.endsWith(others[0].id.toLatin1() + ":101 " + others[2].id.toLatin1() +
                               ":150 " + others[1].id.toLatin1() + ":50"),
                 more.constData());
        client.killHard();
    }
    company.backend().stop();
}

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    base::AtExitManager atExit;
    TestUnreadRestart test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_unreadrestart.moc"
