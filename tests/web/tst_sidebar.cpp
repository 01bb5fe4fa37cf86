// The sliding sidebar with the real web engine (offscreen): the engine stays out of the
// process until the first page, the slide, the discard on the main window's activation,
// the address rules and the hit areas.
#include <QtTest>

#include <QPropertyAnimation>
#include <QPushButton>
#include <QTcpServer>
#include <QTcpSocket>

#include "../support/privatedisplay.h"
#include "configstore.h"
#include "manager.h"
#include "sidebarhittest.h"
#include "sidebarview.h"
#include "webengineloader.h"
#include "worksitepage.h"

namespace {

// A page server on loopback that answers every request with a small page.
class TinyPageServer : public QTcpServer {
public:
    TinyPageServer() {
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* s = nextPendingConnection()) {
                connect(s, &QTcpSocket::readyRead, s, [this, s] {
                    const QByteArray request = s->readAll();
                    const int cookie = request.indexOf("Cookie: ");
                    if (cookie >= 0)
                        cookies << request.mid(cookie + 8,
                                               request.indexOf('\r', cookie) - cookie - 8);
                    const QByteArray body =
                        "<html><head><title>任务页</title></head><body>x</body></html>";
                    s->write(
                        "HTTP/1.1 200 OK\r\nContent-Type: text/html; charset=utf-8\r\n"
                        "Connection: close\r\nContent-Length: " +
                        QByteArray::number(body.size()) + "\r\n\r\n" + body);
                    s->disconnectFromHost();
                });
                connect(s, &QTcpSocket::disconnected, s, &QObject::deleteLater);
            }
        });
    }
    QByteArrayList cookies;
};

}  // namespace

class TestSidebar : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void addressesAreCompletedAgainstTheBackEndOrRefused();
    void onlyTheBodyDragsAndOnlyTheLeftEdgeResizes();
    void aSecondSlideRestartsFromItsNewStart();
    void theEngineLoadsWithTheFirstPageAndTheViewGoesWhenTheMainWindowIsActivated();
    void theWorkSiteShowsTheHomePageSignedInOnceShown();

private:
    TinyPageServer pages_;
    QString base_;
};

void TestSidebar::initTestCase() {
    QVERIFY(pages_.listen(QHostAddress::LocalHost));
    base_ = QStringLiteral("http://127.0.0.1:%1").arg(pages_.serverPort());
    ConfigStore::instance().init();
    ConfigStore::instance().setUrl(UrlTable::UrlHome, base_);
}

void TestSidebar::addressesAreCompletedAgainstTheBackEndOrRefused() {
    const QString home = QStringLiteral("http://work.example:8080");
    QCOMPARE(SidebarView::completeUrl("/work/task.htm?taskId=7", home),
             QStringLiteral("http://work.example:8080/work/task.htm?taskId=7"));
    QCOMPARE(SidebarView::completeUrl("work/goals.htm?projectId=5", home),
             QStringLiteral("http://work.example:8080/work/goals.htm?projectId=5"));
    QCOMPARE(SidebarView::completeUrl(" https://other.example/a ", home),
             QStringLiteral("https://other.example/a"));
    for (const char* refused : {"javascript:alert(1)", "file:///etc/passwd", "data:text/html,x",
                                "httpx://a/b", "http://"})
        QVERIFY2(SidebarView::completeUrl(refused, home).isEmpty(), refused);
}

void TestSidebar::onlyTheBodyDragsAndOnlyTheLeftEdgeResizes() {
    const QSize size(500, 700);
    using H = SidebarHitTest;
    QCOMPARE(H::hit({250, 300}, size, false), H::Caption);
    QCOMPARE(H::hit({250, 300}, size, true), H::NotHandled);
    QCOMPARE(H::hit({0, 300}, size, false), H::Left);
    QCOMPARE(H::hit({4, 10}, size, true), H::Left);
    // The other edges and the bottom-left corner neither move nor resize.
    for (const QPoint& p : {QPoint(499, 300), QPoint(250, 0), QPoint(250, 699), QPoint(2, 698)})
        QCOMPARE(H::hit(p, size, false), H::Nothing);

    SidebarView panel;
    panel.resize(size);
    long result = -1;
    QVERIFY(panel._OnNcHitTest(250, 300, &result));
    QCOMPARE(result, 2L);
    QVERIFY(panel._OnNcHitTest(1, 300, &result));
    QCOMPARE(result, 10L);
    QVERIFY(panel._OnNcHitTest(498, 300, &result));
    QCOMPARE(result, 0L);
    // The close button takes its own press.
    const QWidget* close = panel.findChild<QWidget*>("sidebarClose");
    QVERIFY(close);
    QVERIFY(!panel._OnNcHitTest(close->geometry().center().x(), close->geometry().center().y(),
                                &result));
}

void TestSidebar::aSecondSlideRestartsFromItsNewStart() {
    SidebarView panel;
    panel.resize(400, 600);
    panel.showAnimation(int(QEasingCurve::OutQuart), QPoint(100, 50));
    QPropertyAnimation* a = panel.animation();
    QCOMPARE(a->state(), QAbstractAnimation::Running);
    QCOMPARE(a->duration(), 500);
    QCOMPARE(a->startValue().toRect(), QRect(100, 50, 0, 600));
    QCOMPARE(a->endValue().toRect(), QRect(100, 50, 400, 600));
    QTest::qWait(100);
    panel.showAnimation(int(QEasingCurve::Linear), QPoint(300, 80));
    QCOMPARE(a->state(), QAbstractAnimation::Running);
    QVERIFY(a->currentTime() < 100);
    QCOMPARE(a->startValue().toRect(), QRect(300, 80, 0, 600));
    QCOMPARE(a->easingCurve().type(), QEasingCurve::Linear);
    QTRY_COMPARE(a->state(), QAbstractAnimation::Stopped);
    QCOMPARE(panel.geometry(), QRect(300, 80, 400, 600));
}

void TestSidebar::theEngineLoadsWithTheFirstPageAndTheViewGoesWhenTheMainWindowIsActivated() {
    // Making the panel does not bring the web engine in; the first page does.
    auto* anchor = new QWidget;
    anchor->setGeometry(0, 0, 300, 600);
    SidebarView panel(anchor);
    panel.setSessionSource([] { return QStringLiteral("s3ss10n"); });
    QVERIFY(!WebEngineLoader::engineMapped());
    QVERIFY(!panel.webView());

    QSignalSpy loaded(&panel, &SidebarView::pageLoaded);
    const QString page = base_ + QStringLiteral("/work/task.htm?taskId=1");
    emit qx_output::Manager::instance()->openTaskSignal(page);
    QVERIFY(WebEngineLoader::engineMapped());
    QPointer<QWidget> first = panel.webView();
    QVERIFY(first);
    QVERIFY(panel.isVisible());
    QCOMPARE(panel.currentUrl(), page);
    QVERIFY(loaded.wait(30000));
    QVERIFY(loaded.first().first().toBool());
    QCOMPARE(first->property("title").toString(), QStringLiteral("任务页"));
    QVERIFY(panel.zoomApplied());
    // The page shows once the panel has slid out.
    QTRY_VERIFY(first->isVisible());
    QCOMPARE(panel.animation()->state(), QAbstractAnimation::Stopped);
    // The page went out with the user's session.
    QVERIFY(pages_.cookies.join(' ').contains("QXSESSION=s3ss10n"));

    // Activating the main window hides the panel and throws its page away.
    emit qx_output::Manager::instance()->mainWinActiveSignal();
    QVERIFY(!panel.isVisible());
    QVERIFY(panel.currentUrl().isEmpty());
    QVERIFY(!panel.webView());
    QTRY_VERIFY(!first);

    // The panel's own close button does the same.
    emit qx_output::Manager::instance()->openTaskSignal(page);
    QVERIFY(panel.isVisible() && panel.webView());
    QTest::mouseClick(panel.findChild<QPushButton*>("sidebarClose"), Qt::LeftButton);
    QVERIFY(!panel.isVisible());
    QVERIFY(!panel.webView());

    // The next card builds a new view; the creation link loads without sliding in.
    emit qx_output::Manager::instance()->createTaskSignal(
        QStringLiteral("/work/task.htm?m=create"));
    QVERIFY(panel.webView());
    QVERIFY(!panel.isVisible());
    QCOMPARE(panel.currentUrl(), base_ + QStringLiteral("/work/task.htm?m=create"));
    // A refused address leaves the page as it is.
    qx_output::Manager::instance()->openTaskPage(QStringLiteral("javascript:alert(1)"));
    QCOMPARE(panel.currentUrl(), base_ + QStringLiteral("/work/task.htm?m=create"));
    panel.hideSidebarView();
    delete anchor;
}

void TestSidebar::theWorkSiteShowsTheHomePageSignedInOnceShown() {
    WorkSitePage page;
    page.setSessionSource([] { return QStringLiteral("w0rk"); });
    QVERIFY(!page.webView());  // nothing until the page is shown
    QSignalSpy loaded(&page, &WorkSitePage::pageLoaded);
    pages_.cookies.clear();
    page.resize(500, 400);
    page.show();
    QVERIFY(page.webView());
    QVERIFY(loaded.wait(30000));
    QVERIFY(loaded.first().first().toBool());
    QCOMPARE(page.webView()->property("url").toUrl(), QUrl(base_ + "/"));
    QVERIFY(pages_.cookies.join(' ').contains("QXSESSION=w0rk"));
}

int main(int argc, char** argv) {
    PrivateDisplay display;
    if (!display.start()) return 1;
    int rc = 0;
    {
        // As the client does before its application object exists.
        QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
        QApplication app(argc, argv);
        TestSidebar test;
        rc = QTest::qExec(&test, argc, argv);
    }
    return rc;
}

#include "tst_sidebar.moc"
