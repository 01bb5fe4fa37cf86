#include <QRandomGenerator>
#include <QtTest>

#include <QAction>
#include <QApplication>
#include <QKeyEvent>

#include <QGridLayout>
#include <QMimeData>
#include <QTemporaryDir>
#include <QTextBlock>

#include "atlistwidget.h"
#include "configstore.h"
#include "conversationcontentinputedit.h"
#include "conversationcontentinputview.h"
#include "conversationcontentview.h"
#include "directorystore.h"
#include "emotionlabel.h"
#include "emotionset.h"
#include "emotionwidget.h"
#include "mainviewdelegate.h"
#include "prompts.h"
#include "resources.h"
#include "sdk/emotion_catalogue.h"

namespace {
struct Notice {
    QString title, text, button;
};

QString fileOfSize(const QString& path, qint64 size) {
    QFile f(path);
    f.open(QIODevice::WriteOnly);
    f.resize(size);
    return path;
}

// Types text as key presses, Chinese included (the test library's typing is ASCII only).
void type(QWidget* w, const QString& text) {
    for (const QChar c : text) {
        QKeyEvent press(QEvent::KeyPress, 0, Qt::NoModifier, QString(c));
        QApplication::sendEvent(w, &press);
        QKeyEvent release(QEvent::KeyRelease, 0, Qt::NoModifier, QString(c));
        QApplication::sendEvent(w, &release);
    }
}

// What a page hands on: the kind and the payload, in order.
struct Sent : QStringList {
    explicit Sent(ConversationContentView* page) {
        QObject::connect(page, &ConversationContentView::sendTextMsg,
                         [this](const QString&, const QString& t) { append("text:" + t); });
        QObject::connect(page, &ConversationContentView::sendMediaMsg,
                         [this](const QString&, const QString& p) { append("media:" + p); });
        QObject::connect(page, &ConversationContentView::sendCustomMsg,
                         [this](const QString&, const QString& c, const QString& s) {
                             append("custom:" + s + c);
                         });
    }
};
}  // namespace

class TestInputView : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void mixedContentLeavesInDocumentOrder();
    void tooLongTooLargeAndNotAFile();
    void shakeIsLockedForFiveSeconds();
    void mentionListWrapsAndInsertsTheName();
    void emoticonPanelRowsAndStickers();
    void pastedPictureAndRefusedSend();
    void screenshotAsksTheShellAndRemembersHiding();
    void mentionTextFollowsTheOutputsTip();

private:
    QTemporaryDir dir_;
    QList<Notice> notices_;
};

void TestInputView::initTestCase() {
    quelixInitResources();
    ConfigStore::instance().init();
    ConfigStore::instance().setUser(101, 7);
    DirectoryStore::instance().setSelfId("101");
    QList<EmotionSet::Item> items;
    for (const EmotionCatalogue::Entry& e : EmotionCatalogue::entries())
        items.append({e.picture, e.code});
    EmotionSet::instance().setItems(items);
    qx_output::Prompts::setNotice(
        [this](QWidget*, const QString& title, const QString& text, const QString& button) {
            notices_.append({title, text, button});
        });
    ConversationContentView::setClientOnline(true);
}

void TestInputView::init() {
    notices_.clear();
    ConversationContentView::setClientOnline(true);
}

void TestInputView::mixedContentLeavesInDocumentOrder() {
    ConversationContentView page("102", false);
    Sent sent(&page);
    ConversationContentInputView input(&page);
    ConversationContentInputEdit* edit = input.edit();
    QImage picture(300, 120, QImage::Format_RGB32);
    picture.fill(Qt::red);
    const QString shot = dir_.filePath("shot <1>.png");
    QVERIFY(picture.save(shot));

    type(edit, "第一行");
    QTest::keyClick(edit, Qt::Key_Return, Qt::ControlModifier);  // a line break, not a send
    QVERIFY(sent.isEmpty());
    type(edit, "看 ");
    edit->addEmotion(":/openim/emotion/smile.png", "[smile]");
    QVERIFY(edit->insertPicture(shot));
    type(edit, "后面 <b>");
    QTest::keyClick(edit, Qt::Key_Return);
    QCOMPARE(sent, (QStringList{"text:第一行\n看 [smile]", "media:" + shot, "text:后面 <b>"}));
    QVERIFY(edit->document()->isEmpty());

    // A file that is not a picture goes as a file, between its neighbours.
    const QString notes = fileOfSize(dir_.filePath("notes.txt"), 10);
    QSignalSpy uploads(&input, &ConversationContentInputView::startToUploadSignal);
    edit->insertHtml("前<img src='" + notes + "'>后");
    sent.clear();
    edit->sendTextContent();
    QCOMPARE(sent, (QStringList{"text:前", "media:" + notes, "text:后"}));
    QCOMPARE(uploads.size(), 1);
}

void TestInputView::tooLongTooLargeAndNotAFile() {
    ConversationContentView page("102", false);
    Sent sent(&page);
    ConversationContentInputView input(&page);
    ConversationContentInputEdit* edit = input.edit();
    edit->setPlainText(QString(2001, 'a'));
    edit->sendTextContent();
    QVERIFY(sent.isEmpty());
    QCOMPARE(edit->toPlainText().size(), 2001);  // kept for the user to split
    QCOMPARE(notices_.size(), 1);
    QCOMPARE(notices_[0].title, QStringLiteral("错误提示！"));
    QCOMPARE(notices_[0].text, QStringLiteral("发送消息内容超长，请分条发送。\n "));
    QCOMPARE(notices_[0].button, QStringLiteral("关闭"));
    edit->setPlainText(QString(2000, 'a'));
    edit->sendTextContent();
    QCOMPARE(sent, QStringList{"text:" + QString(2000, 'a')});

    notices_.clear();
    QVERIFY(edit->insertPicture(fileOfSize(dir_.filePath("under.png"), 2097151)));
    QVERIFY(!edit->insertPicture(fileOfSize(dir_.filePath("limit.png"), 2097152)));
    QCOMPARE(notices_.size(), 1);
    QCOMPARE(notices_[0].title, QStringLiteral("提示"));
    QCOMPARE(notices_[0].text,
             QStringLiteral("对不起，图片大小超出限额，您可选择以文件形式发送。"));
    sent.clear();
    edit->sendTextContent();
    QCOMPARE(sent, QStringList{"media:" + dir_.filePath("under.png")});

    // Dropped files: 45 MB goes, a byte more does not, and an address is not a file.
    notices_.clear();
    sent.clear();
    const QString ok = fileOfSize(dir_.filePath("big.zip"), 45LL * 1024 * 1024);
    const QString over = fileOfSize(dir_.filePath("bigger.zip"), 45LL * 1024 * 1024 + 1);
    QMimeData drop;
    drop.setUrls(
        {QUrl::fromLocalFile(ok), QUrl::fromLocalFile(over), QUrl("https://example.com/x.zip")});
    edit->insertFromMimeData(&drop);
    QCOMPARE(sent, QStringList{"media:" + ok});
    QCOMPARE(notices_.size(), 2);
    QCOMPARE(notices_[0].text,
             QStringLiteral("对不起，文件：bigger.zip大于45M\n暂不支持大于45M的文件传输。\n"));
    QCOMPARE(notices_[1].text,
             QStringLiteral("请确保拖放的是一个文件。\n https://example.com/x.zip"));
    QVERIFY(edit->document()->isEmpty());
}

void TestInputView::shakeIsLockedForFiveSeconds() {
    ConversationContentView page("102", false);
    Sent sent(&page);
    ConversationContentInputView input(&page);
    input.edit()->setPlainText("草稿");
    input.conversationViewSendShake();
    QCOMPARE(sent, QStringList{"custom:[抖动窗口]{\"msgType\":\"shake\"}"});
    QElapsedTimer since;
    since.start();
    input.conversationViewSendShake();
    QCOMPARE(sent.size(), 1);
    QCOMPARE(page.tips().last(), QStringLiteral("抖动消息发送过于频繁。"));
    QCOMPARE(input.edit()->toPlainText(), QStringLiteral("草稿"));  // the edit is not touched
    QTRY_VERIFY_WITH_TIMEOUT(input.shakeEnabled(), 7000);
    QVERIFY2(since.elapsed() >= 4950, qPrintable(QString::number(since.elapsed())));
    input.conversationViewSendShake();
    QCOMPARE(sent.size(), 2);
}

void TestInputView::mentionListWrapsAndInsertsTheName() {
    ConversationContentView page("900", true);
    Sent sent(&page);
    QWidget window;
    auto* input = new ConversationContentInputView(&page, &window);
    window.resize(500, 300);
    input->resize(500, 300);
    window.show();
    ConversationContentInputEdit* edit = input->edit();
    edit->setMentionMembers({{"王伟", "101"}, {"李娜", "102"}, {"李强", "103"}});
    edit->setFocus();
    type(edit, "请 @");
    AtListWidget* list = edit->atList();
    QVERIFY(list->isVisible());
    QCOMPARE(list->count(), 3);
    QCOMPARE(list->currentRow(), 0);
    QTest::keyClick(edit, Qt::Key_Up);  // from the first row to the last
    QCOMPARE(list->currentRow(), 2);
    QTest::keyClick(edit, Qt::Key_Down);
    QCOMPARE(list->currentRow(), 0);
    type(edit, "李");  // narrows the list
    QCOMPARE(list->count(), 2);
    QTest::keyClick(edit, Qt::Key_Down);
    QTest::keyClick(edit, Qt::Key_Return);  // takes the name, sends nothing
    QVERIFY(!list->isVisible());
    QVERIFY(sent.isEmpty());
    QCOMPARE(edit->toPlainText(), QStringLiteral("请 @李强 "));
    type(edit, "看下");
    QTest::keyClick(edit, Qt::Key_Return);
    QCOMPARE(sent, QStringList{"text:请 @李强 看下"});
    type(edit, "a@b c");  // a finished word after "@" closes the list
    QVERIFY(!list->isVisible());
}

void TestInputView::emoticonPanelRowsAndStickers() {
    ConversationContentView page("102", false);
    Sent sent(&page);
    ConversationContentInputView input(&page);
    EmotionWidget* panel = input.emotionWidget();
    auto position = [](QGridLayout* grid, int index) {
        int row, column, rows, columns;
        grid->getItemPosition(index, &row, &column, &rows, &columns);
        return QPoint(column, row);
    };
    QVERIFY(panel->defaultGrid()->count() > 10);
    QCOMPARE(position(panel->defaultGrid(), 9), QPoint(9, 0));
    QCOMPARE(position(panel->defaultGrid(), 10), QPoint(0, 1));  // the eleventh
    QVERIFY(panel->stickerGrid()->count() >= 8);
    QCOMPARE(position(panel->stickerGrid(), 6), QPoint(6, 0));
    QCOMPARE(position(panel->stickerGrid(), 7), QPoint(0, 1));  // the eighth
    // Our stickers are files in the user's folder, so that they can be sent.
    auto* sticker = qobject_cast<EmotionLabel*>(panel->stickerGrid()->itemAt(0)->widget());
    QVERIFY(QFileInfo(sticker->picturePath()).isFile());
    QVERIFY(
        sticker->picturePath().startsWith(ConfigStore::instance().folderPath(ConfigStore::Emoji)));

    input.emotionWidgetShow();
    QVERIFY(panel->isVisible());
    panel->showBannArea();
    QCOMPARE(panel->currentArea(), 1);
    input.edit()->setPlainText("还没写完");
    QTest::mouseClick(sticker, Qt::LeftButton);
    QCOMPARE(sent, QStringList{"media:" + sticker->picturePath()});
    QCOMPARE(input.edit()->toPlainText(), QStringLiteral("还没写完"));
    QVERIFY(!panel->isVisible());

    input.edit()->clear();
    auto* smile = qobject_cast<EmotionLabel*>(panel->defaultGrid()->itemAt(0)->widget());
    QTest::mouseClick(smile, Qt::LeftButton);
    QTest::mouseClick(smile, Qt::LeftButton);
    input.edit()->sendTextContent();
    const QString code = EmotionSet::instance().items().first().code;
    QCOMPARE(sent.last(), "text:" + code + code);
}

void TestInputView::pastedPictureAndRefusedSend() {
    ConversationContentView page("102", false);
    Sent sent(&page);
    ConversationContentInputView input(&page);
    ConversationContentInputEdit* edit = input.edit();
    QMimeData clip;
    QImage image(40, 30, QImage::Format_ARGB32);
    image.fill(Qt::blue);
    clip.setImageData(image);
    edit->insertFromMimeData(&clip);
    const QString folder = ConfigStore::instance().folderPath(ConfigStore::ScreenShot);
    const QStringList pasted = QDir(folder).entryList({"*_just_paste*.png"});
    QCOMPARE(pasted.size(), 1);
    QCOMPARE(QImage(QDir(folder).filePath(pasted.first())).size(), QSize(40, 30));

    // Off line: the page refuses with its tip and everything stays in the edit.
    ConversationContentView::setClientOnline(false);
    type(edit, "稍后再发");
    QTest::keyClick(edit, Qt::Key_Return);
    QVERIFY(sent.isEmpty());
    QCOMPARE(page.tips().last(), QStringLiteral("您目前处于离线状态，暂时无法发送消息。"));
    QVERIFY(edit->toPlainText().endsWith(QStringLiteral("稍后再发")));
    QVERIFY(edit->toHtml().contains("_just_paste"));
    ConversationContentView::setClientOnline(true);
    QTest::keyClick(edit, Qt::Key_Return);
    QCOMPARE(sent,
             (QStringList{"media:" + QDir(folder).filePath(pasted.first()), "text:稍后再发"}));

    // A pasted picture of 2 MiB and more goes as a file, and the edit takes nothing in.
    QImage noise(1000, 800, QImage::Format_RGB32);
    QRandomGenerator random(7);
    for (int y = 0; y < noise.height(); ++y) {
        auto* row = reinterpret_cast<quint32*>(noise.scanLine(y));
        for (int x = 0; x < noise.width(); ++x) row[x] = random.generate();
    }
    QMimeData big;
    big.setImageData(noise);
    QSignalSpy uploads(&input, &ConversationContentInputView::startToUploadSignal);
    edit->insertFromMimeData(&big);
    QCOMPARE(uploads.size(), 1);
    const QString file = uploads.first().first().toString();
    QVERIFY(file.contains("_just_paste"));
    QVERIFY(QFileInfo(file).size() >= ConversationContentInputEdit::kMaxPictureBytes);
    QVERIFY(!edit->toHtml().contains("_just_paste"));
}

namespace {
class ShotShell : public MainViewDelegate {
public:
    void startScreenshot() override { calls << "shot"; }
    void hideMainWindow() override { calls << "hide"; }
    QStringList calls;
};
}  // namespace

void TestInputView::screenshotAsksTheShellAndRemembersHiding() {
    ShotShell shell;
    MainViewDelegate::setInstance(&shell);
    ConversationContentView page("102", false);
    {
        ConversationContentInputView input(&page);
        QVERIFY(!input.hideOnShotAction()->isChecked());
        input.conversationViewScreenShots();
        QCOMPARE(shell.calls, QStringList{"shot"});
        input.hideOnShotAction()->setChecked(true);  // kept in the user's settings
    }
    QVERIFY(ConfigStore::instance().userConfig().shotHide);
    ConfigStore::instance().userConfig().shotHide = false;
    QVERIFY(ConfigStore::instance().userConfig().load());
    QVERIFY(ConfigStore::instance().userConfig().shotHide);
    ConversationContentInputView again(&page);
    QVERIFY(again.hideOnShotAction()->isChecked());
    shell.calls.clear();
    again.conversationViewScreenShots();
    QCOMPARE(shell.calls, (QStringList{"hide", "shot"}));
    MainViewDelegate::setInstance(nullptr);
}

void TestInputView::mentionTextFollowsTheOutputsTip() {
    ConversationContentView page("900", true);
    auto* input = new ConversationContentInputView(&page);
    page.setInput(input);
    page.show();
    auto* mention = input->findChild<QWidget*>(QStringLiteral("atText"));
    QVERIFY(mention);
    QVERIFY(mention->isHidden());
    page.setAtTextHiddenSlot(QStringLiteral("900"), false);
    QVERIFY(!mention->isHidden());
    page.setAtTextHiddenSlot(QStringLiteral("901"), true);  // another conversation's
    QVERIFY(!mention->isHidden());
    page.setAtTextHiddenSlot(QStringLiteral("900"), true);
    QVERIFY(mention->isHidden());
}

QTEST_MAIN(TestInputView)
#include "tst_inputview.moc"
