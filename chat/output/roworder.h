#pragma once

#include <QtGlobal>

namespace qx_output {

class EntryItem;
class ListWidget;
class RowMeasurer;

// Where a new row goes in a conversation's list, and where the time lines go: history
// pages above what is shown, a message fetched late from the archive in its place, a live
// one last; a line before every message that starts a new stretch of time.
class RowOrder {
public:
    // A message more than this long after the one above it starts a new stretch.
    static constexpr qint64 kSeparatorSeconds = 120;

    RowOrder(ListWidget* list, RowMeasurer* measurer);

    // Puts a new row in its place, with the time line it calls for.
    void place(EntryItem* item);
    // Appends a line before a live message of time `t` when it is due; true when added.
    bool appendTimeLine(qint64 t);

private:
    int historyRow(qint64 time, qint64 order) const;
    int lateRow(qint64 time, qint64 order) const;
    void insertAt(int row, EntryItem* item, qint64 time);
    // Whether a message of `time` placed at `row` starts a new stretch of time (gets a line).
    bool startsStretch(int row, qint64 time) const;
    EntryItem* separatorItem(qint64 time, bool history);

    ListWidget* list_;
    RowMeasurer* measurer_;
};

}  // namespace qx_output
