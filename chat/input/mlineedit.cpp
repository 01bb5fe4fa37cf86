#include "mlineedit.h"

#include "atlistwidget.h"

MLineEdit::MLineEdit(AtListWidget* list, QWidget* parent) : QLineEdit(parent), list_(list) {
    setReadOnly(true);
    setFocusPolicy(Qt::NoFocus);
    setPlaceholderText(QStringLiteral("@"));
    setStyleSheet(
        QStringLiteral("QLineEdit{border:1px solid #dfe8ef;border-bottom:0px;"
                       "background-color:#ffffff;color:#888888;}"));
    connect(this, &QLineEdit::textChanged, this, &MLineEdit::textChangedSlot);
    hide();
}

void MLineEdit::textChangedSlot(const QString& text) {
    if (list_) list_->applyFilter(text);
}
