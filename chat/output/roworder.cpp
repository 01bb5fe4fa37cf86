// The order of a conversation list's rows and the time lines between its stretches.
#include "roworder.h"

#include <QDateTime>

#include "listwidget.h"
#include "logger.h"
#include "messageentry.h"
#include "rowmeasurer.h"

namespace qx_output {

namespace {

// Rows are in the order of the server's time, then the store's order within a second.
bool later(const BaseMsg::MMessage& a, qint64 time, qint64 order) {
    return a.time > time || (a.time == time && a.order > order);
}

}  // namespace

RowOrder::RowOrder(ListWidget* list, RowMeasurer* measurer) : list_(list), measurer_(measurer) {}

void RowOrder::place(EntryItem* item) {
    const BaseMsg::MMessage& m = item->entry.msg;
    const qint64 time = m.time;
    if (m.isHistory) return insertAt(historyRow(time, m.order), item, time);
    const int late = lateRow(time, m.order);
    if (late >= 0) return insertAt(late, item, time);
    appendTimeLine(time);
    list_->appendEntry(item, m.isSelf);
}

bool RowOrder::appendTimeLine(qint64 t) {
    if (t == 0) {
        Logger::instance().write(QStringLiteral("message time 0: no time line"));
        return false;
    }
    if (!startsStretch(list_->count(), t)) return false;
    list_->appendEntry(separatorItem(t, false), false);
    return true;
}

int RowOrder::historyRow(qint64 time, qint64 order) const {
    // History arrives in pages, newest page last; a message goes above every row that
    // comes after it, among the rows loaded from history.
    int r = 1;
    while (r < list_->count()) {
        EntryItem* e = list_->entryAt(r);
        if (!e || !e->entry.msg.isHistory) break;
        // A line goes with the message below it: an earlier message goes above both.
        if (e->entry.kind == MessageEntry::Separator) {
            EntryItem* next = list_->entryAt(r + 1);
            if (next && next->entry.kind != MessageEntry::Separator &&
                later(next->entry.msg, time, order))
                break;
        } else if (later(e->entry.msg, time, order)) {
            break;
        }
        ++r;
    }
    return r;
}

int RowOrder::lateRow(qint64 time, qint64 order) const {
    // A message that arrives after newer ones (fetched from the server's archive after a
    // reconnect while live messages kept coming) goes in its place, not at the end. Rows
    // without a time (tips) stay with the rows they follow.
    if (time == 0) return -1;
    int place = -1;
    for (int r = list_->count() - 1; r >= 1; --r) {
        EntryItem* e = list_->entryAt(r);
        if (!e) break;
        const BaseMsg::MMessage& row = e->entry.msg;
        if (row.time == 0) continue;
        if (e->entry.kind == MessageEntry::Separator) {
            if (row.time > time && place == r + 1) place = r;  // its line goes with the later rows
            continue;
        }
        if (!later(row, time, order)) break;
        place = r;
    }
    return place;
}

bool RowOrder::startsStretch(int r, qint64 time) const {
    // One rule wherever a message lands (live, late or from history), so both sides of a
    // chat, and a page before and after a restart, draw the same lines: a message more than
    // kSeparatorSeconds after the message above it (tips, which have no time, do not count)
    // starts a new stretch, and so does the first one.
    if (time == 0) return false;
    for (int above = r - 1; above >= 1; --above) {
        EntryItem* e = list_->entryAt(above);
        if (!e) break;
        if (e->entry.kind == MessageEntry::Separator) return false;
        if (e->entry.msg.time == 0) continue;
        return e->entry.msg.time + kSeparatorSeconds < time;
    }
    return true;
}

EntryItem* RowOrder::separatorItem(qint64 time, bool history) {
    MessageEntry s;
    s.kind = MessageEntry::Separator;
    s.msg.isHistory = history;
    s.msg.time = time;
    s.html = QDateTime::fromSecsSinceEpoch(time).toString(QStringLiteral("yyyy/MM/dd hh:mm:ss"));
    measurer_->width();
    auto* sep = new EntryItem(s);
    measurer_->measure(sep);
    return sep;
}

void RowOrder::insertAt(int r, EntryItem* item, qint64 time) {
    if (startsStretch(r, time))
        list_->insertEntry(r++, separatorItem(time, item->entry.msg.isHistory));
    list_->insertEntry(r, item);
    // The line that opened the stretch below may now be inside this message's stretch.
    EntryItem* below = list_->entryAt(r + 1);
    if (time != 0 && below && below->entry.kind == MessageEntry::Separator &&
        !startsStretch(r + 1, below->entry.msg.time))
        list_->removeEntry(r + 1);
}

}  // namespace qx_output
