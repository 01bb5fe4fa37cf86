#pragma once

#include <QColor>
#include <QStringList>
#include <QWidget>

class QPushButton;
class QLabel;

// The palette beside the pen sizes: the current colour's swatch and sixteen colour
// buttons in two rows.
class ColorWidget : public QWidget {
    Q_OBJECT
public:
    explicit ColorWidget(QWidget* parent = nullptr);

    // The sixteen colours in button order.
    static const QStringList& paletteNames();

    QColor currentColor() const { return current_; }
    void setCurrentColor(const QColor& color);
    QPushButton* colorButton(int index) const { return buttons_.value(index); }
    QLabel* swatch() const { return swatch_; }

signals:
    void signal_ColorChanged(const QColor& color);

private:
    QList<QPushButton*> buttons_;
    QLabel* swatch_;
    QColor current_;
};
