// Quitting the client with web pages open, in a child process (webquit_child) on a private
// X display: the work-platform page and a sidebar page from a server on loopback, one
// loaded, one still loading. The client must end with code 0, and the web engine's helper
// processes must end with it.
#include <QtTest>

#include <QDir>
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>

#include "../support/privatedisplay.h"

namespace {

// Answers every request with a small page titled "task", except /work/slow.htm: its first
// bytes (with the title) come at once and the rest never does, so that page stays loading.
class PageServer : public QTcpServer {
public:
    PageServer() {
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* s = nextPendingConnection()) {
                connect(s, &QTcpSocket::readyRead, s, [s] {
                    const QByteArray request = s->readAll();
                    const QByteArray head = "<html><head><title>task</title></head><body>";
                    if (request.startsWith("GET /work/slow.htm")) {
                        s->write(
                            "HTTP/1.1 200 OK\r\nContent-Type: text/html\r\n"
                            "Content-Length: 100000\r\n\r\n" +
                            head + QByteArray(1024, ' '));
                        return;
                    }
                    const QByteArray body = head + "x</body></html>";
                    s->write(
                        "HTTP/1.1 200 OK\r\nContent-Type: text/html\r\nConnection: close\r\n"
                        "Content-Length: " +
                        QByteArray::number(body.size()) + "\r\n\r\n" + body);
                    s->disconnectFromHost();
                });
            }
        });
    }
};

struct ProcessState {
    QString name;
    qint64 parent = 0;
    char state = 0;
};

// From /proc/<pid>/stat: "pid (name) state ppid ...", where the name may hold spaces.
bool readState(qint64 pid, ProcessState* out) {
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly)) return false;
    const QByteArray text = stat.readAll();
    const int open = text.indexOf('(');
    const int close = text.lastIndexOf(')');
    if (open < 0 || close < open) return false;
    const QList<QByteArray> rest = text.mid(close + 2).split(' ');
    if (rest.size() < 2) return false;
    out->name = QString::fromLocal8Bit(text.mid(open + 1, close - open - 1));
    out->state = rest.at(0).isEmpty() ? 0 : rest.at(0).at(0);
    out->parent = rest.at(1).toLongLong();
    return true;
}

bool isWebProcess(const ProcessState& p) { return p.name.startsWith("QtWebEngineProc"); }

// The web engine's helper processes below `root`, at any depth.
QList<qint64> webProcessesUnder(qint64 root) {
    QHash<qint64, ProcessState> all;
    const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs);
    for (const QString& entry : entries) {
        bool number = false;
        const qint64 pid = entry.toLongLong(&number);
        ProcessState p;
        if (number && readState(pid, &p)) all.insert(pid, p);
    }
    QList<qint64> found;
    for (auto it = all.cbegin(); it != all.cend(); ++it) {
        if (!isWebProcess(it.value())) continue;
        for (qint64 up = it.value().parent; up > 1 && all.contains(up); up = all[up].parent) {
            if (up != root) continue;
            found << it.key();
            break;
        }
    }
    return found;
}

// Still running (an exited process waiting to be reaped is not) and still a web process.
QList<qint64> stillRunning(const QList<qint64>& pids) {
    QList<qint64> running;
    for (qint64 pid : pids) {
        ProcessState p;
        if (readState(pid, &p) && isWebProcess(p) && p.state != 'Z') running << pid;
    }
    return running;
}

}  // namespace

class TestWebQuit : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void quittingEndsTheClientAndItsWebProcesses_data();
    void quittingEndsTheClientAndItsWebProcesses();

private:
    PageServer pages_;
};

void TestWebQuit::initTestCase() { QVERIFY(pages_.listen(QHostAddress::LocalHost)); }

void TestWebQuit::quittingEndsTheClientAndItsWebProcesses_data() {
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("shown");
    QTest::newRow("pages loaded") << "/work/task.htm" << QByteArray("sidebar-loaded");
    QTest::newRow("sidebar page still loading") << "/work/slow.htm" << QByteArray("sidebar-title");
}

void TestWebQuit::quittingEndsTheClientAndItsWebProcesses() {
    QFETCH(QString, path);
    QFETCH(QByteArray, shown);

    QProcess client;
    client.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    // As the client itself starts on X11: the web engine draws without the GL driver.
    env.insert("QT_XCB_GL_INTEGRATION", "none");
    client.setProcessEnvironment(env);
    client.start(QStringLiteral(WEBQUIT_CHILD),
                 {QStringLiteral("http://127.0.0.1:%1%2").arg(pages_.serverPort()).arg(path)});
    QVERIFY(client.waitForStarted());
    QByteArray said;
    auto hasSaid = [&](const QByteArray& what) {
        said += client.readAllStandardOutput();
        return said.contains(what + '\n');
    };
    QTRY_VERIFY_WITH_TIMEOUT(hasSaid(shown) || client.state() == QProcess::NotRunning, 60000);
    QVERIFY2(said.contains("worksite-loaded\n"), said.constData());
    QVERIFY2(said.contains(shown + '\n'), said.constData());
    if (shown == "sidebar-title") QVERIFY2(!said.contains("sidebar-loaded"), said.constData());

    const QList<qint64> helpers = webProcessesUnder(client.processId());
    QVERIFY(!helpers.isEmpty());
    QCOMPARE(stillRunning(helpers), helpers);

    client.write("quit\n");
    QVERIFY(client.waitForFinished(30000));
    QCOMPARE(client.exitStatus(), QProcess::NormalExit);
    QCOMPARE(client.exitCode(), 0);
    // The engine stops its helpers as it shuts down; none is left running on its own.
    QTRY_COMPARE_WITH_TIMEOUT(stillRunning(helpers), QList<qint64>(), 3000);
}

int main(int argc, char** argv) {
    // The web engine draws through OpenGL, which the offscreen platform lacks.
    PrivateDisplay display;
    if (!display.start()) return 1;
    QCoreApplication app(argc, argv);
    TestWebQuit test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_webquit.moc"
