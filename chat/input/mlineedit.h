#pragma once

#include <QLineEdit>

class AtListWidget;

// The one-line filter above the mention list: shows what follows the "@" being typed and
// filters the list by it. It never takes the focus from the message edit.
class MLineEdit : public QLineEdit {
    Q_OBJECT
public:
    MLineEdit(AtListWidget* list, QWidget* parent = nullptr);

public slots:
    void textChangedSlot(const QString& text);

private:
    AtListWidget* list_;
};
