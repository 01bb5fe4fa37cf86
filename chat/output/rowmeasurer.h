#pragma once

#include <QObject>
#include <QVector>

class QWidget;

namespace qx_output {

class EntryItem;
class ListWidget;
struct MessageEntry;

// The sizes of a conversation list's rows, taken for the list's width only when they
// matter: laying out a text costs far more than keeping it, so a page out of view gives
// its text rows a one-line size and measures them once shown, and a new width or font
// measures the rows in view first and the rest in later turns of the event loop.
class RowMeasurer : public QObject {
    Q_OBJECT
public:
    // `page` is the conversation page that holds `list`; its visibility decides what waits.
    RowMeasurer(QWidget* page, ListWidget* list);

    // The width rows are measured for: the list's once shown; before that the nearest
    // shown container's, less a scroll bar.
    int width();
    // Sizes a new row's content: now, or for a text row of a page out of view, one line
    // until the page is shown.
    void prepare(MessageEntry& entry);
    // Gives the row the size its content takes at the current width.
    void size(EntryItem* item) const;
    // Measures the row's content again (it changed) and gives the row its new size.
    void measure(EntryItem* item) const;

    // The list's rows are `width` wide now.
    void remeasure(int width);
    // The user's font changed: every text row is measured anew.
    void fontChanged();
    // The page was shown: rows that waited are measured once the layout gave the list
    // its width.
    void pageShown();

private:
    // Measures some of the rows that wait, and the rest in a later turn.
    void measurePending();

    QWidget* page_;
    ListWidget* list_;
    int width_ = -1;
    QVector<EntryItem*> pending_;
    bool measuring_ = false;
    bool unmeasured_ = false;  // text rows added while hidden wait to be measured
};

}  // namespace qx_output
