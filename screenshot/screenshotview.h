#pragma once

#include <QImage>
#include <QPointer>
#include <QWidget>

#include <functional>
#include <memory>

#include "annotationdocument.h"
#include "desktopimage.h"
#include "selectiongeometry.h"

class ColorWidget;
class QAction;
class QActionGroup;
class QTextEdit;
class QToolBar;

namespace screenshot {

class ScreenShotAction;

// The full-screen overlay over the frozen desktop: the user drags a selection (magnifier
// and information box beside the pointer), adjusts it by its handles, annotates it with
// the tools of the first bar (size and colour in the second), and leaves by Finish (the
// picture goes to the clipboard), Save (to a file) or Cancel. It only renders and
// forwards: geometry, annotations and the picture are plain classes.
class ScreenShotView : public QWidget {
    Q_OBJECT
public:
    enum class Tool { None, Ellipse, Rectangle, Arrow, Brush, Text };
    // Thin, medium and thick: thin marks without hiding detail, thick still shows on a
    // high-resolution screen seen whole. Medium is the default.
    static constexpr int kPenWidths[3] = {2, 4, 8};

    explicit ScreenShotView(const DesktopImage& desktop, QWidget* parent = nullptr);
    ~ScreenShotView() override;

    // Covers the whole virtual desktop and takes the keyboard.
    void showOverlay();

    // How Save asks for a file name: (parent, proposed path, filter) -> chosen path or
    // empty when the user cancels. A file dialog unless replaced.
    using SaveChooser = std::function<QString(QWidget*, const QString&, const QString&)>;
    void setSaveChooser(SaveChooser chooser) { chooser_ = std::move(chooser); }

    // The selection with every annotation, at the desktop's full resolution.
    QImage renderSelection() const;
    QRect selection() const { return selection_.rect(); }
    void setSelection(const QRect& rect);
    const AnnotationDocument& annotations() const { return document_; }
    const DesktopImage& desktop() const { return desktop_; }
    Tool tool() const { return tool_; }
    void setTool(Tool tool);
    int penWidth() const { return penWidth_; }
    QColor color() const { return color_; }
    // The information box's lines for the pointer's last position.
    QStringList infoLines() const;
    bool magnifierShown() const { return magnifierShown_; }
    // The bars exist from the first selection on (null before).
    QToolBar* toolBar() const { return toolBar_; }
    QToolBar* sizeBar() const { return sizeBar_; }
    ColorWidget* colorWidget() const { return colorWidget_; }
    QTextEdit* textEdit() const { return textEdit_; }
    // Whether one way out (Finish, Save, Cancel) has been taken.
    bool isDone() const { return done_; }
    // Painted frames so far, for tests and figures.
    int paintCount() const { return paints_; }

signals:
    void signal_Save();
    void signal_Send();
    void signal_Finish();
    void signal_Undo();
    void signal_Cancel();
    void signal_Exit();

public slots:
    void OnSave();
    void OnSend();
    void OnFinish();
    void OnCancel();
    void OnUndo();

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void buildToolBars();
    QAction* addToolAction(QToolBar* bar, const QString& name, const QString& image,
                           const QString& activeImage, const QString& tip);
    void placeToolBars();
    void updateBars();
    void setPenWidth(int width);
    QRect screenAreaAt(const QPoint& point) const;
    QRect magnifierRect() const;
    QRect selectionPaintRect(const QRect& selection) const;
    std::unique_ptr<ScreenShotAction> newAction() const;
    void startText(const QPoint& point);
    void endText();
    void onTextChanged();
    void leave();

    DesktopImage desktop_;
    SelectionGeometry selection_;
    AnnotationDocument document_;
    std::unique_ptr<ScreenShotAction> drawing_;
    std::unique_ptr<ScreenShotAction> typing_;  // the text being typed, shown by the edit
    Tool tool_ = Tool::None;
    int penWidth_ = kPenWidths[1];
    QColor color_;
    QPoint pointer_;
    bool magnifierShown_ = false;
    bool done_ = false;
    int paints_ = 0;

    QToolBar* toolBar_ = nullptr;
    QToolBar* sizeBar_ = nullptr;
    QActionGroup* tools_ = nullptr;
    QAction* undo_ = nullptr;
    ColorWidget* colorWidget_ = nullptr;
    QTextEdit* textEdit_ = nullptr;
    SaveChooser chooser_;
};

}  // namespace screenshot
