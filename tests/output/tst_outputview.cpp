#include <QtTest>

#include <QClipboard>
#include <QImageWriter>
#include <QLabel>
#include <QMovie>
#include <QPushButton>
#include <QScrollBar>
#include <QTemporaryDir>

#include "baseitem.h"
#include "configstore.h"
#include "directorystore.h"
#include "emotionset.h"
#include "filetransfer.h"
#include "imagemsgitem.h"
#include "infocard.h"
#include "listwidget.h"
#include "mainviewdelegate.h"
#include "manager.h"
#include "messageentry.h"
#include "prompts.h"
#include "resources.h"
#include "sdk/emotion_catalogue.h"
#include "textitemedit.h"
#include "textmsgitem.h"
#include "tipmsgitem.h"
#include "view.h"
#include "viewmenu.h"

using qx_output::EntryItem;
using qx_output::MessageEntry;
using qx_output::View;

namespace {
class ShakeShell : public MainViewDelegate {
public:
    void shakeWindow() override { ++shakes; }
    int shakes = 0;
};

BaseMsg::MMessage text(quint64 id, qint64 time, const QString& body, bool self = false) {
    BaseMsg::MMessage m;
    m.msgId = id;
    m.time = time;
    m.kind = BaseMsg::Text;
    m.text = body;
    m.isSelf = self;
    m.senderId = self ? QStringLiteral("101") : QStringLiteral("102");
    return m;
}

QList<MessageEntry::Kind> kinds(const View& v) {
    QList<MessageEntry::Kind> out;
    for (int r = 1; r < v.listWidget()->count(); ++r) out << v.listWidget()->entryAt(r)->entry.kind;
    return out;
}

QString writePicture(const QString& path, const QSize& size, const char* format = "png") {
    QImage image(size, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    image.save(path, format);
    return path;
}
}  // namespace

class TestOutputView : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void timeLinesFollowTheTwoMinuteRule();
    void receivedTextIsShownNotInterpreted();
    void historyGoesAboveAndKeepsTheViewStill();
    void lateArrivalsGoInTheirPlace();
    void onlyRowsInViewHaveWidgets();
    void picturesLoadingBrokenAnimatedAndSaved();
    void receivedFileNamesStayInTheDownloadFolder();
    void shakesMentionsAndDuplicates();
    void failedSendSaysSoAndSendsAgain();
    void avatarOpensTheColleagueCard();

private:
    QTemporaryDir dir_;
    ShakeShell shell_;
};

void TestOutputView::initTestCase() {
    quelixInitResources();
    ConfigStore::instance().init();
    ConfigStore::instance().setUser(101, 7);
    QVERIFY(DirectoryStore::instance().load(
        "{\"errorCode\":0,\"results\":{\"allDeptList\":[{\"id\":\"1\"}],\"allUserList\":["
        "{\"id\":\"101\",\"section\":\"1\",\"realName\":\"王伟\"},"
        "{\"id\":\"102\",\"section\":\"1\",\"realName\":\"李娜\"}]}}"));
    DirectoryStore::instance().setSelfId("101");
    QList<EmotionSet::Item> items;
    for (const EmotionCatalogue::Entry& e : EmotionCatalogue::entries())
        items.append({e.picture, e.code});
    EmotionSet::instance().setItems(items);
    MainViewDelegate::setInstance(&shell_);
}

void TestOutputView::timeLinesFollowTheTwoMinuteRule() {
    View v("102", false);
    const qint64 t = 1700000000;
    v.addMessage(text(1, t, "a"));
    v.addMessage(text(2, t + 119, "b"));  // within two minutes of the line: none
    QCOMPARE(kinds(v), (QList<MessageEntry::Kind>{MessageEntry::Separator, MessageEntry::Text,
                                                  MessageEntry::Text}));
    v.addMessage(text(3, t + 120, "c"));  // exactly two minutes: still none
    v.addMessage(text(4, t + 241, "d"));  // more than two minutes after the line at t
    QCOMPARE(kinds(v).count(MessageEntry::Separator), 2);
    QCOMPARE(v.listWidget()->entryAt(5)->entry.html,
             QDateTime::fromSecsSinceEpoch(t + 241).toString("yyyy/MM/dd hh:mm:ss"));
    v.addMessage(text(5, 0, "no time"));  // an unknown time never gets a line
    QCOMPARE(kinds(v).count(MessageEntry::Separator), 2);
    QCOMPARE(v.messageCount(), 5);

    View w("102", false);
    w.addMessage(text(1, t, "a"));
    w.addMessage(text(2, t + 121, "b"));
    QCOMPARE(kinds(w).count(MessageEntry::Separator), 2);

    // One rule for live messages and history: a chat read live on one side and loaded from
    // history on the other (or after a restart) draws the same lines. A steady exchange
    // every 100 s is one stretch; a pause of more than two minutes starts the next.
    const qint64 at[] = {0, 100, 200, 300, 400, 700, 800};
    View live("102", false), history("102", false);
    for (int i = 0; i < 7; ++i) live.addMessage(text(quint64(10 + i), t + at[i], "x"));
    // History comes in pages, oldest first within a page, each older page above the last.
    for (const auto& page : {std::pair<int, int>{3, 7}, {0, 3}}) {
        for (int i = page.first; i < page.second; ++i) {
            BaseMsg::MMessage m = text(quint64(10 + i), t + at[i], "x");
            m.isHistory = true;
            history.addMessage(m);
        }
    }
    const QList<MessageEntry::Kind> expected{
        MessageEntry::Separator, MessageEntry::Text, MessageEntry::Text,
        MessageEntry::Text,      MessageEntry::Text, MessageEntry::Text,
        MessageEntry::Separator, MessageEntry::Text, MessageEntry::Text};
    QCOMPARE(kinds(live), expected);
    QCOMPARE(kinds(history), expected);
    for (int r = 1; r <= expected.size(); ++r)
        QCOMPARE(history.listWidget()->entryAt(r)->entry.html,
                 live.listWidget()->entryAt(r)->entry.html);
}

void TestOutputView::receivedTextIsShownNotInterpreted() {
    View v("102", false);
    v.resize(600, 400);
    v.show();
    const QString hostile = QStringLiteral(
        "<b>粗</b><img src=\"http://evil.example/x.png\"><a href=\"http://x\">链接</a>"
        "<span style=\"color:red\">红</span>[smile] @李娜 &amp;");
    v.addMessage(text(1, 1700000000, hostile));
    QTRY_VERIFY(v.listWidget()->liveWidgetCount() >= 2);
    auto* item = qobject_cast<qx_output::TextMsgItem*>(
        v.listWidget()->itemWidget(v.listWidget()->entryAt(2)));
    QVERIFY(item);
    const QTextDocument* doc = item->edit()->document();
    // Every character the sender typed is there to read, the emoticon became a picture.
    QString shown = doc->toPlainText();
    QVERIFY2(shown.startsWith(QStringLiteral("<b>粗</b><img src=\"http://evil.example/x.png\">"
                                             "<a href=\"http://x\">链接</a>")),
             qPrintable(shown));
    QVERIFY(shown.contains(QStringLiteral("@李娜 &amp;")));
    QVERIFY(!shown.contains(QStringLiteral("[smile]")));
    const QString html = v.listWidget()->entryAt(2)->entry.html;
    QCOMPARE(html.count(QStringLiteral("<img")), 1);
    QVERIFY(html.contains(QStringLiteral("<img class='emo' src=\":/openim/emotion/smile.png\"")));
    QVERIFY(html.contains(QStringLiteral("<span style=\"color:#FFA54F\">@李娜</span>")));
    QVERIFY(!html.contains(QStringLiteral("href")) || html.contains(QStringLiteral("&lt;a href")));
    // The only resources the text loads are ours.
    QVERIFY(!item->edit()
                 ->loadResource(QTextDocument::ImageResource, QUrl("http://evil.example/x.png"))
                 .isValid());
    QVERIFY(!item->edit()
                 ->loadResource(QTextDocument::ImageResource, QUrl("file:///etc/passwd"))
                 .isValid());
    QVERIFY(item->edit()->isReadOnly());
}

void TestOutputView::historyGoesAboveAndKeepsTheViewStill() {
    View v("102", false);
    v.resize(500, 400);
    v.show();
    const qint64 t = 1700000000;
    for (int i = 0; i < 60; ++i)
        v.addMessage(text(100 + i, t + 600 + i, QString("现在 %1").arg(i)));
    qx_output::ListWidget* list = v.listWidget();
    QTRY_VERIFY(list->verticalScrollBar()->maximum() > 0);
    QTRY_VERIFY(list->isAtBottom());
    list->verticalScrollBar()->setValue(list->verticalScrollBar()->maximum() / 2);
    QListWidgetItem* top = list->itemAt(QPoint(1, 1));
    QVERIFY(top);
    const int y = list->visualItemRect(top).top();

    QSignalSpy asked(qx_output::Manager::instance(), &qx_output::Manager::getHistoryMsgSignal);
    list->historyButton()->click();
    QCOMPARE(asked.size(), 1);
    QCOMPARE(asked.first().first().toString(), QStringLiteral("102"));
    // A page of older messages arrives, newest first as some servers send them.
    for (int i = 6; i >= 0; --i) {
        BaseMsg::MMessage m = text(10 + i, t + i * 10, QString("以前 %1").arg(i));
        m.isHistory = true;
        v.addMessage(m);
    }
    QCOMPARE(list->itemAt(QPoint(1, 1)), top);
    QCOMPARE(list->visualItemRect(top).top(), y);
    // In time order right under the control, with one time line above them.
    QCOMPARE(list->entryAt(1)->entry.kind, MessageEntry::Separator);
    for (int i = 0; i < 7; ++i) QCOMPARE(list->entryAt(2 + i)->entry.msg.msgId, quint64(10 + i));
    // A conversation opened with nothing in it shows the newest of its history.
    View fresh("102", false);
    fresh.resize(500, 300);
    fresh.show();
    for (int i = 0; i < 30; ++i) {
        BaseMsg::MMessage m = text(500 + i, t + i * 10, QString("历史 %1").arg(i));
        m.isHistory = true;
        fresh.addMessage(m);
    }
    QTRY_VERIFY(fresh.listWidget()->verticalScrollBar()->maximum() > 0);
    QTRY_VERIFY(fresh.listWidget()->isAtBottom());

    // Shown already: a history copy of a live message is not shown twice.
    BaseMsg::MMessage again = text(100, t + 600, "现在 0");
    again.isHistory = true;
    v.addMessage(again);
    QCOMPARE(v.messageCount(), 67);
}

void TestOutputView::lateArrivalsGoInTheirPlace() {
    View v("102", false);
    const qint64 t = 1700000000;
    auto at = [](quint64 id, qint64 time, qint64 order) {
        BaseMsg::MMessage m = text(id, time, QString::number(id));
        m.order = order;
        return m;
    };
    v.addMessage(at(1, t, 10));
    v.addMessage(at(3, t, 30));
    v.addMessage(at(5, t + 600, 50));
    // Brought by the archive after newer ones were shown: each goes in its place, the same
    // second decided by the store's order, a stretch of its own getting its time line.
    v.addMessage(at(2, t, 20));
    v.addMessage(at(4, t + 300, 40));
    v.addMessage(at(6, t - 600, 5));
    v.addMessage(at(7, t + 601, 70));
    QList<quint64> ids;
    for (int r = 1; r < v.listWidget()->count(); ++r)
        if (v.listWidget()->entryAt(r)->entry.kind == MessageEntry::Text)
            ids << v.listWidget()->entryAt(r)->entry.msg.msgId;
    QCOMPARE(ids, (QList<quint64>{6, 1, 2, 3, 4, 5, 7}));
    using K = MessageEntry;
    QCOMPARE(kinds(v), (QList<MessageEntry::Kind>{K::Separator, K::Text, K::Separator, K::Text,
                                                  K::Text, K::Text, K::Separator, K::Text,
                                                  K::Separator, K::Text, K::Text}));
}

void TestOutputView::onlyRowsInViewHaveWidgets() {
    View v("102", false);
    v.resize(600, 500);
    v.show();
    for (int i = 0; i < 2000; ++i)
        v.addMessage(text(i + 1, 1700000000 + i, QString(i % 50 + 1, 'x')));
    qx_output::ListWidget* list = v.listWidget();
    QTRY_VERIFY(list->isAtBottom());
    QTRY_VERIFY(list->liveWidgetCount() > 0);
    QVERIFY2(list->liveWidgetCount() < 60, qPrintable(QString::number(list->liveWidgetCount())));
    // The last row is in view and drawn by a widget; a row far above is not.
    QVERIFY(list->itemWidget(list->item(list->count() - 1)));
    QVERIFY(!list->itemWidget(list->item(100)));
    list->scrollToTop();
    QTRY_VERIFY(list->itemWidget(list->item(2)));
    QVERIFY(!list->itemWidget(list->item(list->count() - 1)));
    QVERIFY(list->liveWidgetCount() < 60);
    // A narrower view measures the text again: a long line wraps onto more lines.
    EntryItem* row = list->entryAt(list->count() - 1);
    const int before = row->sizeHint().height();
    v.resize(260, 500);
    QTRY_VERIFY(row->sizeHint().height() > before);
}

void TestOutputView::picturesLoadingBrokenAnimatedAndSaved() {
    View v("102", false);
    v.resize(600, 500);
    v.show();
    const QString big = writePicture(dir_.filePath("big.png"), QSize(800, 400));
    QFile::copy(":/resource/style/images/loading.gif", dir_.filePath("anim.gif"));
    QFile corrupt(dir_.filePath("corrupt.png"));
    QVERIFY(corrupt.open(QIODevice::WriteOnly));
    corrupt.write("\x89PNG not really");
    corrupt.close();

    auto picture = [](quint64 id, const QString& path) {
        BaseMsg::MMessage m;
        m.msgId = id;
        m.kind = BaseMsg::Media;
        m.senderId = "102";
        m.mediaPath = path;
        return m;
    };
    v.addMessage(picture(1, big));
    v.addMessage(picture(2, corrupt.fileName()));
    v.addMessage(picture(3, dir_.filePath("anim.gif")));
    v.addMessage(picture(4, QString()));  // on its way
    qx_output::ListWidget* list = v.listWidget();
    QTRY_COMPARE(list->liveWidgetCount(), 4);
    auto itemAt = [&](int r) {
        return qobject_cast<qx_output::ImageMsgItem*>(list->itemWidget(list->item(r)));
    };
    QCOMPARE(list->entryAt(1)->entry.content, QSize(200, 100));  // scaled to fit the bubble
    QVERIFY(!itemAt(1)->isBroken());
    QVERIFY(itemAt(2)->isBroken());
    QVERIFY(itemAt(3)->isAnimated());
    QCOMPARE(qx_output::Manager::instance()->getMovie(dir_.filePath("anim.gif"))->frameCount(), 8);
    QVERIFY(list->entryAt(4)->entry.loading);
    QCOMPARE(list->entryAt(4)->entry.content, QSize(32, 32));

    // The download lands: the row becomes the picture.
    const QString arrived = writePicture(dir_.filePath("arrived.png"), QSize(60, 40));
    QVERIFY(v.mediaReady(4, arrived));
    QTRY_VERIFY(itemAt(4) && !list->entryAt(4)->entry.loading);
    QCOMPARE(list->entryAt(4)->entry.content, QSize(60, 40));

    // Clicking opens the viewer at full size.
    QTest::mouseClick(itemAt(1), Qt::LeftButton, {}, itemAt(1)->contentRect().center());
    QVERIFY(v.pictureWindow() && v.pictureWindow()->isVisible());
    QCOMPARE(v.pictureWindow()->path(), big);
    v.pictureWindow()->close();

    // The picture menu copies to the clipboard.
    qx_output::ViewMenu menu(big);
    connect(&menu, &qx_output::ViewMenu::copySignal, &v, &View::copyPic);
    menu.copyAction()->trigger();
    QCOMPARE(QApplication::clipboard()->image().size(), QSize(800, 400));

    // Saving proposes the time as fourteen digits and writes the picture.
    const QString name = View::pictureSaveName();
    QVERIFY(QRegularExpression("^\\d{14}$").match(name).hasMatch());
    QCOMPARE(name.left(8), QDate::currentDate().toString("yyyyMMdd"));
    QString proposed, filter;
    qx_output::Prompts::setSaveName([&](QWidget*, const QString& p, const QString& f) {
        proposed = p;
        filter = f;
        return dir_.filePath("saved");
    });
    QVERIFY(v.savePic(big));
    QCOMPARE(filter, QStringLiteral("图片 (*.jpg *.png *.bmp)"));
    QCOMPARE(QFileInfo(proposed).fileName().size(), 14);  // in the download folder at first
    QCOMPARE(QFileInfo(proposed).absolutePath(),
             ConfigStore::instance().folderPath(ConfigStore::Download));
    QCOMPARE(QImage(dir_.filePath("saved.png")).size(), QSize(800, 400));
    QStringList errors;
    qx_output::Prompts::setError([&](QWidget*, const QString& t) { errors << t; });
    qx_output::Prompts::setSaveName(
        [&](QWidget*, const QString&, const QString&) { return dir_.filePath("no/such/x.png"); });
    QVERIFY(!v.savePic(big));
    QCOMPARE(errors, QStringList{"保存文件：" + dir_.filePath("no/such/x.png") + " 失败。"});
    qx_output::Prompts::setSaveName({});
    qx_output::Prompts::setError({});
}

void TestOutputView::receivedFileNamesStayInTheDownloadFolder() {
    using qx_output::FileTransfer;
    const QString folder = dir_.filePath("Download");
    const QStringList hostile = {"../../.bashrc",
                                 "..\\..\\Windows\\evil.exe",
                                 "/etc/passwd",
                                 "C:\\Users\\x\\a.txt",
                                 "..",
                                 "",
                                 "con.txt",
                                 "报告<1>:\"?*|.docx",
                                 "name.with.dots. ",
                                 QString("a\nb\x01.txt")};
    for (const QString& name : hostile) {
        const QString target = FileTransfer::targetPath(folder, name);
        QCOMPARE(QFileInfo(target).absolutePath(), QFileInfo(folder).absoluteFilePath());
        const QString file = QFileInfo(target).fileName();
        QVERIFY2(!file.isEmpty() && !file.startsWith('.') && !file.contains('/') &&
                     !file.contains('\\') && !file.contains(':') && !file.contains('\n'),
                 qPrintable(name + " -> " + file));
    }
    QCOMPARE(FileTransfer::safeFileName("报告.docx"), QStringLiteral("报告.docx"));
    QCOMPARE(FileTransfer::safeFileName("../../.bashrc"), QStringLiteral("bashrc"));
    QCOMPARE(FileTransfer::safeFileName("con.txt"), QStringLiteral("_con.txt"));
    // Every device name Windows reserves, in any case and with any extension.
    for (const char* device : {"CON", "prn", "Aux", "NUL.txt", "aux.tar.gz", "LPT1.log", "com9",
                               "lpt5.doc", "COM7.tar.gz", "CON .txt"}) {
        QVERIFY2(FileTransfer::safeFileName(device).startsWith('_'), device);
    }
    for (const char* plain : {"COM10.txt", "console.log", "nullable.h", "LPT.txt", "auxiliary"})
        QCOMPARE(FileTransfer::safeFileName(plain), QString::fromLatin1(plain));
}

void TestOutputView::failedSendSaysSoAndSendsAgain() {
    View v("900", false);
    v.resize(600, 500);
    v.show();
    // Two texts that never reached the store (id 0), each echoed and then reported.
    BaseMsg::MMessage first = text(0, 100, "<b>第一条</b>", true);
    first.conversationId = "900";
    BaseMsg::MMessage second = text(0, 101, "第二条", true);
    second.conversationId = "900";
    for (const BaseMsg::MMessage& m : {first, second}) {
        v.addMessage(m);
        v.addSendFailure(m, QStringLiteral("未连接到通讯服务器 <i>"));
    }
    qx_output::ListWidget* list = v.listWidget();
    int failures = 0;
    for (int i = 1; i < list->count(); ++i)  // row 0 is the history control
        if (list->entryAt(i)->entry.resend) ++failures;
    QCOMPARE(failures, 2);
    QVERIFY(list->entryAt(list->count() - 1)->entry.resend);
    QCOMPARE(list->entryAt(list->count() - 2)->entry.kind, MessageEntry::Text);

    // Following the row's link asks for that very message again.
    QSignalSpy resend(qx_output::Manager::instance(), &qx_output::Manager::resendRequested);
    QTRY_VERIFY(!v.findChildren<qx_output::TipMsgItem*>().isEmpty());
    QLabel* link = nullptr;
    for (qx_output::TipMsgItem* tip : v.findChildren<qx_output::TipMsgItem*>())
        if (tip->text().contains(QLatin1String("href"))) link = tip->findChild<QLabel*>();
    QVERIFY(link);
    // The reason is shown as text, never as markup.
    QVERIFY(link->text().contains(QLatin1String("&lt;i&gt;")));
    emit link->linkActivated(QStringLiteral("action"));
    QCOMPARE(resend.size(), 1);
    const auto again = resend.first().first().value<BaseMsg::MMessage>();
    QCOMPARE(again.conversationId, QStringLiteral("900"));
    QVERIFY(again.text == first.text || again.text == second.text);
}

void TestOutputView::shakesMentionsAndDuplicates() {
    View v("900", true);
    v.resize(600, 500);
    v.show();
    BaseMsg::MMessage shake;
    shake.msgId = 1;
    shake.kind = BaseMsg::Custom;
    shake.senderId = "102";
    shake.summary = QStringLiteral("[抖动窗口]");
    shake.contentJson = "{\"msgType\":-1,\"summary\":\"[抖动窗口]\",\"isCustomMsg\":true}";
    v.addMessage(shake);
    v.addMessage(shake);  // the same message again: nothing new
    BaseMsg::MMessage mine = shake;
    mine.msgId = 2;
    mine.isSelf = true;
    mine.senderId = "101";
    v.addMessage(mine);
    BaseMsg::MMessage old = shake;
    old.msgId = 3;
    old.isHistory = true;
    v.addMessage(old);
    QCOMPARE(shell_.shakes, 1);  // only a new shake from the other side shakes the window
    QCOMPARE(v.listWidget()->entryAt(1)->entry.msg.msgId, quint64(3));  // history goes on top
    QCOMPARE(v.listWidget()->entryAt(v.listWidget()->count() - 1)->entry.html,
             QStringLiteral("你向对方发送了一条抖动消息"));
    QCOMPARE(v.listWidget()->entryAt(v.listWidget()->count() - 2)->entry.html,
             QStringLiteral("对方向你发送了一个抖动窗口。"));

    QVERIFY(v.getAtHiddenStatus());
    QSignalSpy mentionText(qx_output::Manager::instance(),
                           &qx_output::Manager::setAtTextHiddenSignal);
    v.addMessage(text(10, 0, "@王伟不是我"));  // someone else's name that starts with ours
    QVERIFY(v.getAtHiddenStatus());
    v.addMessage(text(11, 0, "请 @王伟 看一下"));
    QVERIFY(!v.getAtHiddenStatus());
    QCOMPARE(mentionText.last(), (QList<QVariant>{"900", false}));
    v.atTip()->click();
    QVERIFY(v.getAtHiddenStatus());
    QCOMPARE(mentionText.last(), (QList<QVariant>{"900", true}));
}

void TestOutputView::avatarOpensTheColleagueCard() {
    View v("102", false);
    v.resize(600, 500);
    v.show();
    v.addMessage(text(1, 0, "你好"));
    QTRY_VERIFY(v.listWidget()->liveWidgetCount() == 1);
    auto* row =
        qobject_cast<qx_output::BaseItem*>(v.listWidget()->itemWidget(v.listWidget()->entryAt(1)));
    QVERIFY(row);
    QTest::mouseClick(row, Qt::LeftButton, {}, row->avatarRect().center());
    QVERIFY(v.infoCard()->isVisible());
    QCOMPARE(v.infoCard()->nameText(), QStringLiteral("李娜"));
    QSignalSpy talk(qx_output::Manager::instance(), &qx_output::Manager::talkToSignal);
    v.infoCard()->findChild<QPushButton*>()->click();
    QCOMPARE(talk.size(), 1);
    QCOMPARE(talk.first().first().toString(), QStringLiteral("102"));
    QVERIFY(!v.infoCard()->isVisible());
    v.showInfoCardSlot("102");
    QTest::mouseClick(v.listWidget()->viewport(), Qt::LeftButton, {}, QPoint(5, 300));
    QVERIFY(!v.infoCard()->isVisible());
}

QTEST_MAIN(TestOutputView)
#include "tst_outputview.moc"
