#include "itemsizer.h"

#include <QApplication>
#include <QImageReader>
#include <QTextDocument>
#include <QtMath>

#include "messageentry.h"
#include "uifont.h"

namespace qx_output {

const QSize ItemSizer::kLoadingSize(32, 32);
const QSize ItemSizer::kBrokenSize(96, 72);
const QSize ItemSizer::kFileCard(250, 78);
const QSize ItemSizer::kTaskCard(260, 132);
const QSize ItemSizer::kTableCard(260, 112);
const QSize ItemSizer::kPersonalCard(220, 84);

int ItemSizer::textPixelSize() { return UiFont::px(14); }

// Cards are mostly text: they grow with it.
QSize ItemSizer::card(const QSize& design) {
    return QSize(UiFont::px(design.width()), UiFont::px(design.height()));
}

int ItemSizer::namePixelSize() { return UiFont::px(12); }

QFont ItemSizer::textFont() {
    QFont font = QApplication::font();
    font.setPixelSize(textPixelSize());
    return font;
}

int ItemSizer::maxContentWidth(int viewWidth) {
    const int room = viewWidth - 2 * (kSide + kAvatar + kGap + kPad) - 40;
    // In steps of 20 px: a slightly different width (a scroll bar coming and going, a
    // splitter nudged) keeps every text row's measure.
    return qBound(80, room / 20 * 20, 560);
}

QSize ItemSizer::textSize(const QString& html, int maxWidth) {
    // One document reused for every measurement: building one per message is the costly
    // part of measuring.
    static QTextDocument* doc = [] {
        auto* d = new QTextDocument(qApp);
        d->setDocumentMargin(0);
        d->setUndoRedoEnabled(false);
        return d;
    }();
    doc->setDefaultFont(textFont());
    doc->setTextWidth(-1);
    doc->setHtml(html);
    doc->setTextWidth(maxWidth);
    // Lines wrapped at maxWidth keep their breaks at the widest line's width, so the
    // height needs no second layout.
    const int width = qMin(maxWidth, int(qCeil(doc->idealWidth())) + 1);
    return QSize(width, int(qCeil(doc->size().height())));
}

QSize ItemSizer::oneLine() {
    static const QSize size = textSize(QStringLiteral("x"), 1000);
    return size;
}

QSize ItemSizer::pictureSize(const QString& path) {
    QImageReader reader(path);
    const QSize size = reader.size();
    if (!size.isValid() || size.isEmpty()) return QSize();
    if (size.width() <= kPictureMax && size.height() <= kPictureMax) return size;
    return size.scaled(kPictureMax, kPictureMax, Qt::KeepAspectRatio).expandedTo(QSize(1, 1));
}

void ItemSizer::measure(MessageEntry& e, int viewWidth) {
    switch (e.kind) {
        case MessageEntry::Text:
            e.measuredFor = maxContentWidth(viewWidth);
            e.content = textSize(e.html, e.measuredFor);
            break;
        case MessageEntry::Image:
            if (e.loading) {
                e.content = kLoadingSize;
            } else {
                e.content = pictureSize(e.msg.mediaPath);
                if (e.content.isEmpty()) e.content = kBrokenSize;
            }
            break;
        case MessageEntry::File:
            e.content = card(kFileCard);
            break;
        case MessageEntry::Task:
            e.content = card(kTaskCard);
            break;
        case MessageEntry::Table:
            e.content = card(kTableCard);
            break;
        case MessageEntry::Card:
            e.content = card(kPersonalCard);
            break;
        case MessageEntry::Separator:
        case MessageEntry::Tip:
            e.content = QSize(0, kTipHeight);
            break;
    }
}

QSize ItemSizer::rowSize(const MessageEntry& e, int viewWidth) {
    if (e.kind == MessageEntry::Separator || e.kind == MessageEntry::Tip)
        return QSize(viewWidth, kTipHeight);
    const int name = e.showName ? nameHeight() : 0;
    const int body = qMax(kAvatar, name + e.content.height() + 2 * kPad);
    return QSize(viewWidth, kTop + body + kBottom);
}

}  // namespace qx_output
