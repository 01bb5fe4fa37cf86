#pragma once

#include <QWidget>

class QLabel;

// The top of the main window's left column: the signed-in user's picture and name.
// A double click asks the window to open the user's work site.
class FunctionListView : public QWidget {
    Q_OBJECT
public:
    explicit FunctionListView(QWidget* parent = nullptr);

    void setUser(const QString& name, const QPixmap& avatar);

signals:
    void funcListDbclickSignal();

protected:
    void mouseDoubleClickEvent(QMouseEvent* event) override;

private:
    QLabel* avatar_;
    QLabel* name_;
};
