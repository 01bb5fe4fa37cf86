// The two tool bars of the overlay: tools and ways out, then pen size and colour.
#include <QAction>
#include <QActionGroup>
#include <QHBoxLayout>
#include <QIcon>
#include <QToolBar>

#include "colorwidget.h"
#include "screenshotview.h"

namespace screenshot {

namespace {
const char* const kImages = ":/resource/ScreenShotUI/";
const char* const kBarStyle =
    "QToolBar{background-color:white;border:1px solid #c8ccd1;border-radius:2px;"
    "spacing:2px;padding:2px;}"
    "QToolButton{border:none;padding:2px;}"
    "QToolButton:hover{background-color:#eef3fb;}";

QToolBar* newBar(const QString& name, QWidget* parent) {
    auto* bar = new QToolBar(parent);
    bar->setObjectName(name);
    bar->setMovable(false);
    bar->setFloatable(false);
    bar->setIconSize(QSize(24, 24));
    bar->setStyleSheet(QLatin1String(kBarStyle));
    bar->setCursor(Qt::ArrowCursor);
    bar->hide();
    return bar;
}
}  // namespace

QAction* ScreenShotView::addToolAction(QToolBar* bar, const QString& name, const QString& image,
                                       const QString& activeImage, const QString& tip) {
    // The plain drawing normally; the active one under the pointer and while checked.
    QIcon icon;
    const QString normal = QLatin1String(kImages) + image;
    const QString active = QLatin1String(kImages) + activeImage;
    icon.addFile(normal, QSize(), QIcon::Normal, QIcon::Off);
    icon.addFile(active, QSize(), QIcon::Active, QIcon::Off);
    icon.addFile(active, QSize(), QIcon::Normal, QIcon::On);
    icon.addFile(active, QSize(), QIcon::Active, QIcon::On);
    QAction* action = bar->addAction(icon, tip);
    action->setObjectName(name);
    action->setToolTip(tip);
    return action;
}

void ScreenShotView::buildToolBars() {
    toolBar_ = newBar(QStringLiteral("shotToolBar"), this);
    tools_ = new QActionGroup(this);
    // One tool at a time, and a second click on the checked one puts it down again.
    tools_->setExclusionPolicy(QActionGroup::ExclusionPolicy::ExclusiveOptional);
    struct ToolSpec {
        const char* name;
        const char* image;
        const char* tip;
        Tool tool;
    };
    const ToolSpec specs[] = {{"m_actEllipse", "ellipse", "椭圆", Tool::Ellipse},
                              {"m_actRectangle", "rectangle", "矩形", Tool::Rectangle},
                              {"m_actArrow", "arrow", "箭头", Tool::Arrow},
                              {"m_actBrush", "brush", "画刷", Tool::Brush},
                              {"m_actText", "text", "文字", Tool::Text}};
    for (const ToolSpec& spec : specs) {
        QAction* a = addToolAction(
            toolBar_, QLatin1String(spec.name), QLatin1String(spec.image) + QStringLiteral(".png"),
            QLatin1String(spec.image) + QStringLiteral("Active.png"), QString::fromUtf8(spec.tip));
        a->setCheckable(true);
        tools_->addAction(a);
        const Tool tool = spec.tool;
        connect(a, &QAction::toggled, this, [this, tool](bool on) {
            if (on)
                setTool(tool);
            else if (tool_ == tool)
                setTool(Tool::None);
        });
    }
    toolBar_->addSeparator();
    undo_ = addToolAction(toolBar_, QStringLiteral("m_actUndo"), QStringLiteral("undo.png"),
                          QStringLiteral("undoActive.png"), QStringLiteral("撤销"));
    QAction* save = addToolAction(toolBar_, QStringLiteral("m_actSave"), QStringLiteral("save.png"),
                                  QStringLiteral("saveActive.png"), QStringLiteral("保存"));
    QAction* cancel =
        addToolAction(toolBar_, QStringLiteral("m_actCancel"), QStringLiteral("cancel.png"),
                      QStringLiteral("cancelActive.png"), QStringLiteral("退出截图"));
    QAction* finish =
        addToolAction(toolBar_, QStringLiteral("m_actFinish"), QStringLiteral("finish.png"),
                      QStringLiteral("finishActive.png"), QStringLiteral("完成"));
    connect(undo_, SIGNAL(triggered()), this, SLOT(OnUndo()));
    connect(save, SIGNAL(triggered()), this, SLOT(OnSave()));
    connect(cancel, SIGNAL(triggered()), this, SLOT(OnCancel()));
    connect(finish, SIGNAL(triggered()), this, SLOT(OnFinish()));

    sizeBar_ = newBar(QStringLiteral("shotSizeBar"), this);
    auto* sizes = new QActionGroup(this);
    const char* const sizeNames[] = {"small", "middle", "large"};
    for (int i = 0; i < 3; ++i) {
        const QString stem = QStringLiteral("shape_size_%1").arg(QLatin1String(sizeNames[i]));
        QAction* a = addToolAction(
            sizeBar_, QStringLiteral("m_actSize%1").arg(i + 1), stem + QStringLiteral("2x.png"),
            stem + QStringLiteral("_active2x.png"), QStringLiteral("%1 像素").arg(kPenWidths[i]));
        a->setCheckable(true);
        a->setChecked(kPenWidths[i] == penWidth_);
        sizes->addAction(a);
        const int width = kPenWidths[i];
        connect(a, &QAction::triggered, this, [this, width] { setPenWidth(width); });
    }
    sizeBar_->addSeparator();
    colorWidget_ = new ColorWidget(sizeBar_);
    colorWidget_->setCurrentColor(color_);
    sizeBar_->addWidget(colorWidget_);
    connect(colorWidget_, &ColorWidget::signal_ColorChanged, this,
            [this](const QColor& c) { color_ = c; });
    updateBars();
}

void ScreenShotView::setTool(Tool tool) {
    if (tool != Tool::Text) endText();
    tool_ = tool;
    const char* name = nullptr;
    switch (tool) {
        case Tool::Ellipse:
            name = "m_actEllipse";
            break;
        case Tool::Rectangle:
            name = "m_actRectangle";
            break;
        case Tool::Arrow:
            name = "m_actArrow";
            break;
        case Tool::Brush:
            name = "m_actBrush";
            break;
        case Tool::Text:
            name = "m_actText";
            break;
        case Tool::None:
            break;
    }
    if (!tools_) return;  // no bars yet: nothing to show checked
    for (QAction* a : tools_->actions()) {
        const bool on = name && a->objectName() == QLatin1String(name);
        if (a->isChecked() != on) {
            const QSignalBlocker quiet(a);
            a->setChecked(on);
        }
    }
    placeToolBars();
}

void ScreenShotView::setPenWidth(int width) { penWidth_ = width; }

void ScreenShotView::updateBars() {
    if (undo_) undo_->setEnabled(!document_.isEmpty() || typing_);
}

void ScreenShotView::placeToolBars() {
    if (!selection_.hasSelection() || done_) {
        if (toolBar_) toolBar_->hide();
        if (sizeBar_) sizeBar_->hide();
        return;
    }
    if (!toolBar_) buildToolBars();
    const QRect sel = selection_.rect();
    const QRect area = screenAreaAt(sel.bottomRight());
    toolBar_->adjustSize();
    const QPoint at = SelectionGeometry::toolBarPosition(sel, toolBar_->sizeHint(), area);
    toolBar_->setGeometry(QRect(at, toolBar_->sizeHint()));
    toolBar_->show();
    toolBar_->raise();
    if (tool_ == Tool::None) {
        sizeBar_->hide();
        return;
    }
    sizeBar_->adjustSize();
    const QSize size = sizeBar_->sizeHint();
    // Away from the selection: under a bar that is under it, above one that is above it,
    // and the other way round where the screen ends.
    const int below = toolBar_->geometry().bottom() + 4;
    const int above = toolBar_->y() - 4 - size.height();
    const bool barAbove = toolBar_->geometry().bottom() < sel.top();
    const bool fitsBelow = below + size.height() <= area.top() + area.height();
    const bool fitsAbove = above >= area.top();
    int y = (barAbove && fitsAbove) || (!fitsBelow && fitsAbove) ? above : below;
    y = qBound(area.top(), y, qMax(area.top(), area.top() + area.height() - size.height()));
    const QPoint sizeAt(toolBar_->x(), y);
    sizeBar_->setGeometry(QRect(sizeAt, size));
    sizeBar_->show();
    sizeBar_->raise();
}

}  // namespace screenshot
