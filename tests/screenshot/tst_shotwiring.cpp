// How a capture meets the rest of the client: the window hidden for it comes back after
// Finish, Save and Cancel; a finished capture waits in the open conversation's input; a
// platform that refuses the grab is named in a message instead of a black overlay.
#include <QtTest>

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QMessageBox>
#include <QTemporaryDir>
#include <QTextDocument>
#include <QTextEdit>

#include "configstore.h"
#include "conversationcontentinputedit.h"
#include "conversationcontentinputview.h"
#include "conversationcontentview.h"
#include "conversationview.h"
#include "directorystore.h"
#include "mainviewdelegate.h"
#include "mainwindow.h"
#include "resources.h"
#include "screenshotview.h"

using namespace screenshot;

namespace {

class RecordingShell : public MainViewDelegate {
public:
    void showMainWindow() override { calls << "show"; }
    void hideMainWindow() override { calls << "hide"; }
    void startScreenshot() override { calls << "shot"; }
    void showPage(int page) override { calls << QStringLiteral("page %1").arg(page); }
    QStringList calls;
};

QByteArray org() {
    return "{\"errorCode\":0,\"results\":{\"allDeptList\":[{\"id\":\"1\",\"parentId\":\"\"}],"
           "\"allUserList\":[{\"id\":\"101\",\"section\":\"1\",\"realName\":\"王伟\"},"
           "{\"id\":\"102\",\"section\":\"1\",\"realName\":\"李娜\"}]}}";
}

DesktopImage desktop() {
    DesktopImage d;
    d.geometry = QRect(0, 0, 320, 240);
    d.image = QImage(320, 240, QImage::Format_RGB32);
    d.image.fill(QColor(40, 120, 200));
    return d;
}

int picturesIn(const QTextDocument* doc) { return doc->toHtml().count(QStringLiteral("<img")); }

}  // namespace

class TestShotWiring : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void windowComesBackAfterEachWayOut();
    void finishedCaptureWaitsInTheOpenConversation();
    void refusedGrabIsToldAndTheWindowComesBack();
};

void TestShotWiring::initTestCase() {
    quelixInitResources();
    ConfigStore::instance().init();
    ConfigStore::instance().setUser(101, 7);
    QVERIFY(DirectoryStore::instance().load(org()));
    DirectoryStore::instance().setCompanyId("7");
}

void TestShotWiring::windowComesBackAfterEachWayOut() {
    RecordingShell shell;
    MainViewDelegate::setInstance(&shell);
    ConversationView view;
    QTemporaryDir dir;

    // The scissors with "hide while capturing": hidden first, then the capture asked for.
    view.conversationViewScreenShots(false);
    QCOMPARE(shell.calls, QStringList({"hide", "shot"}));

    const QStringList ways{"m_actFinish", "m_actSave", "m_actCancel"};
    for (const QString& way : ways) {
        shell.calls.clear();
        ScreenShotView shot(desktop());
        shot.setSaveChooser(
            [&](QWidget*, const QString&, const QString&) { return dir.filePath("s.png"); });
        view.attachScreenShot(&shot);
        shot.show();
        shot.setSelection(QRect(10, 10, 50, 40));
        shot.findChild<QAction*>(way)->trigger();
        QVERIFY2(shell.calls.contains("show"), qPrintable(way));
        QCOMPARE(shell.calls.count("show"), 1);
    }
    QVERIFY(QFileInfo::exists(dir.filePath("s.png")));

    // Closed any other way, it still comes back.
    shell.calls.clear();
    {
        ScreenShotView shot(desktop());
        view.attachScreenShot(&shot);
        shot.show();
        shot.close();
    }
    QCOMPARE(shell.calls, QStringList({"show"}));
    MainViewDelegate::setInstance(nullptr);
}

void TestShotWiring::finishedCaptureWaitsInTheOpenConversation() {
    RecordingShell shell;
    MainViewDelegate::setInstance(&shell);
    ConversationView view;
    view.showConversation("102", 0);
    auto* input = qobject_cast<ConversationContentInputView*>(view.page("102")->input());
    QVERIFY(input);
    QCOMPARE(picturesIn(input->edit()->document()), 0);

    ScreenShotView shot(desktop());
    view.attachScreenShot(&shot);
    shot.show();
    shot.setSelection(QRect(20, 30, 64, 48));
    shot.OnFinish();
    QVERIFY(shell.calls.contains("show"));
    QVERIFY(shell.calls.contains(QStringLiteral("page %1").arg(MainViewDelegate::ChatPage)));
    // In the input as a pasted picture is: a file of the capture, ready to send with Enter.
    QCOMPARE(picturesIn(input->edit()->document()), 1);
    const QString folder = ConfigStore::instance().folderPath(ConfigStore::ScreenShot);
    const QStringList files = QDir(folder).entryList(QDir::Files);
    QCOMPARE(files.size(), 1);
    QCOMPARE(QImage(QDir(folder).filePath(files.first())).size(), QSize(64, 48));
    QCOMPARE(QApplication::clipboard()->image().size(), QSize(64, 48));
    // Enter sends it to the conversation as a picture.
    ConversationContentView::setClientOnline(true);
    QSignalSpy media(view.page("102"), &ConversationContentView::sendMediaMsg);
    input->edit()->sendTextContent();
    QCOMPARE(media.size(), 1);
    QCOMPARE(media.at(0).at(0).toString(), QStringLiteral("102"));
    QCOMPARE(QFileInfo(media.at(0).at(1).toString()).fileName(), files.first());
    ConversationContentView::setClientOnline(false);

    // With no conversation open the capture stays on the clipboard only.
    ConversationView empty;
    ScreenShotView second(desktop());
    empty.attachScreenShot(&second);
    second.setSelection(QRect(0, 0, 10, 10));
    second.OnFinish();
    QCOMPARE(QApplication::clipboard()->image().size(), QSize(10, 10));
    QCOMPARE(QDir(folder).entryList(QDir::Files).size(), 1);
    MainViewDelegate::setInstance(nullptr);
}

void TestShotWiring::refusedGrabIsToldAndTheWindowComesBack() {
    // The offscreen platform hands out no picture of the screen, as a Wayland session
    // does not.
    MainWindow window(ConfigStore::instance());
    MainViewDelegate::setInstance(&window);
    window.loginSuccess(QStringLiteral("101"));
    window.show();
    QString told;
    QTimer answer;
    connect(&answer, &QTimer::timeout, [&] {
        if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
            told = box->text();
            box->accept();
        }
    });
    answer.start(20);
    window.conversationView()->conversationViewScreenShots(false);
    QVERIFY(!window.isVisible());  // hidden before the grab
    QTRY_VERIFY(!told.isEmpty());
    QVERIFY(told.contains(QStringLiteral("Wayland")));
    QTRY_VERIFY(window.isVisible());
    QVERIFY(!window.screenShot());
    for (QWidget* w : QApplication::topLevelWidgets())
        QVERIFY(!qobject_cast<ScreenShotView*>(w) || !w->isVisible());
    MainViewDelegate::setInstance(nullptr);
}

QTEST_MAIN(TestShotWiring)
#include "tst_shotwiring.moc"
