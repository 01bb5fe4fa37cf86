#include "textitemedit.h"

#include <QImage>
#include <QTextDocument>
#include <QUrl>
#include <QtMath>

#include "itemsizer.h"

namespace qx_output {

TextItemEdit::TextItemEdit(QWidget* parent) : QTextEdit(parent) {
    setReadOnly(true);
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    setContextMenuPolicy(Qt::DefaultContextMenu);
    setUndoRedoEnabled(false);
    setAcceptDrops(false);
    document()->setDocumentMargin(0);
    document()->setDefaultFont(ItemSizer::textFont());
    // Transparent over the bubble, by palette: a style sheet per row costs too much.
    setAutoFillBackground(false);
    viewport()->setAutoFillBackground(false);
    QPalette p = palette();
    p.setColor(QPalette::Base, Qt::transparent);
    setPalette(p);
    connect(document(), &QTextDocument::contentsChanged, this, &TextItemEdit::onContentsChanged);
}

void TextItemEdit::onContentsChanged() {
    const int h = int(qCeil(document()->size().height()));
    if (h != height()) emit heightChanged(h);
}

QVariant TextItemEdit::loadResource(int type, const QUrl& name) {
    // Only pictures compiled into the program: a sender cannot make us read a file or an
    // address, even if markup ever slipped through.
    if (type == QTextDocument::ImageResource && name.scheme().isEmpty() &&
        name.path().startsWith(QLatin1String(":/"))) {
        QImage image(name.path());
        if (!image.isNull()) return image;
    }
    if (type == QTextDocument::ImageResource && name.scheme() == QLatin1String("qrc")) {
        QImage image(QLatin1Char(':') + name.path());
        if (!image.isNull()) return image;
    }
    return QVariant();
}

}  // namespace qx_output
