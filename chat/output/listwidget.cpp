#include "listwidget.h"

#include <QPushButton>
#include <QScrollBar>
#include <QStyle>
#include <QTimer>

#include "messageentry.h"

namespace qx_output {

ListWidget::ListWidget(QWidget* parent) : QListWidget(parent) {
    setObjectName(QStringLiteral("outputView"));
    setStyleSheet(QStringLiteral(
        "QListWidget{border: 0px solid gray;}QListWidget::item:selected "
        "{background-color:transparent;}QListWidget::item:hover{background-color:transparent;"
        "border-radius:0px;}QListWidget{background-color:transparent;border-radius:0px;}"));
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setSelectionMode(QAbstractItemView::NoSelection);
    setFocusPolicy(Qt::NoFocus);
    setResizeMode(QListView::Adjust);
    setUniformItemSizes(false);
    verticalScrollBar()->setSingleStep(20);

    historyRow_ = new QListWidgetItem(this);
    historyRow_->setSizeHint(QSize(0, 28));
    historyRow_->setFlags(Qt::NoItemFlags);
    historyButton_ = new QPushButton(QStringLiteral("获取更多历史消息"));
    historyButton_->setObjectName(QStringLiteral("historyButton"));
    historyButton_->setCursor(Qt::PointingHandCursor);
    historyButton_->setStyleSheet(
        QStringLiteral("QPushButton{background-color:transparent;color:#1589d3;border:0px;}"
                       "QPushButton:hover{text-decoration:underline;}"));
    setItemWidget(historyRow_, historyButton_);
    connect(historyButton_, &QPushButton::clicked, this, &ListWidget::insertHistoryMsgs);
    connect(verticalScrollBar(), &QScrollBar::valueChanged, this, [this] { materialize(); });
}

void ListWidget::insertHistoryMsgs() { emit setHistoryTipSignal(row(historyRow_)); }

EntryItem* ListWidget::entryAt(int r) const {
    QListWidgetItem* i = item(r);
    return i && i->type() == QListWidgetItem::UserType + 1 ? static_cast<EntryItem*>(i) : nullptr;
}

int ListWidget::rowWidth() const {
    return width() - style()->pixelMetric(QStyle::PM_ScrollBarExtent, nullptr, this);
}

bool ListWidget::isAtBottom() const {
    const QScrollBar* bar = verticalScrollBar();
    return bar->value() >= bar->maximum() - 4;
}

void ListWidget::appendEntry(EntryItem* item, bool follow) {
    follow_ = follow_ || follow || isAtBottom();
    addItem(item);
    schedule();
}

void ListWidget::insertEntry(int r, EntryItem* item) {
    keepingView([&] { insertItem(r, item); });
}

void ListWidget::removeEntry(int r) {
    keepingView([&] {
        QListWidgetItem* gone = item(r);
        if (!gone) return;
        drop(gone);
        delete takeItem(r);
    });
}

void ListWidget::keepingView(const std::function<void()>& change) {
    executeDelayedItemsLayout();
    // A conversation that had nothing yet shows its newest messages; otherwise the view
    // stays at the bottom when it was there and keeps its top row in place when not.
    const bool bottom =
        follow_ || count() <= 1 || (isAtBottom() && verticalScrollBar()->maximum() > 0);
    QListWidgetItem* anchor = itemAt(QPoint(1, 1));
    if (anchor == historyRow_ && count() > 1 && row(anchor) + 1 < count())
        anchor = this->item(row(anchor) + 1);
    const int before = anchor ? visualItemRect(anchor).top() : 0;
    change();
    if (bottom) {
        follow_ = true;
    } else if (anchor) {
        executeDelayedItemsLayout();
        const int after = visualItemRect(anchor).top();
        verticalScrollBar()->setValue(verticalScrollBar()->value() + after - before);
    }
    schedule();
}

void ListWidget::visibleRows(int* first, int* last) const {
    const QRect area = viewport()->rect();
    *first = row(itemAt(QPoint(1, area.top())));
    *last = row(itemAt(QPoint(1, area.bottom())));
    if (*first < 0) *first = 0;
    if (*last < 0) *last = count() - 1;
    *first = qMax(1, *first - kMargin);
    *last = qMin(count() - 1, *last + kMargin);
}

void ListWidget::refresh(EntryItem* item) {
    if (live_.contains(item)) drop(item);
    schedule();
}

void ListWidget::schedule() {
    if (scheduled_) return;
    scheduled_ = true;
    QTimer::singleShot(0, this, [this] { materialize(); });
}

void ListWidget::drop(QListWidgetItem* item) {
    live_.remove(item);
    removeItemWidget(item);
}

void ListWidget::materialize() {
    scheduled_ = false;
    if (!factory_ || !isVisible()) return;
    executeDelayedItemsLayout();
    if (follow_) {
        follow_ = false;
        scrollToBottom();
    }
    int first = 0;
    int last = 0;
    visibleRows(&first, &last);
    const QSet<QListWidgetItem*> live = live_;
    for (QListWidgetItem* i : live) {
        const int r = row(i);
        if (r < first - kMargin || r > last + kMargin) drop(i);
    }
    for (int r = first; r <= last; ++r) {
        EntryItem* e = entryAt(r);
        if (!e || live_.contains(e)) continue;
        if (QWidget* w = factory_(e)) {
            setItemWidget(e, w);
            live_.insert(e);
        }
    }
}

void ListWidget::resizeEvent(QResizeEvent* event) {
    QListWidget::resizeEvent(event);
    const int width = rowWidth();
    if (width != lastWidth_) {
        lastWidth_ = width;
        const bool bottom = isAtBottom();
        emit widthChanged(width);
        follow_ = follow_ || bottom;
    }
    schedule();
}

void ListWidget::showEvent(QShowEvent* event) {
    QListWidget::showEvent(event);
    materialize();
}

}  // namespace qx_output
