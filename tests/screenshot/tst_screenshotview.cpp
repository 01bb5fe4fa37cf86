// The overlay driven as a user would: select, annotate with tools, sizes and colours,
// type text, undo, and leave by Finish, Save or Cancel.
#include <QtTest>

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QLabel>
#include <QMimeData>
#include <QPushButton>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTextEdit>
#include <QToolBar>

#include "colorwidget.h"
#include "resources.h"
#include "screenshotview.h"
#include "shotfilename.h"

using namespace screenshot;

namespace {

// A 400 x 300 desktop of grey stripes (never one flat colour), at the given ratio.
DesktopImage desktop(qreal ratio = 1.0) {
    DesktopImage d;
    d.geometry = QRect(0, 0, 400, 300);
    d.ratio = ratio;
    d.image = QImage(QSize(400, 300) * ratio, QImage::Format_RGB32);
    for (int y = 0; y < d.image.height(); ++y)
        for (int x = 0; x < d.image.width(); ++x)
            d.image.setPixel(x, y, (y / 20) % 2 ? qRgb(230, 230, 230) : qRgb(250, 250, 250));
    return d;
}

void mouse(QWidget* w, QEvent::Type type, QPoint pos, Qt::MouseButton button = Qt::LeftButton) {
    const Qt::MouseButtons held = type == QEvent::MouseButtonRelease ? Qt::NoButton : button;
    QMouseEvent e(type, pos, w->mapToGlobal(pos), type == QEvent::MouseMove ? Qt::NoButton : button,
                  held, Qt::NoModifier);
    QApplication::sendEvent(w, &e);
}

void drag(QWidget* w, QPoint from, QPoint to, int steps = 8) {
    mouse(w, QEvent::MouseButtonPress, from);
    for (int i = 1; i <= steps; ++i) mouse(w, QEvent::MouseMove, from + (to - from) * i / steps);
    mouse(w, QEvent::MouseButtonRelease, to);
}

QAction* action(const ScreenShotView& v, const char* name) {
    return v.findChild<QAction*>(QLatin1String(name));
}

bool is(QRgb pixel, const QColor& c) {
    return qAbs(qRed(pixel) - c.red()) <= 24 && qAbs(qGreen(pixel) - c.green()) <= 24 &&
           qAbs(qBlue(pixel) - c.blue()) <= 24;
}

QStringList desktopFiles() { return QDir(ShotFileName::desktopFolder()).entryList(QDir::Files); }

}  // namespace

class TestScreenShotView : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void selectingShowsMagnifierThenToolBars();
    void toolsDrawWithChosenSizeAndColourAndUndoTakesTheLast();
    void textIsTypedInPlace();
    void finishPutsThePictureOnTheClipboard();
    void cancelLeavesClipboardAndFilesAlone();
    void saveWritesTheChosenFileAndACancelledSaveKeepsTheCapture();
    void ratioTwoIsSharp();
};

void TestScreenShotView::initTestCase() { quelixInitResources(); }

void TestScreenShotView::selectingShowsMagnifierThenToolBars() {
    ScreenShotView v(desktop());
    v.show();
    QVERIFY(v.magnifierShown());
    QVERIFY(!v.toolBar());  // bars come with the first selection
    mouse(&v, QEvent::MouseMove, {30, 25});
    QCOMPARE(v.infoLines().first(), QStringLiteral("坐标：30, 25"));
    QCOMPARE(v.infoLines().at(1), QStringLiteral("RGB：230,230,230"));

    drag(&v, {50, 40}, {250, 190});
    QCOMPARE(v.selection(), QRect(50, 40, 200, 150));
    QVERIFY(!v.magnifierShown());
    QCOMPARE(v.infoLines().last(), QStringLiteral("尺寸：200×150"));

    // The first bar under the selection, its actions in order, each with its drawing.
    QVERIFY(v.toolBar()->isVisible());
    QVERIFY(v.toolBar()->y() >= v.selection().bottom());
    QStringList names;
    for (QAction* a : v.toolBar()->actions())
        if (!a->isSeparator()) {
            names << a->objectName();
            QVERIFY2(!a->icon().pixmap(24, 24).isNull(), qPrintable(a->objectName()));
        }
    QCOMPARE(names,
             QStringList({"m_actEllipse", "m_actRectangle", "m_actArrow", "m_actBrush", "m_actText",
                          "m_actUndo", "m_actSave", "m_actCancel", "m_actFinish"}));
    QVERIFY(!QPixmap(":/resource/ScreenShotUI/shape_size_large_active2x.png").isNull());
    QVERIFY(!action(v, "m_actUndo")->isEnabled());  // nothing to undo yet
    QVERIFY(!v.sizeBar()->isVisible());             // sizes come with a tool

    // Resizing by the bottom-right handle; the bars step aside while dragging.
    mouse(&v, QEvent::MouseButtonPress, {250, 190});
    mouse(&v, QEvent::MouseMove, {300, 230});
    QVERIFY(!v.toolBar()->isVisible());
    QVERIFY(v.magnifierShown());
    mouse(&v, QEvent::MouseButtonRelease, {300, 230});
    QCOMPARE(v.selection(), QRect(50, 40, 250, 190));
    QVERIFY(v.toolBar()->isVisible());

    // Right click with nothing drawn selects again; a second one leaves.
    QSignalSpy exits(&v, &ScreenShotView::signal_Exit);
    mouse(&v, QEvent::MouseButtonPress, {100, 100}, Qt::RightButton);
    QVERIFY(v.selection().isEmpty());
    QVERIFY(!v.toolBar()->isVisible());
    QCOMPARE(exits.size(), 0);
    mouse(&v, QEvent::MouseButtonPress, {100, 100}, Qt::RightButton);
    QCOMPARE(exits.size(), 1);
    QVERIFY(v.isDone());
}

void TestScreenShotView::toolsDrawWithChosenSizeAndColourAndUndoTakesTheLast() {
    ScreenShotView v(desktop());
    v.show();
    drag(&v, {20, 20}, {380, 280});
    action(v, "m_actRectangle")->trigger();
    QCOMPARE(v.tool(), ScreenShotView::Tool::Rectangle);
    QVERIFY(v.sizeBar()->isVisible());
    action(v, "m_actSize3")->trigger();
    QCOMPARE(v.penWidth(), ScreenShotView::kPenWidths[2]);
    QTest::mouseClick(v.colorWidget()->colorButton(13), Qt::LeftButton);  // blue
    QCOMPARE(v.color(), QColor(Qt::blue));
    QVERIFY(v.colorWidget()->swatch()->styleSheet().contains("#0000ff"));
    drag(&v, {60, 60}, {160, 140});
    QCOMPARE(v.annotations().count(), 1);

    // Outside the selection nothing is drawn: the press is not for a tool.
    drag(&v, {5, 5}, {15, 15});
    QCOMPARE(v.annotations().count(), 1);

    action(v, "m_actBrush")->trigger();
    QCOMPARE(v.tool(), ScreenShotView::Tool::Brush);
    QVERIFY(!action(v, "m_actRectangle")->isChecked());
    action(v, "m_actSize1")->trigger();
    QTest::mouseClick(v.colorWidget()->colorButton(10), Qt::LeftButton);  // red
    drag(&v, {200, 200}, {300, 200}, 20);
    QCOMPARE(v.annotations().count(), 2);
    QVERIFY(action(v, "m_actUndo")->isEnabled());

    QImage out = v.renderSelection();
    const QPoint o(20, 20);
    // Rectangle: blue, eight pixels wide across its left edge at x = 60.
    int run = 0;
    for (int x = 50; x < 70; ++x) run += is(out.pixel(QPoint(x, 100) - o), Qt::blue) ? 1 : 0;
    QCOMPARE(run, 8);
    QVERIFY(is(out.pixel(QPoint(250, 200) - o), Qt::red));
    int brush = 0;
    for (int y = 190; y < 210; ++y) brush += is(out.pixel(QPoint(250, y) - o), Qt::red) ? 1 : 0;
    QCOMPARE(brush, 2);

    // Undo takes the stroke only; then the rectangle; then there is nothing to take.
    QSignalSpy undos(&v, &ScreenShotView::signal_Undo);
    action(v, "m_actUndo")->trigger();
    out = v.renderSelection();
    QVERIFY(!is(out.pixel(QPoint(250, 200) - o), Qt::red));
    QVERIFY(is(out.pixel(QPoint(60, 100) - o), Qt::blue));
    QTest::keyClick(&v, Qt::Key_Z, Qt::ControlModifier);
    QCOMPARE(v.annotations().count(), 0);
    QVERIFY(!action(v, "m_actUndo")->isEnabled());
    v.OnUndo();
    QCOMPARE(undos.size(), 2);
    QVERIFY(v.isVisible());  // an empty undo changes nothing

    // Clicking the checked tool again puts it down: the selection can be moved again.
    action(v, "m_actBrush")->trigger();
    QCOMPARE(v.tool(), ScreenShotView::Tool::None);
    QVERIFY(!v.sizeBar()->isVisible());
}

void TestScreenShotView::textIsTypedInPlace() {
    ScreenShotView v(desktop());
    v.show();
    v.setSelection(QRect(10, 10, 380, 280));
    action(v, "m_actText")->trigger();
    QTest::mouseClick(v.colorWidget()->colorButton(0), Qt::LeftButton);  // black
    mouse(&v, QEvent::MouseButtonPress, {100, 100});
    mouse(&v, QEvent::MouseButtonRelease, {100, 100});
    QTextEdit* edit = v.textEdit();
    QVERIFY(edit->isVisible());
    QCOMPARE(edit->styleSheet(),
             QStringLiteral("QTextEdit { border:2px dashed gray; background:transparent; }"));
    const int narrow = edit->width();
    QTest::keyClicks(edit, QStringLiteral("Release at five"));
    QVERIFY(edit->width() > narrow);  // the box grows with the text
    QCOMPARE(v.annotations().count(), 0);

    // A click beside it ends typing; the text is kept where it was typed.
    mouse(&v, QEvent::MouseButtonPress, {300, 250});
    mouse(&v, QEvent::MouseButtonRelease, {300, 250});
    QVERIFY(!edit->isVisible());
    QCOMPARE(v.annotations().count(), 1);
    const QRect area = v.annotations().at(0)->bounds();
    QVERIFY(area.contains(QPoint(101, 101)));
    const QImage out = v.renderSelection();
    int dark = 0;
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x)
            dark += qGray(out.pixel(QPoint(x, y) - QPoint(10, 10))) < 80 ? 1 : 0;
    QVERIFY(dark > 30);

    // An edit left empty keeps nothing; Escape in the edit ends typing, not the capture.
    mouse(&v, QEvent::MouseButtonPress, {100, 200});
    QVERIFY(edit->isVisible());
    QTest::keyClick(edit, Qt::Key_Escape);
    QVERIFY(!edit->isVisible());
    QVERIFY(!v.isDone());
    QCOMPARE(v.annotations().count(), 1);
}

void TestScreenShotView::finishPutsThePictureOnTheClipboard() {
    QApplication::clipboard()->setText(QStringLiteral("before"));
    ScreenShotView v(desktop());
    v.show();
    QSignalSpy finished(&v, &ScreenShotView::signal_Finish);
    QSignalSpy exits(&v, &ScreenShotView::signal_Exit);
    v.OnFinish();  // nothing selected yet: nothing to finish
    QCOMPARE(finished.size(), 0);
    drag(&v, {100, 100}, {160, 140});
    action(v, "m_actArrow")->trigger();
    drag(&v, {110, 130}, {150, 105});
    action(v, "m_actFinish")->trigger();
    QCOMPARE(finished.size(), 1);
    QCOMPARE(exits.size(), 0);  // Finish has its own signal
    QVERIFY(!v.isVisible());
    const QImage onClipboard = QApplication::clipboard()->image();
    QCOMPARE(onClipboard.size(), QSize(60, 40));
    QCOMPARE(onClipboard.convertToFormat(QImage::Format_RGB32), v.renderSelection());
    v.OnFinish();
    v.OnCancel();
    QCOMPARE(finished.size(), 1);  // one way out only
    QCOMPARE(exits.size(), 0);
}

void TestScreenShotView::cancelLeavesClipboardAndFilesAlone() {
    QApplication::clipboard()->setText(QStringLiteral("keep me"));
    const QStringList before = desktopFiles();
    ScreenShotView v(desktop());
    bool asked = false;
    v.setSaveChooser([&](QWidget*, const QString&, const QString&) {
        asked = true;
        return QString();
    });
    v.show();
    QSignalSpy cancels(&v, &ScreenShotView::signal_Cancel);
    QSignalSpy exits(&v, &ScreenShotView::signal_Exit);
    drag(&v, {10, 10}, {200, 200});
    action(v, "m_actEllipse")->trigger();
    drag(&v, {20, 20}, {100, 100});
    QTest::keyClick(&v, Qt::Key_Escape);
    QCOMPARE(cancels.size(), 1);
    QCOMPARE(exits.size(), 1);
    QVERIFY(!v.isVisible());
    QVERIFY(!asked);
    QCOMPARE(QApplication::clipboard()->text(), QStringLiteral("keep me"));
    QVERIFY(QApplication::clipboard()->image().isNull());
    QCOMPARE(desktopFiles(), before);
    v.close();  // closing afterwards reports nothing more
    QCOMPARE(exits.size(), 1);

    // Closed from outside counts as Cancel, so the window still comes back.
    ScreenShotView other(desktop());
    other.show();
    QSignalSpy otherExits(&other, &ScreenShotView::signal_Exit);
    other.close();
    QCOMPARE(otherExits.size(), 1);
}

void TestScreenShotView::saveWritesTheChosenFileAndACancelledSaveKeepsTheCapture() {
    QTemporaryDir dir;
    const QStringList desktopBefore = desktopFiles();
    ScreenShotView v(desktop());
    QString proposed, filter, answer;
    v.setSaveChooser([&](QWidget*, const QString& p, const QString& f) {
        proposed = p;
        filter = f;
        return answer;
    });
    v.show();
    QSignalSpy saves(&v, &ScreenShotView::signal_Save);
    QSignalSpy exits(&v, &ScreenShotView::signal_Exit);
    v.setSelection(QRect(30, 40, 120, 80));
    action(v, "m_actRectangle")->trigger();
    drag(&v, {40, 50}, {90, 90});

    // Cancelled: nothing written, the capture back as it was.
    action(v, "m_actSave")->trigger();
    QVERIFY(proposed.startsWith(QDir(ShotFileName::desktopFolder()).filePath("Quelix截图_")));
    QCOMPARE(filter, QStringLiteral("图片 (*.png *.jpg *.bmp)"));
    QCOMPARE(saves.size(), 0);
    QVERIFY(v.isVisible());
    QCOMPARE(v.annotations().count(), 1);
    QCOMPARE(desktopFiles(), desktopBefore);

    // A name without a known extension is saved as PNG under that name plus ".png".
    answer = dir.filePath("capture");
    action(v, "m_actSave")->trigger();
    QCOMPARE(saves.size(), 1);
    QCOMPARE(exits.size(), 1);
    QVERIFY(!v.isVisible());
    const QImage saved(dir.filePath("capture.png"));
    QCOMPARE(saved.size(), QSize(120, 80));
    QCOMPARE(saved.convertToFormat(QImage::Format_RGB32), v.renderSelection());

    // The format follows the extension.
    ScreenShotView jpg(desktop());
    jpg.setSaveChooser(
        [&](QWidget*, const QString&, const QString&) { return dir.filePath("a.jpg"); });
    jpg.setSelection(QRect(0, 0, 64, 32));
    jpg.OnSave();
    QFile file(dir.filePath("a.jpg"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(file.read(3) == QByteArray("\xFF\xD8\xFF"));
}

void TestScreenShotView::ratioTwoIsSharp() {
    ScreenShotView v(desktop(2.0));
    v.show();
    drag(&v, {10, 10}, {110, 60});
    QCOMPARE(v.selection(), QRect(10, 10, 100, 50));
    QCOMPARE(v.renderSelection().size(), QSize(200, 100));
    QCOMPARE(v.infoLines().last(), QStringLiteral("尺寸：200×100"));
    mouse(&v, QEvent::MouseMove, {30, 45});
    QCOMPARE(v.infoLines().first(), QStringLiteral("坐标：60, 90"));
}

QTEST_MAIN(TestScreenShotView)
#include "tst_screenshotview.moc"
