// The quelix-backend program under hostile load: peers that trickle bytes or sit idle,
// oversized heads and bodies, too many connections, uploads that break off. Each time a
// normal client must keep being answered and nothing may be left behind.
#include "../support/backendlistening.h"
#include "backendrig.h"

#include <QProcess>
#include <QtTest>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <vector>

namespace {

constexpr int kHeadTimeoutMs = 1500;
constexpr int kPerAddress = 40;

// A raw connection, for what no well-behaved client library would send.
class Raw {
public:
    explicit Raw(int port) {
        fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_port = htons(quint16(port));
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        connected_ = ::connect(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
    }
    ~Raw() { ::close(fd_); }
    Raw(const Raw&) = delete;
    Raw& operator=(const Raw&) = delete;

    bool connected() const { return connected_; }
    // False once the server has closed or reset the connection.
    bool send(const QByteArray& data) {
        return ::send(fd_, data.constData(), size_t(data.size()), MSG_NOSIGNAL) == data.size();
    }
    // Everything until the server closes, or `ms` pass.
    QByteArray readAll(int ms) {
        QByteArray out;
        QElapsedTimer clock;
        clock.start();
        while (clock.elapsed() < ms) {
            pollfd p{fd_, POLLIN, 0};
            if (::poll(&p, 1, int(qMax<qint64>(1, ms - clock.elapsed()))) <= 0) break;
            char buf[4096];
            const ssize_t n = ::recv(fd_, buf, sizeof buf, 0);
            if (n <= 0) {
                closedByServer_ = true;
                break;
            }
            out.append(buf, int(n));
        }
        return out;
    }
    bool closedByServer() const { return closedByServer_; }

private:
    int fd_ = -1;
    bool connected_ = false;
    bool closedByServer_ = false;
};

// The opening of an upload's file part.
QByteArray filePart(const char* name) {
    return QByteArray("--XyZ\r\nContent-Disposition: form-data; name=\"file\"; filename=\"") +
           name + "\"\r\n\r\n";
}

int errorCodeOf(const QByteArray& response) {
    const int body = response.indexOf("\r\n\r\n");
    if (body < 0) return -1;
    return QJsonDocument::fromJson(response.mid(body + 4))
        .object()
        .value(QStringLiteral("errorCode"))
        .toInt(-1);
}

}  // namespace

class BackendBoundsTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void cleanup();
    void tricklingAndIdlePeersLeaveWorkersFree();
    void unfinishedHeadsAreCutAtTheirDeadline();
    void oversizedHeadsAreRefusedBeforeTheyGrow();
    void bodiesAreCappedWhileTheyStream();
    void connectionsPerAddressAreCapped();
    void brokenOffUploadsLeaveNoFile();

private:
    httplib::Client client() const {
        httplib::Client c("127.0.0.1", port_);
        c.set_connection_timeout(5, 0);
        c.set_read_timeout(5, 0);
        return c;
    }
    // A normal client's request: the public log-in page.
    bool answered() {
        const auto r = client().Get("/work/checkIn.htm");
        return r && r->status == 200;
    }
    QString signIn() {
        return results(
                   client().Post(kLogIn, logInForm(account_, QStringLiteral("quelix123")), kForm))
            .value("sessionId")
            .toString();
    }
    QStringList leftFiles() const {
        return QDir(dir_.filePath(QStringLiteral("data/attachments")))
            .entryList(QDir::Files | QDir::Hidden);
    }
    QByteArray uploadHead(const QString& session, const QByteArray& framing) const {
        return "POST /work/mobileTopic.htm?m=uploadFromPC&sessionId=" + session.toLatin1() +
               " HTTP/1.1\r\nHost: x\r\nContent-Type: multipart/form-data; boundary=XyZ\r\n" +
               framing + "\r\n";
    }

    QTemporaryDir dir_;
    QProcess backend_;
    int port_ = 0;
    QString account_;
};

void BackendBoundsTest::initTestCase() {
    QVERIFY(dir_.isValid());
    const QString data = dir_.filePath(QStringLiteral("data"));
    QProcess accounts;
    accounts.start(QStringLiteral(QUELIX_BACKEND_BIN),
                   {QStringLiteral("--data-dir"), data, QStringLiteral("--seed-demo"),
                    QStringLiteral("--pbkdf2-iterations"), QStringLiteral("1"),
                    QStringLiteral("--print-accounts"), QStringLiteral("1")});
    QVERIFY(accounts.waitForFinished(60000));
    account_ = QString::fromUtf8(accounts.readAllStandardOutput().split(' ').value(0).trimmed());
    QVERIFY(!account_.isEmpty());

    // Two workers: anything that held one while waiting for a peer would show at once.
    backend_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    backend_.start(QStringLiteral(QUELIX_BACKEND_BIN),
                   {QStringLiteral("--data-dir"), data, QStringLiteral("--port"),
                    QStringLiteral("0"), QStringLiteral("--threads"), QStringLiteral("2"),
                    QStringLiteral("--upload-limit-mb"), QStringLiteral("1"),
                    QStringLiteral("--request-timeout-ms"), QString::number(kHeadTimeoutMs),
                    QStringLiteral("--max-connections-per-address"), QString::number(kPerAddress)});
    QByteArray output;
    const QString url = waitForBackendUrl(backend_, &output);
    QVERIFY2(!url.isEmpty(), output.constData());
    port_ = QUrl(url).port();
    QVERIFY(answered());
}

void BackendBoundsTest::cleanupTestCase() {
    backend_.terminate();
    QVERIFY(backend_.waitForFinished(15000));
}

void BackendBoundsTest::cleanup() {
    // Connections a test opened are closed by now; the server must have let go of them
    // (and so of its count per address) before the next test.
    QTRY_VERIFY_WITH_TIMEOUT(answered(), 5000);
}

void BackendBoundsTest::tricklingAndIdlePeersLeaveWorkersFree() {
    // Many more connections than workers: some trickle a head a byte at a time, some
    // trickle a small body, some never send anything.
    std::vector<std::unique_ptr<Raw>> peers;
    for (int i = 0; i < 30; ++i) {
        peers.push_back(std::make_unique<Raw>(port_));
        QVERIFY(peers.back()->connected());
        if (i % 3 == 0) peers.back()->send("G");
        if (i % 3 == 1)
            peers.back()->send(
                "POST /work/checkIn.htm?m=MobileLogin HTTP/1.1\r\nHost: x\r\nContent-Length: "
                "40\r\n\r\nuser");
    }
    for (int round = 0; round < 5; ++round) {
        for (int i = 0; i < int(peers.size()); i += 3) peers[size_t(i)]->send("E");
        QVERIFY2(answered(), qPrintable(QStringLiteral("round %1").arg(round)));
        QVERIFY(!signIn().isEmpty());
        QTest::qWait(100);
    }
}

void BackendBoundsTest::unfinishedHeadsAreCutAtTheirDeadline() {
    QElapsedTimer clock;
    clock.start();
    Raw stalled(port_);
    QVERIFY(stalled.send("GET /work/checkIn.htm HTTP/1.1\r\nHost: x\r\n"));
    Raw trickling(port_);
    Raw silent(port_);
    QByteArray trickled;
    // A byte every 200 ms never completes a head; the deadline counts from its first byte.
    while (clock.elapsed() < kHeadTimeoutMs * 3 && !trickling.closedByServer()) {
        if (!trickling.send("X")) break;
        trickled += trickling.readAll(200);
    }
    QVERIFY2(clock.elapsed() < kHeadTimeoutMs * 3, "a trickling head was never cut");
    QVERIFY(trickled.startsWith("HTTP/1.1 408"));
    const QByteArray reply = stalled.readAll(kHeadTimeoutMs * 2);
    QVERIFY2(reply.startsWith("HTTP/1.1 408"), reply.constData());
    QCOMPARE(errorCodeOf(reply), 1001);
    QVERIFY(stalled.closedByServer());
    // A connection that never sends is closed without a word.
    QCOMPARE(silent.readAll(kHeadTimeoutMs * 2), QByteArray());
    QVERIFY(silent.closedByServer());
}

void BackendBoundsTest::oversizedHeadsAreRefusedBeforeTheyGrow() {
    // Endless header lines: cut off long before they add up to much.
    {
        Raw flood(port_);
        QVERIFY(flood.send("GET / HTTP/1.1\r\nHost: x\r\n"));
        qint64 sent = 0;
        const QByteArray line = "X-Filler: " + QByteArray(90, 'a') + "\r\n";
        while (sent < 64 * 1024 * 1024 && flood.send(line)) {
            sent += line.size();
            if (sent % (256 * 1024) < line.size() && !flood.readAll(1).isEmpty()) break;
        }
        QVERIFY2(sent < 16 * 1024 * 1024, qPrintable(QString::number(sent)));
    }
    // Too many short lines, and one line too long.
    for (const QByteArray& head :
         {"GET / HTTP/1.1\r\n" + QByteArray("A: b\r\n").repeated(150) + "\r\n",
          "GET / HTTP/1.1\r\nX-Long: " + QByteArray(40 * 1024, 'a') + "\r\n\r\n"}) {
        Raw raw(port_);
        raw.send(head);
        const QByteArray reply = raw.readAll(5000);
        QVERIFY2(reply.startsWith("HTTP/1.1 431"), reply.left(200).constData());
        QCOMPARE(errorCodeOf(reply), 1009);
    }
    // A head the server cannot frame a body by.
    Raw twoLengths(port_);
    twoLengths.send(
        "POST /work/checkIn.htm HTTP/1.1\r\nContent-Length: 3\r\nContent-Length: 30\r\n\r\nabc");
    QVERIFY(twoLengths.readAll(5000).startsWith("HTTP/1.1 400"));
    QVERIFY(answered());
}

void BackendBoundsTest::bodiesAreCappedWhileTheyStream() {
    const QString session = signIn();
    QVERIFY(!session.isEmpty());
    // A declared length over the cap is refused before a byte of the body is read.
    {
        Raw raw(port_);
        raw.send(
            "POST /work/checkIn.htm?m=MobileLogin HTTP/1.1\r\nHost: x\r\nContent-Length: "
            "1000000000\r\n\r\n");
        const QByteArray reply = raw.readAll(5000);
        QVERIFY2(reply.startsWith("HTTP/1.1 413"), reply.constData());
        QCOMPARE(errorCodeOf(reply), 1009);
        Raw upload(port_);
        upload.send(uploadHead(session, "Content-Length: 5000000\r\n"));
        QCOMPARE(errorCodeOf(upload.readAll(5000)), 1007);
    }
    // Chunked bodies carry no length: they are cut off once past the cap, both an
    // ordinary request's and an upload's, long before all of it is sent.
    for (const bool upload : {false, true}) {
        Raw raw(port_);
        raw.send(upload ? uploadHead(session, "Transfer-Encoding: chunked\r\n")
                        : QByteArray("POST /work/checkIn.htm?m=MobileLogin HTTP/1.1\r\nHost: "
                                     "x\r\nTransfer-Encoding: chunked\r\n\r\n"));
        const QByteArray part = filePart("a.bin");
        raw.send(QByteArray::number(part.size(), 16) + "\r\n" + part + "\r\n");
        const QByteArray chunk = "10000\r\n" + QByteArray(0x10000, 'z') + "\r\n";
        qint64 sent = 0;
        while (sent < 64 * 1024 * 1024 && raw.send(chunk)) {
            sent += chunk.size();
            if (sent % (1024 * 1024) < chunk.size() && !raw.readAll(1).isEmpty()) break;
        }
        QVERIFY2(sent < 32 * 1024 * 1024, qPrintable(QString::number(sent)));
    }
    QTRY_COMPARE_WITH_TIMEOUT(leftFiles(), QStringList(), 5000);
    // A compressed body could inflate past any cap.
    Raw gzip(port_);
    gzip.send(
        "POST /work/checkIn.htm?m=MobileLogin HTTP/1.1\r\nHost: x\r\nContent-Encoding: "
        "gzip\r\nContent-Length: 4\r\n\r\nabcd");
    QCOMPARE(errorCodeOf(gzip.readAll(5000)), 1001);
}

void BackendBoundsTest::connectionsPerAddressAreCapped() {
    std::vector<std::unique_ptr<Raw>> held;
    for (int i = 0; i < kPerAddress + 5; ++i) held.push_back(std::make_unique<Raw>(port_));
    // The ones past the cap are told at once that the server is busy, and closed.
    const QByteArray refused = held.back()->readAll(5000);
    QVERIFY2(refused.startsWith("HTTP/1.1 503"), refused.constData());
    QCOMPARE(errorCodeOf(refused), 1500);
    QVERIFY(held.back()->closedByServer());
    QVERIFY(!answered());
    // Connections that close give their places back.
    held.clear();
    QTRY_VERIFY_WITH_TIMEOUT(answered(), 5000);
}

void BackendBoundsTest::brokenOffUploadsLeaveNoFile() {
    const QString session = signIn();
    QVERIFY(!session.isEmpty());
    {
        Raw raw(port_);
        raw.send(uploadHead(session, "Content-Length: 500000\r\n") + filePart("a.bin") +
                 QByteArray(200000, 'q'));
        QTest::qWait(300);
    }  // the peer goes away halfway
    // A peer that stops sending halfway is cut off by the body's pace.
    Raw stalled(port_);
    stalled.send(uploadHead(session, "Content-Length: 500000\r\n") + filePart("b.bin") +
                 QByteArray(1000, 'q'));
    const QByteArray reply = stalled.readAll(30000);
    QVERIFY2(reply.startsWith("HTTP/1.1 4"), reply.constData());
    QTRY_COMPARE_WITH_TIMEOUT(leftFiles(), QStringList(), 5000);
    // And a whole upload is still kept.
    const auto r =
        client().Post(("/work/mobileTopic.htm?m=uploadFromPC&sessionId=" + session).toStdString(),
                      httplib::MultipartFormDataItems{{"file", "abc", "CON.txt", ""}});
    QCOMPARE(results(r).value("fileName").toString(), QStringLiteral("_CON.txt"));
    QCOMPARE(leftFiles().size(), 1);
}

QTEST_GUILESS_MAIN(BackendBoundsTest)
#include "tst_backendbounds.moc"
