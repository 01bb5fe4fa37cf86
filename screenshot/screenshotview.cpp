#include "screenshotview.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QCloseEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QKeyEvent>
#include <QMessageBox>
#include <QPainter>
#include <QSaveFile>
#include <QScreen>
#include <QTextEdit>
#include <QToolBar>

#include "actionarrow.h"
#include "actionbrush.h"
#include "actionellipse.h"
#include "actionrectangle.h"
#include "actiontext.h"
#include "logger.h"
#include "magnifier.h"
#include "shotfilename.h"

namespace screenshot {

namespace {
const QColor kDim(0, 0, 0, 110);
const QColor kBorder(31, 143, 255);
// The edit's dashed border and document margin: the typed text starts this far inside.
const int kEditBorder = 2;
const int kEditMargin = 2;
const int kEditInset = kEditBorder + kEditMargin;
const int kSizeTagHeight = 20;

void log(const QString& text) { Logger::instance().write(QStringLiteral("screenshot: ") + text); }
}  // namespace

ScreenShotView::ScreenShotView(const DesktopImage& desktop, QWidget* parent)
    : QWidget(parent), desktop_(desktop), selection_(QRect(QPoint(0, 0), desktop.geometry.size())) {
    setObjectName(QStringLiteral("ScreenShotView"));
    setWindowFlags(Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::Tool |
                   Qt::X11BypassWindowManagerHint);
    // Everything is painted from the frozen picture; no background to fill first.
    setAttribute(Qt::WA_OpaquePaintEvent);
    setAttribute(Qt::WA_NoSystemBackground);
    setMouseTracking(true);
    setCursor(Qt::CrossCursor);
    setFocusPolicy(Qt::StrongFocus);
    setGeometry(desktop_.geometry);
    color_ = QColor(Qt::red);  // the colour people mark things with

    textEdit_ = new QTextEdit(this);
    textEdit_->setObjectName(QStringLiteral("shotTextEdit"));
    textEdit_->setStyleSheet(
        QStringLiteral("QTextEdit { border:2px dashed gray; background:transparent; }"));
    textEdit_->document()->setDocumentMargin(kEditMargin);
    textEdit_->setLineWrapMode(QTextEdit::NoWrap);
    textEdit_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    textEdit_->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    textEdit_->setAcceptRichText(false);
    textEdit_->hide();
    textEdit_->installEventFilter(this);
    connect(textEdit_, &QTextEdit::textChanged, this, &ScreenShotView::onTextChanged);

    // The tool bars are built with the first selection: opening stays quick.
    pointer_ = mapFromGlobal(QCursor::pos());
    magnifierShown_ = true;
}

ScreenShotView::~ScreenShotView() = default;

void ScreenShotView::showOverlay() {
    setGeometry(desktop_.geometry);
    show();
    raise();
    activateWindow();
    setFocus();
}

QImage ScreenShotView::renderSelection() const {
    if (!selection_.hasSelection()) return QImage();
    return document_.render(desktop_.image, selection_.rect(), desktop_.ratio);
}

void ScreenShotView::setSelection(const QRect& rect) {
    const QRect old = selection_.rect();
    selection_.setRect(rect);
    magnifierShown_ = !selection_.hasSelection();
    placeToolBars();
    update(selectionPaintRect(old).united(selectionPaintRect(selection_.rect())));
}

QStringList ScreenShotView::infoLines() const {
    const QPoint pixel =
        AnnotationDocument::toDevice(QRect(pointer_, QSize(1, 1)), desktop_.ratio).topLeft();
    const QRgb colour = desktop_.image.valid(pixel) ? desktop_.image.pixel(pixel) : qRgb(0, 0, 0);
    return Magnifier::infoLines(
        pixel, colour, AnnotationDocument::toDevice(selection_.rect(), desktop_.ratio).size());
}

QRect ScreenShotView::screenAreaAt(const QPoint& point) const {
    const QPoint global = point + desktop_.geometry.topLeft();
    for (QScreen* screen : QGuiApplication::screens())
        if (screen->geometry().contains(global))
            return screen->geometry().translated(-desktop_.geometry.topLeft()).intersected(rect());
    return rect();
}

QRect ScreenShotView::magnifierRect() const {
    return Magnifier::placement(pointer_, screenAreaAt(pointer_)).adjusted(-1, -1, 1, 1);
}

QRect ScreenShotView::selectionPaintRect(const QRect& selection) const {
    if (selection.isEmpty()) return QRect();
    const int reach = SelectionGeometry::kHandleSize;
    return selection.adjusted(-reach, -reach - kSizeTagHeight, reach, reach);
}

// --- painting ---------------------------------------------------------------------------

void ScreenShotView::paintEvent(QPaintEvent* event) {
    ++paints_;
    QPainter p(this);
    const QRect sel = selection_.rect();
    const qreal ratio = desktop_.ratio;
    for (const QRect& dirty : event->region()) {
        p.drawImage(dirty, desktop_.image, AnnotationDocument::toDevice(dirty, ratio));
        for (const QRect& outside : QRegion(dirty).subtracted(QRegion(sel)))
            p.fillRect(outside, kDim);
    }
    if (!sel.isEmpty()) {
        p.save();
        p.setClipRect(sel);
        document_.draw(p);
        if (drawing_) drawing_->draw(p);
        p.restore();

        p.setPen(QPen(kBorder, 1));
        p.setBrush(Qt::NoBrush);
        p.drawRect(sel.adjusted(0, 0, -1, -1));
        p.setPen(Qt::NoPen);
        p.setBrush(kBorder);
        for (const QRect& handle : selection_.handleRects()) p.drawRect(handle);

        // The picture's size in pixels, above the selection (inside when at the top).
        const QSize pixels = AnnotationDocument::toDevice(sel, ratio).size();
        const QString tag = QStringLiteral("%1 x %2").arg(pixels.width()).arg(pixels.height());
        QRect tagRect(sel.left(), sel.top() - kSizeTagHeight - 2,
                      p.fontMetrics().horizontalAdvance(tag) + 12, kSizeTagHeight);
        if (tagRect.top() < 0) tagRect.moveTop(sel.top() + 2);
        p.fillRect(tagRect, QColor(0, 0, 0, 180));
        p.setPen(Qt::white);
        p.drawText(tagRect, Qt::AlignCenter, tag);
    }
    if (magnifierShown_) {
        Magnifier::paint(p, desktop_.image, ratio, pointer_,
                         AnnotationDocument::toDevice(sel, ratio).size(), screenAreaAt(pointer_));
    }
}

// --- pointer ----------------------------------------------------------------------------

std::unique_ptr<ScreenShotAction> ScreenShotView::newAction() const {
    switch (tool_) {
        case Tool::Ellipse:
            return std::make_unique<ActionEllipse>(color_, penWidth_);
        case Tool::Rectangle:
            return std::make_unique<ActionRectangle>(color_, penWidth_);
        case Tool::Arrow:
            return std::make_unique<ActionArrow>(color_, penWidth_);
        case Tool::Brush:
            return std::make_unique<ActionBrush>(color_, penWidth_);
        case Tool::Text:
            return std::make_unique<ActionText>(color_, penWidth_);
        case Tool::None:
            break;
    }
    return nullptr;
}

void ScreenShotView::mousePressEvent(QMouseEvent* event) {
    const QPoint pos = event->pos();
    pointer_ = pos;
    if (event->button() == Qt::RightButton) {
        // Right click steps back: an empty selection is dropped to select again; with
        // nothing selected it leaves. Annotations are never thrown away by it.
        if (!selection_.hasSelection()) {
            OnCancel();
        } else if (document_.isEmpty() && !typing_ && !drawing_) {
            const QRect old = selection_.rect();
            selection_.clear();
            setTool(Tool::None);
            magnifierShown_ = true;
            placeToolBars();
            update(selectionPaintRect(old).united(magnifierRect()));
        }
        return;
    }
    if (event->button() != Qt::LeftButton) return;
    if (typing_) {
        endText();  // a click beside the text being typed finishes it
        return;
    }
    if (!selection_.hasSelection()) {
        selection_.press(SelectionGeometry::None, pos);
        magnifierShown_ = true;
        return;
    }
    const SelectionGeometry::Handle handle = selection_.hitTest(pos);
    if (tool_ != Tool::None && handle == SelectionGeometry::Inside) {
        if (tool_ == Tool::Text) {
            startText(pos);
            return;
        }
        drawing_ = newAction();
        drawing_->start(pos);
        update(drawing_->bounds());
        return;
    }
    if (handle != SelectionGeometry::None) {
        selection_.press(handle, pos);
        if (toolBar_) toolBar_->hide();
        if (sizeBar_) sizeBar_->hide();
        magnifierShown_ = handle != SelectionGeometry::Inside;
        update(magnifierRect());
    }
}

void ScreenShotView::mouseMoveEvent(QMouseEvent* event) {
    const QRect oldMagnifier = magnifierShown_ ? magnifierRect() : QRect();
    pointer_ = event->pos();
    if (drawing_) {
        const QRect before = drawing_->bounds();
        drawing_->moveTo(pointer_);
        if (tool_ == Tool::Brush)
            update(static_cast<ActionBrush*>(drawing_.get())->lastSegmentBounds());
        else
            update(before.united(drawing_->bounds()));
        return;
    }
    if (selection_.dragging()) {
        const QRect before = selection_.rect();
        selection_.dragTo(pointer_);
        update(selectionPaintRect(before).united(selectionPaintRect(selection_.rect())));
    } else {
        const SelectionGeometry::Handle h = selection_.hitTest(pointer_);
        switch (h) {
            case SelectionGeometry::TopLeft:
            case SelectionGeometry::BottomRight:
                setCursor(Qt::SizeFDiagCursor);
                break;
            case SelectionGeometry::TopRight:
            case SelectionGeometry::BottomLeft:
                setCursor(Qt::SizeBDiagCursor);
                break;
            case SelectionGeometry::Top:
            case SelectionGeometry::Bottom:
                setCursor(Qt::SizeVerCursor);
                break;
            case SelectionGeometry::Left:
            case SelectionGeometry::Right:
                setCursor(Qt::SizeHorCursor);
                break;
            case SelectionGeometry::Inside:
                setCursor(tool_ == Tool::None   ? Qt::SizeAllCursor
                          : tool_ == Tool::Text ? Qt::IBeamCursor
                                                : Qt::CrossCursor);
                break;
            case SelectionGeometry::None:
                setCursor(selection_.hasSelection() ? Qt::ArrowCursor : Qt::CrossCursor);
                break;
        }
    }
    if (magnifierShown_) update(oldMagnifier.united(magnifierRect()));
}

void ScreenShotView::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) return;
    pointer_ = event->pos();
    if (drawing_) {
        drawing_->moveTo(pointer_);
        const QRect area = drawing_->bounds();
        if (!area.isEmpty()) document_.add(std::move(drawing_));  // a click draws nothing
        drawing_.reset();
        update(area);
        updateBars();
        return;
    }
    if (!selection_.dragging()) return;
    const QRect before = selection_.rect();
    const QRect oldMagnifier = magnifierRect();
    selection_.dragTo(pointer_);
    const bool selected = selection_.release();
    magnifierShown_ = !selected;
    if (selected) placeToolBars();
    update(selectionPaintRect(before)
               .united(selectionPaintRect(selection_.rect()))
               .united(oldMagnifier)
               .united(magnifierRect()));
}

void ScreenShotView::mouseDoubleClickEvent(QMouseEvent* event) {
    // A double click inside the selection finishes, unless a tool is drawing there.
    if (event->button() == Qt::LeftButton && tool_ == Tool::None &&
        selection_.hitTest(event->pos()) == SelectionGeometry::Inside)
        OnFinish();
}

void ScreenShotView::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape) {
        OnCancel();
    } else if (event->matches(QKeySequence::Undo)) {
        OnUndo();
    } else if (event->matches(QKeySequence::Save)) {
        OnSave();
    } else if (event->matches(QKeySequence::Copy) || event->key() == Qt::Key_Return ||
               event->key() == Qt::Key_Enter) {
        OnFinish();
    } else {
        QWidget::keyPressEvent(event);
    }
}

bool ScreenShotView::eventFilter(QObject* watched, QEvent* event) {
    // Escape in the text edit ends typing rather than the whole capture.
    if (watched == textEdit_ && event->type() == QEvent::KeyPress &&
        static_cast<QKeyEvent*>(event)->key() == Qt::Key_Escape) {
        endText();
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

// --- text -------------------------------------------------------------------------------

void ScreenShotView::startText(const QPoint& point) {
    typing_ = newAction();
    typing_->start(point);
    const QFont font = static_cast<ActionText*>(typing_.get())->font();
    {
        const QSignalBlocker quiet(textEdit_);
        textEdit_->clear();
        textEdit_->setFont(font);
        textEdit_->document()->setDefaultFont(font);
        QPalette pal = textEdit_->palette();
        pal.setColor(QPalette::Text, color_);
        textEdit_->setPalette(pal);
        textEdit_->setTextColor(color_);
    }
    textEdit_->move(point - QPoint(kEditInset, kEditInset));
    onTextChanged();
    textEdit_->show();
    textEdit_->setFocus();
}

void ScreenShotView::onTextChanged() {
    if (!typing_) return;
    // The edit grows with its text so the dashed box always frames exactly what is typed.
    const QFontMetrics fm(textEdit_->font());
    const QSize doc = textEdit_->document()->size().toSize();
    const int width = qMax(doc.width(), fm.horizontalAdvance(QLatin1Char('M')) * 4);
    const int height = qMax(doc.height(), fm.height() + 2 * kEditMargin);
    textEdit_->resize(width + 2 * kEditBorder + fm.averageCharWidth(), height + 2 * kEditBorder);
}

void ScreenShotView::endText() {
    if (!typing_) return;
    auto* text = static_cast<ActionText*>(typing_.get());
    text->setText(textEdit_->toPlainText());
    textEdit_->hide();
    const QRect area = text->bounds();
    if (!area.isEmpty()) document_.add(std::move(typing_));  // nothing typed, nothing kept
    typing_.reset();
    update(area);
    updateBars();
    setFocus();
}

// --- ways out ---------------------------------------------------------------------------

void ScreenShotView::leave() {
    done_ = true;
    hide();
    close();
}

void ScreenShotView::OnFinish() {
    if (done_) return;
    endText();
    const QImage picture = renderSelection();
    if (picture.isNull()) {
        log(QStringLiteral("finish without a selection ignored"));
        return;
    }
    QApplication::clipboard()->setImage(picture);
    done_ = true;
    hide();
    emit signal_Finish();
    leave();
}

void ScreenShotView::OnSend() {
    if (done_ || !selection_.hasSelection()) return;
    emit signal_Send();
    OnFinish();
}

void ScreenShotView::OnCancel() {
    if (done_) return;
    done_ = true;
    hide();
    emit signal_Cancel();
    emit signal_Exit();
    leave();
}

void ScreenShotView::OnUndo() {
    if (typing_) {
        // The text being typed is the newest thing: undo drops it.
        typing_.reset();
        textEdit_->hide();
        setFocus();
        emit signal_Undo();
        return;
    }
    if (drawing_ || document_.isEmpty()) return;  // nothing to undo: nothing happens
    const QRect area = document_.at(document_.count() - 1)->bounds();
    document_.undo();
    update(area);
    updateBars();
    emit signal_Undo();
}

void ScreenShotView::OnSave() {
    if (done_) return;
    endText();
    const QImage picture = renderSelection();
    if (picture.isNull()) {
        log(QStringLiteral("save without a selection ignored"));
        return;
    }
    const QString proposed =
        ShotFileName::propose(ShotFileName::desktopFolder(), QDateTime::currentDateTime());
    // The overlay stays above every window, a dialog included: out of the way while asked.
    hide();
    QString path = chooser_ ? chooser_(this, proposed, ShotFileName::filter())
                            : QFileDialog::getSaveFileName(nullptr, QStringLiteral("保存截图"),
                                                           proposed, ShotFileName::filter());
    if (path.isEmpty()) {
        // A cancelled dialog is not a way out: the capture comes back as it was, so the
        // user can still finish, save elsewhere or cancel.
        showOverlay();
        return;
    }
    QString suffix = QFileInfo(path).suffix().toLower();
    if (suffix == QLatin1String("jpeg")) suffix = QStringLiteral("jpg");
    if (suffix != QLatin1String("png") && suffix != QLatin1String("jpg") &&
        suffix != QLatin1String("bmp")) {
        path += QStringLiteral(".png");
        suffix = QStringLiteral("png");
    }
    // Written aside and renamed into place, so a failure never leaves half a picture.
    QSaveFile file(path);
    const bool saved = file.open(QIODevice::WriteOnly) &&
                       picture.save(&file, suffix.toLatin1().constData(), 95) && file.commit();
    if (!saved) {
        log(QStringLiteral("could not save %1: %2").arg(path, file.errorString()));
        // The system's reason may name the file, which the user typed.
        QMessageBox box(QMessageBox::Warning, QStringLiteral("错误提示"),
                        QStringLiteral("截图保存失败：%1").arg(file.errorString()));
        box.setTextFormat(Qt::PlainText);
        box.exec();
        showOverlay();
        return;
    }
    done_ = true;
    emit signal_Save();
    emit signal_Exit();
    leave();
}

void ScreenShotView::closeEvent(QCloseEvent* event) {
    // Closed from outside (window manager, shutdown): the same as Cancel, so whoever
    // waits for the capture to end hears of it.
    if (!done_) {
        done_ = true;
        emit signal_Cancel();
        emit signal_Exit();
    }
    event->accept();
}

}  // namespace screenshot
