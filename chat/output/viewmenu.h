#pragma once

#include <QMenu>

namespace qx_output {

// The context menu of a picture: copy it, or save it as a file.
class ViewMenu : public QMenu {
    Q_OBJECT
public:
    ViewMenu(const QString& path, QWidget* parent = nullptr);
    const QString& path() const { return path_; }
    QAction* copyAction() const { return copy_; }
    QAction* saveAction() const { return save_; }

signals:
    void copySignal(const QString& path);
    void saveSignal(const QString& path);

public slots:
    void viewMenuSave(bool checked);

private:
    QString path_;
    QAction* copy_;
    QAction* save_;
};

}  // namespace qx_output
