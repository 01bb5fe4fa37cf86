// Our own files going up from a conversation page, against a small back end on loopback:
// the row shown meanwhile, the file message sent once, the echo matched to the row, and
// what the user is told when it fails.
#include <QtTest>

#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include "configstore.h"
#include "directorystore.h"
#include "filetransfer.h"
#include "fileuploads.h"
#include "httpfixture.h"
#include "manager.h"
#include "messageentry.h"
#include "prompts.h"

using qx_output::EntryItem;
using qx_output::FileUploads;
using qx_output::Manager;
using qx_output::MessageEntry;

namespace {
// The rows a conversation page would show, kept by id as the page keeps them.
struct Rows {
    QList<EntryItem*> all;
    QHash<quint64, EntryItem*> byId;
    ~Rows() { qDeleteAll(all); }
    FileUploads::AddRow adder() {
        return [this](const BaseMsg::MMessage& m) {
            MessageEntry e;
            e.kind = MessageEntry::File;
            e.msg = m;
            all << new EntryItem(e);
            byId.insert(m.msgId, all.last());
        };
    }
    FileUploads::RowOf finder() {
        return [this](quint64 id) { return byId.value(id); };
    }
};

QJsonObject contentOf(const QString& json) {
    return QJsonDocument::fromJson(json.toUtf8()).object();
}

HttpFixture::Response reply(const QByteArray& body) {
    HttpFixture::Response r;
    r.body = body;
    return r;
}
}  // namespace

class TestFileUploads : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanup();
    void uploadedFileIsSentOnceAndItsEchoKeepsTheRow();
    void failuresAreToldAndNothingIsSent();

private:
    QString writeFile(const QString& name, const QByteArray& content);
    QTemporaryDir dir_;
};

void TestFileUploads::initTestCase() {
    ConfigStore::instance().init();
    ConfigStore::instance().setUser(101, 7);
    QVERIFY(DirectoryStore::instance().load(
        "{\"errorCode\":0,\"results\":{\"allDeptList\":[{\"id\":\"1\"}],\"allUserList\":["
        "{\"id\":\"101\",\"section\":\"1\",\"realName\":\"王伟\"}]}}"));
    DirectoryStore::instance().setSelfId("101");
}

void TestFileUploads::cleanup() { qx_output::Prompts::setError({}); }

QString TestFileUploads::writeFile(const QString& name, const QByteArray& content) {
    QFile f(dir_.filePath(name));
    if (f.open(QIODevice::WriteOnly)) f.write(content);
    return f.fileName();
}

void TestFileUploads::uploadedFileIsSentOnceAndItsEchoKeepsTheRow() {
    // The back end keeps the file under a name of its own; the message carries that one.
    HttpFixture backend([](const HttpFixture::Request&) {
        return reply(
            R"({"errorCode":0,"results":{"id":"f9","fileName":"报告(1).txt","fileSize":5}})");
    });
    ConfigStore::instance().setUrl(UrlTable::UrlUpload, backend.url("/upload"));
    const QString path = writeFile("报告.txt", "hello");
    Rows rows;
    FileUploads uploads("102", false, nullptr, rows.adder(), rows.finder());
    QSignalSpy sent(Manager::instance(), &Manager::sendCustemMsgSignal);

    uploads.upload(path);
    // The row shows at once, as ours, under an id the service never gives.
    QCOMPARE(rows.all.size(), 1);
    EntryItem* row = rows.all.first();
    const BaseMsg::MMessage& shown = row->entry.msg;
    QVERIFY(shown.isSelf);
    QCOMPARE(shown.conversationId, QStringLiteral("102"));
    QCOMPARE(shown.senderId, QStringLiteral("101"));
    QCOMPARE(shown.mediaPath, path);
    QVERIFY(shown.msgId >= (quint64(1) << 63));
    const QJsonObject pending = contentOf(shown.contentJson);
    QCOMPARE(pending.value("fileName").toString(), QStringLiteral("报告.txt"));
    QCOMPARE(pending.value("fileSize").toString(), QStringLiteral("5"));
    const QString uploadKey = pending.value("uploadKey").toString();
    qx_output::FileTransfer* transfer = Manager::instance()->findTransfer(uploadKey);
    QVERIFY(transfer);
    QVERIFY(uploads.rowOfEcho(shown) == nullptr);  // not up yet: no file id to match

    // Once up, the file message goes out once, and the row names the file by its id.
    QTRY_COMPARE(sent.size(), 1);
    QCOMPARE(sent.first().at(0).toString(), QStringLiteral("102"));
    QCOMPARE(sent.first().at(1).toString(), QStringLiteral("[文件]"));
    const QString json = sent.first().at(2).toString();
    const QJsonObject content = contentOf(json);
    QCOMPARE(content.value("msgType").toInt(), int(BaseMsg::CustomFile));
    QCOMPARE(content.value("id").toString(), QStringLiteral("f9"));
    QCOMPARE(content.value("fileName").toString(), QStringLiteral("报告(1).txt"));
    QCOMPARE(content.value("fileSize").toString(), QStringLiteral("5"));
    QVERIFY(!content.contains("uploadKey"));
    QCOMPARE(row->entry.msg.contentJson, json);
    QVERIFY(!Manager::instance()->findTransfer(uploadKey));
    QCOMPARE(Manager::instance()->findTransfer("up:f9"), transfer);
    QCOMPARE(backend.requests().size(), 1);
    QVERIFY(backend.requests().first().body.contains("name=\"userId\"\r\n\r\n101"));
    QVERIFY(backend.requests().first().body.contains("hello"));

    // Our message coming back is that row; another's file of the same id, or another file,
    // is not.
    BaseMsg::MMessage echo;
    echo.msgId = 555;
    echo.isSelf = true;
    echo.kind = BaseMsg::Custom;
    echo.contentJson = json;
    QCOMPARE(uploads.rowOfEcho(echo), row);
    echo.isSelf = false;
    QVERIFY(!uploads.rowOfEcho(echo));
    echo.isSelf = true;
    echo.contentJson = R"({"msgType":4,"id":"f10"})";
    QVERIFY(!uploads.rowOfEcho(echo));

    // A second file from the same page gets a row of its own.
    uploads.upload(writeFile("b.txt", "b"));
    QCOMPARE(rows.all.size(), 2);
    QVERIFY(rows.all.at(1)->entry.msg.msgId != row->entry.msg.msgId);
    QTRY_COMPARE(sent.size(), 2);
}

void TestFileUploads::failuresAreToldAndNothingIsSent() {
    HttpFixture backend([](const HttpFixture::Request&) {
        return reply(R"({"errorCode":1,"errorMsg":"文件太大"})");
    });
    ConfigStore::instance().setUrl(UrlTable::UrlUpload, backend.url("/upload"));
    QWidget page;
    QList<QPair<QWidget*, QString>> told;
    qx_output::Prompts::setError(
        [&](QWidget* parent, const QString& text) { told << qMakePair(parent, text); });
    Rows rows;
    FileUploads uploads("102", false, &page, rows.adder(), rows.finder());
    QSignalSpy sent(Manager::instance(), &Manager::sendCustemMsgSignal);

    // The back end's reason, over the page.
    uploads.upload(writeFile("big.bin", "x"));
    QTRY_COMPARE(told.size(), 1);
    QCOMPARE(told.first().first, &page);
    QCOMPARE(told.first().second, QStringLiteral("文件太大"));

    // A file that cannot be read is told at once; its row is there to show the failure.
    uploads.upload(dir_.filePath("gone.txt"));
    QCOMPARE(told.size(), 2);
    QCOMPARE(told.last().second, QStringLiteral("上传文件出错。"));
    QCOMPARE(rows.all.size(), 2);
    QTest::qWait(50);
    QCOMPARE(sent.size(), 0);
    QCOMPARE(backend.requests().size(), 1);
}

QTEST_MAIN(TestFileUploads)
#include "tst_fileuploads.moc"
