#include "colorwidget.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>

namespace {
const int kButtonSide = 14;
const int kSwatchSide = 30;
}  // namespace

const QStringList& ColorWidget::paletteNames() {
    static const QStringList names{
        QStringLiteral("black"),   QStringLiteral("gray"),    QStringLiteral("#800000"),
        QStringLiteral("#808000"), QStringLiteral("green"),   QStringLiteral("#000080"),
        QStringLiteral("purple"),  QStringLiteral("#008080"), QStringLiteral("white"),
        QStringLiteral("#C0C0C0"), QStringLiteral("red"),     QStringLiteral("yellow"),
        QStringLiteral("#00FF00"), QStringLiteral("blue"),    QStringLiteral("#FF00FF"),
        QStringLiteral("#00FFFF")};
    return names;
}

ColorWidget::ColorWidget(QWidget* parent) : QWidget(parent) {
    setObjectName(QStringLiteral("colorWidget"));
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(4, 2, 4, 2);
    row->setSpacing(6);
    swatch_ = new QLabel(this);
    swatch_->setObjectName(QStringLiteral("currentColor"));
    swatch_->setFixedSize(kSwatchSide, kSwatchSide);
    row->addWidget(swatch_);

    auto* grid = new QGridLayout;
    grid->setSpacing(2);
    const QStringList& names = paletteNames();
    for (int i = 0; i < names.size(); ++i) {
        auto* button = new QPushButton(this);
        button->setObjectName(QStringLiteral("color%1").arg(i));
        button->setFixedSize(kButtonSide, kButtonSide);
        button->setFocusPolicy(Qt::NoFocus);
        button->setCursor(Qt::PointingHandCursor);
        button->setStyleSheet(
            QStringLiteral("QPushButton{background-color:%1;border-style:outset; border-width:1px; "
                           "border-color:white;}")
                .arg(names.at(i)));
        const QColor color(names.at(i));
        connect(button, &QPushButton::clicked, this, [this, color] {
            setCurrentColor(color);
            emit signal_ColorChanged(color);
        });
        grid->addWidget(button, i / 8, i % 8);
        buttons_.append(button);
    }
    row->addLayout(grid);
    setCurrentColor(Qt::red);
}

void ColorWidget::setCurrentColor(const QColor& color) {
    current_ = color;
    swatch_->setStyleSheet(
        QStringLiteral("QLabel{background-color:%1;border-style:solid; border-width:1px; "
                       "border-color:gray;}")
            .arg(color.name()));
}
