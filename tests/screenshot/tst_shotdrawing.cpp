// The plain parts of the screenshot tool: annotations rendered into the output picture,
// undo, the selection's handles, the magnifier's box, file names and the desktop picture
// made of several screens.
#include <QtTest>

#include <QPainter>
#include <QTemporaryDir>

#include "actionarrow.h"
#include "actionbrush.h"
#include "actionellipse.h"
#include "actionrectangle.h"
#include "actiontext.h"
#include "annotationdocument.h"
#include "desktopgrabber.h"
#include "magnifier.h"
#include "selectiongeometry.h"
#include "shotfilename.h"

using namespace screenshot;

namespace {

QImage whiteDesktop(const QSize& size) {
    QImage image(size, QImage::Format_RGB32);
    image.fill(Qt::white);
    return image;
}

bool is(QRgb pixel, const QColor& colour) {
    const int tol = 24;
    return qAbs(qRed(pixel) - colour.red()) <= tol && qAbs(qGreen(pixel) - colour.green()) <= tol &&
           qAbs(qBlue(pixel) - colour.blue()) <= tol;
}

// How many pixels of the colour the row crosses between x0 and x1 (exclusive).
int runOnRow(const QImage& image, int y, int x0, int x1, const QColor& colour) {
    int n = 0;
    for (int x = x0; x < x1; ++x) n += is(image.pixel(x, y), colour) ? 1 : 0;
    return n;
}

template <typename T>
std::unique_ptr<ScreenShotAction> shape(const QColor& c, int width, QPoint from, QPoint to) {
    auto a = std::make_unique<T>(c, width);
    a->start(from);
    a->moveTo(to);
    return a;
}

}  // namespace

class TestShotDrawing : public QObject {
    Q_OBJECT
private slots:
    void shapesRenderWhereDrawnWithColourAndWidth();
    void strokesAndTextRenderInTheirPlace();
    void undoRemovesOnlyTheLast();
    void ratioTwoGivesTwiceTheSelectionsSize();
    void selectionIsDrawnMovedAndResizedWithinTheDesktop();
    void toolBarsStayOnScreen();
    void infoBoxShowsPositionColourAndWidthThenHeight();
    void twoSavesInOneSecondGetDifferentNames();
    void screensMakeOneDesktopAndBlankGrabsAreRefused();
};

void TestShotDrawing::shapesRenderWhereDrawnWithColourAndWidth() {
    const QImage desktop = whiteDesktop({300, 200});
    const QRect selection(20, 20, 260, 170);
    AnnotationDocument doc;
    doc.add(shape<ActionRectangle>(Qt::red, 4, {40, 40}, {100, 80}));
    doc.add(shape<ActionEllipse>(Qt::blue, 8, {130, 40}, {210, 100}));
    const QImage out = doc.render(desktop, selection, 1.0);
    QCOMPARE(out.size(), selection.size());
    const QPoint o = selection.topLeft();

    // The rectangle's left edge at x = 40: four red pixels across it, white inside.
    QVERIFY(is(out.pixel(QPoint(40, 60) - o), Qt::red));
    QCOMPARE(runOnRow(out, 60 - o.y(), 30 - o.x(), 50 - o.x(), Qt::red), 4);
    QVERIFY(is(out.pixel(QPoint(70, 60) - o), Qt::white));
    // Its bottom edge near y = 79 is red too, below it white.
    QVERIFY(is(out.pixel(QPoint(70, 79) - o), Qt::red));
    QVERIFY(is(out.pixel(QPoint(70, 90) - o), Qt::white));

    // The ellipse (x 130..209, centre row y = 70): eight blue pixels at its left, within
    // one pixel of antialiasing; white at its centre and outside it.
    const int run = runOnRow(out, 70 - o.y(), 120 - o.x(), 150 - o.x(), Qt::blue);
    QVERIFY2(run >= 7 && run <= 9, qPrintable(QString::number(run)));
    QVERIFY(is(out.pixel(QPoint(170, 70) - o), Qt::white));
    QVERIFY(is(out.pixel(QPoint(132, 42) - o), Qt::white));  // the corner is not drawn
    QVERIFY(is(out.pixel(QPoint(170, 40) - o), Qt::blue));   // the top of the ellipse

    // Corners that coincide make nothing worth keeping.
    ActionRectangle dot(Qt::red, 4);
    dot.start({10, 10});
    dot.moveTo({10, 10});
    QVERIFY(dot.bounds().isEmpty());
}

void TestShotDrawing::strokesAndTextRenderInTheirPlace() {
    const QImage desktop = whiteDesktop({300, 200});
    const QRect selection(0, 0, 300, 200);
    AnnotationDocument doc;
    doc.add(shape<ActionArrow>(Qt::darkGreen, 4, {20, 150}, {200, 150}));
    auto brush = std::make_unique<ActionBrush>(QColor(Qt::magenta), 2);
    brush->start({30, 30});
    for (int x = 31; x <= 90; ++x) brush->moveTo({x, 30 + (x <= 60 ? x - 30 : 90 - x)});
    doc.add(std::move(brush));
    auto text = std::make_unique<ActionText>(QColor(Qt::black), 8);
    text->start({150, 20});
    text->setText(QStringLiteral("OK\nOK"));
    const QRect textArea = text->bounds();
    doc.add(std::move(text));
    const QImage out = doc.render(desktop, selection, 1.0);

    // Arrow: the shaft is four pixels thick; the head near the end is much wider.
    QCOMPARE(runOnRow(out.transformed(QTransform().rotate(90)), 100, 0, 200, Qt::darkGreen), 4);
    int headHeight = 0;
    for (int y = 120; y < 180; ++y) headHeight += is(out.pixel(184, y), Qt::darkGreen) ? 1 : 0;
    QVERIFY2(headHeight > 8, qPrintable(QString::number(headHeight)));
    QVERIFY(is(out.pixel(205, 150), Qt::white));  // nothing past the point

    // Brush: on the stroke's turning point, not under the V.
    QVERIFY(is(out.pixel(59, 59), Qt::magenta));
    QVERIFY(is(out.pixel(44, 44), Qt::magenta));
    QVERIFY(is(out.pixel(60, 40), Qt::white));

    // Text: black pixels inside its bounds, two lines tall, none outside.
    QVERIFY(textArea.height() > ActionText::pixelSizeFor(8) * 2 - 4);
    int inside = 0, outside = 0;
    for (int y = 0; y < 120; ++y)
        for (int x = 140; x < 300; ++x)
            if (is(out.pixel(x, y), Qt::black)) (textArea.contains(x, y) ? inside : outside) += 1;
    QVERIFY(inside > 20);
    QCOMPARE(outside, 0);
}

void TestShotDrawing::undoRemovesOnlyTheLast() {
    const QImage desktop = whiteDesktop({200, 200});
    AnnotationDocument doc;
    QVERIFY(!doc.undo());  // nothing to undo: nothing happens
    doc.add(shape<ActionRectangle>(Qt::red, 4, {20, 20}, {80, 80}));
    doc.add(shape<ActionRectangle>(Qt::blue, 4, {100, 100}, {180, 180}));
    QVERIFY(doc.undo());
    QCOMPARE(doc.count(), 1);
    const QImage out = doc.render(desktop, desktop.rect(), 1.0);
    QVERIFY(is(out.pixel(20, 50), Qt::red));
    QVERIFY(is(out.pixel(100, 140), Qt::white));
    QVERIFY(doc.undo());
    QVERIFY(!doc.undo());
    QVERIFY(doc.isEmpty());
}

void TestShotDrawing::ratioTwoGivesTwiceTheSelectionsSize() {
    // A 200 x 150 desktop seen at ratio 2: 400 x 300 pixels.
    const QImage desktop = whiteDesktop({400, 300});
    AnnotationDocument doc;
    doc.add(shape<ActionRectangle>(Qt::red, 4, {30, 30}, {80, 60}));
    const QRect selection(10, 20, 100, 50);
    const QImage out = doc.render(desktop, selection, 2.0);
    QCOMPARE(out.size(), QSize(200, 100));
    // The pen is 4 logical pixels, so 8 in the picture, at (30 - 10) * 2 = 40.
    QCOMPARE(runOnRow(out, 40, 30, 50, Qt::red), 8);
    QVERIFY(is(out.pixel(41, 40), Qt::red));
    QCOMPARE(AnnotationDocument::toDevice(QRect(3, 4, 5, 6), 1.5), QRect(5, 6, 8, 9));
}

void TestShotDrawing::selectionIsDrawnMovedAndResizedWithinTheDesktop() {
    SelectionGeometry g(QRect(0, 0, 400, 300));
    g.press(SelectionGeometry::None, {60, 40});
    g.dragTo({10, 90});  // dragged up-left of where it started
    QVERIFY(g.release());
    QCOMPARE(g.rect(), QRect(10, 40, 50, 50));

    // Eight handles, answering within reach of their centres.
    QCOMPARE(g.handleRects().size(), 8);
    QCOMPARE(g.hitTest({10 + SelectionGeometry::kHandleReach, 40}), SelectionGeometry::TopLeft);
    QCOMPARE(g.hitTest({60, 65}), SelectionGeometry::Right);
    QCOMPARE(g.hitTest({35, 90}), SelectionGeometry::Bottom);
    QCOMPARE(g.hitTest({30, 60}), SelectionGeometry::Inside);
    QCOMPARE(g.hitTest({10 - SelectionGeometry::kHandleReach - 1, 65}), SelectionGeometry::None);

    // The left edge dragged past the right one turns the selection over.
    g.press(SelectionGeometry::Left, {10, 65});
    g.dragTo({100, 65});
    g.release();
    QCOMPARE(g.rect(), QRect(60, 40, 40, 50));
    // Moving stops at the desktop's edge without shrinking.
    g.press(SelectionGeometry::Inside, {80, 60});
    g.dragTo({-500, 80});
    g.release();
    QCOMPARE(g.rect(), QRect(0, 60, 40, 50));
    // A corner pulled beyond the desktop ends at its edge.
    g.press(SelectionGeometry::BottomRight, {40, 110});
    g.dragTo({900, 900});
    g.release();
    QCOMPARE(g.rect(), QRect(0, 60, 400, 240));
    // Squeezed to nothing, an adjusted selection goes back; a click selects nothing.
    g.press(SelectionGeometry::Right, {400, 180});
    g.dragTo({1, 180});
    g.release();
    QCOMPARE(g.rect(), QRect(0, 60, 400, 240));
    g.press(SelectionGeometry::None, {5, 5});
    g.dragTo({6, 6});
    QVERIFY(!g.release());
    QVERIFY(g.handleRects().isEmpty());
}

void TestShotDrawing::toolBarsStayOnScreen() {
    const QRect screen(0, 0, 1000, 800);
    const QSize bar(300, 30);
    // Under the selection, right-aligned.
    QCOMPARE(SelectionGeometry::toolBarPosition({100, 100, 400, 300}, bar, screen, 6),
             QPoint(200, 406));
    // No room below: above it.
    QCOMPARE(SelectionGeometry::toolBarPosition({100, 500, 400, 290}, bar, screen, 6),
             QPoint(200, 464));
    // The whole screen selected: inside its bottom, and never off the left edge.
    QCOMPARE(SelectionGeometry::toolBarPosition({0, 0, 1000, 800}, bar, screen, 6),
             QPoint(700, 764));
    QCOMPARE(SelectionGeometry::toolBarPosition({0, 100, 100, 100}, bar, screen, 6).x(), 0);
}

void TestShotDrawing::infoBoxShowsPositionColourAndWidthThenHeight() {
    QCOMPARE(Magnifier::infoLines({12, 340}, qRgb(1, 2, 250), {640, 480}),
             QStringList({"坐标：12, 340", "RGB：1,2,250", "尺寸：640×480"}));
    // The widest values of a large desktop still fit in the box, as it draws them.
    QFont font;
    font.setPixelSize(12);
    const QFontMetrics metrics(font);
    for (const QString& line :
         Magnifier::infoLines({15359, 8639}, qRgb(255, 255, 255), {15360, 8640}))
        QVERIFY2(metrics.horizontalAdvance(line) <= Magnifier::kSide - 10, qPrintable(line));

    // Drawn into a picture: the magnified pixel under the pointer is in the centre.
    QImage desktop = whiteDesktop({400, 300});
    desktop.setPixel(202, 152, qRgb(255, 0, 0));
    QImage canvas = whiteDesktop({600, 500});
    {
        QPainter p(&canvas);
        Magnifier::paint(p, desktop, 1.0, {200, 150}, {10, 20}, canvas.rect());
    }
    const QRect box = Magnifier::placement({200, 150}, canvas.rect());
    QCOMPARE(box.topLeft(), QPoint(220, 170));
    // The pointer's pixel is the middle (12th) of 25; the red one two further on each way
    // fills its own 5 x 5 cell, and its neighbour cell stays white.
    QVERIFY(is(
        canvas.pixel(box.left() + 14 * Magnifier::kZoom + 2, box.top() + 14 * Magnifier::kZoom + 2),
        Qt::red));
    QVERIFY(is(
        canvas.pixel(box.left() + 15 * Magnifier::kZoom + 2, box.top() + 14 * Magnifier::kZoom + 2),
        Qt::white));
    // Near the bottom-right corner it flips to stay on the screen.
    const QRect flipped = Magnifier::placement({590, 490}, canvas.rect());
    QVERIFY(canvas.rect().contains(flipped.topLeft()));
    QVERIFY(flipped.right() < 590 && flipped.bottom() < 490);
}

void TestShotDrawing::twoSavesInOneSecondGetDifferentNames() {
    QTemporaryDir dir;
    const QDateTime t(QDate(2026, 3, 4), QTime(9, 8, 7, 5));
    const QString first = ShotFileName::propose(dir.path(), t);
    const QString second = ShotFileName::propose(dir.path(), t.addMSecs(400));
    QCOMPARE(QFileInfo(first).fileName(), QStringLiteral("Quelix截图_20260304090807005.png"));
    QVERIFY(first != second);
    // The same millisecond twice: the taken name is not offered again.
    QFile taken(first);
    QVERIFY(taken.open(QIODevice::WriteOnly));
    taken.close();
    const QString again = ShotFileName::propose(dir.path(), t);
    QVERIFY(again != first);
    QVERIFY(!QFileInfo::exists(again));
    QCOMPARE(ShotFileName::filter(), QStringLiteral("图片 (*.png *.jpg *.bmp)"));
}

void TestShotDrawing::screensMakeOneDesktopAndBlankGrabsAreRefused() {
    // A 100 x 50 screen at ratio 1 and a 100 x 50 one right of it at ratio 2.
    QImage left(100, 50, QImage::Format_RGB32);
    left.fill(Qt::red);
    QImage right(200, 100, QImage::Format_RGB32);
    right.fill(Qt::blue);
    const DesktopImage d =
        DesktopGrabber::compose({{QRect(0, 0, 100, 50), left}, {QRect(100, 0, 100, 50), right}});
    QVERIFY(d.isValid());
    QCOMPARE(d.geometry, QRect(0, 0, 200, 50));
    QCOMPARE(d.ratio, 2.0);
    QCOMPARE(d.image.size(), QSize(400, 100));
    QVERIFY(is(d.image.pixel(10, 10), Qt::red));
    QVERIFY(is(d.image.pixel(199, 99), Qt::red));
    QVERIFY(is(d.image.pixel(201, 0), Qt::blue));

    // Screens left of and above the primary: the desktop starts at negative coordinates.
    const DesktopImage offset =
        DesktopGrabber::compose({{QRect(-100, -20, 100, 50), left}, {QRect(0, 0, 100, 50), left}});
    QCOMPARE(offset.geometry, QRect(-100, -20, 200, 70));
    QVERIFY(is(offset.image.pixel(150, 60), Qt::red));
    QVERIFY(is(offset.image.pixel(150, 5), Qt::black));  // no screen there

    // A screen that gave nothing: refused with a reason.
    const DesktopImage refused = DesktopGrabber::compose({{QRect(0, 0, 100, 50), QImage()}});
    QVERIFY(!refused.isValid());
    QVERIFY(!refused.refusal.isEmpty());
    QImage black(300, 200, QImage::Format_RGB32);
    black.fill(Qt::black);
    QVERIFY(DesktopGrabber::looksBlank(black));
    QVERIFY(DesktopGrabber::looksBlank(QImage()));
    QVERIFY(!DesktopGrabber::looksBlank(d.image));
}

QTEST_MAIN(TestShotDrawing)
#include "tst_shotdrawing.moc"
