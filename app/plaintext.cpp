#include "plaintext.h"

#include <QLabel>

namespace plaintext {

QLabel* label(const QString& text, QWidget* parent) {
    auto* l = new QLabel(parent);
    l->setTextFormat(Qt::PlainText);
    l->setText(text);
    return l;
}

QString toolTip(const QString& text) {
    if (text.isEmpty()) return QString();
    return QStringLiteral("<p style='white-space:pre'>") + text.toHtmlEscaped() +
           QStringLiteral("</p>");
}

}  // namespace plaintext
