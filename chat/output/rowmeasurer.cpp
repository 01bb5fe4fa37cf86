// Measuring a conversation list's rows lazily: hidden pages wait, rows in view go first.
#include "rowmeasurer.h"

#include <QStyle>
#include <QTimer>
#include <QWidget>

#include <algorithm>

#include "itemsizer.h"
#include "listwidget.h"
#include "messageentry.h"

namespace qx_output {

namespace {
constexpr int kDefaultWidth = 600;  // until the view is laid out
constexpr int kRowsPerTurn = 40;
}  // namespace

RowMeasurer::RowMeasurer(QWidget* page, ListWidget* list)
    : QObject(page), page_(page), list_(list) {}

int RowMeasurer::width() {
    if (width_ >= 0) return width_;
    if (list_->isVisible()) {
        width_ = list_->rowWidth();
        return width_;
    }
    // Not shown yet (a page behind the current one): the pages share the width of the
    // nearest shown container, less a scroll bar.
    width_ = kDefaultWidth;
    for (QWidget* w = page_->parentWidget(); w; w = w->parentWidget()) {
        if (w->isVisible()) {
            width_ = w->width() - page_->style()->pixelMetric(QStyle::PM_ScrollBarExtent);
            break;
        }
    }
    return width_;
}

void RowMeasurer::prepare(MessageEntry& e) {
    width();
    // A page nobody looks at (messages arriving for a conversation that is not open)
    // measures its text rows when it is shown, the rows in view first.
    if (e.kind == MessageEntry::Text && !page_->isVisible()) {
        e.measuredFor = 0;
        e.content = ItemSizer::oneLine();
        unmeasured_ = true;
        return;
    }
    ItemSizer::measure(e, width_);
}

void RowMeasurer::size(EntryItem* item) const {
    item->setSizeHint(ItemSizer::rowSize(item->entry, width_));
}

void RowMeasurer::measure(EntryItem* item) const {
    ItemSizer::measure(item->entry, width_);
    size(item);
}

void RowMeasurer::remeasure(int width) {
    if (width <= 0) return;
    width_ = width;
    const int lines = ItemSizer::maxContentWidth(width);
    pending_.clear();
    list_->keepingView([&] {
        for (int r = 1; r < list_->count(); ++r) {
            EntryItem* item = list_->entryAt(r);
            if (!item) continue;
            if (item->entry.kind == MessageEntry::Text && item->entry.measuredFor != lines)
                pending_.append(item);
            size(item);
            list_->refresh(item);
        }
    });
    // The rows in view first, then from the newest up.
    int first = 0;
    int last = 0;
    list_->visibleRows(&first, &last);
    std::stable_sort(pending_.begin(), pending_.end(), [&](EntryItem* a, EntryItem* b) {
        const int ra = list_->row(a);
        const int rb = list_->row(b);
        const bool va = ra >= first && ra <= last;
        const bool vb = rb >= first && rb <= last;
        if (va != vb) return va;
        return ra > rb;
    });
    measurePending();
}

void RowMeasurer::fontChanged() {
    // Every text row is measured anew, and every row's widget is rebuilt with the new size.
    // Cards take their size from the font; pictures and tips do not.
    for (int r = 1; r < list_->count(); ++r) {
        EntryItem* item = list_->entryAt(r);
        if (!item) continue;
        item->entry.measuredFor = -1;
        switch (item->entry.kind) {
            case MessageEntry::File:
            case MessageEntry::Task:
            case MessageEntry::Table:
            case MessageEntry::Card:
                ItemSizer::measure(item->entry, width_);
                break;
            default:
                break;
        }
    }
    if (page_->isVisible() && width_ > 0)
        remeasure(width_);
    else
        unmeasured_ = true;
}

void RowMeasurer::pageShown() {
    if (!unmeasured_) return;
    // After the layout has given the list its width.
    QTimer::singleShot(0, this, [this] {
        if (!unmeasured_ || !page_->isVisible()) return;
        unmeasured_ = false;
        remeasure(list_->rowWidth());
    });
}

void RowMeasurer::measurePending() {
    measuring_ = false;
    if (pending_.isEmpty()) return;
    const int n = qMin(kRowsPerTurn, pending_.size());
    list_->keepingView([&] {
        for (int i = 0; i < n; ++i) {
            EntryItem* item = pending_.at(i);
            measure(item);
            list_->refresh(item);
        }
    });
    pending_.remove(0, n);
    if (!pending_.isEmpty() && !measuring_) {
        measuring_ = true;
        QTimer::singleShot(0, this, &RowMeasurer::measurePending);
    }
}

}  // namespace qx_output
