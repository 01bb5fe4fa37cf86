#pragma once

#include <QListWidget>
#include <QSet>

#include <functional>

class QPushButton;

namespace qx_output {

class EntryItem;

// The rows of one conversation's output. The top row is the history control. Rows keep
// their content as data; only the rows in and near the view have widgets, built by the
// factory when they scroll in and dropped when they are far out, so that a conversation
// of thousands of messages holds a few dozen widgets.
class ListWidget : public QListWidget {
    Q_OBJECT
public:
    using Factory = std::function<QWidget*(EntryItem* item)>;
    static constexpr int kMargin = 2;  // rows built beyond each edge of the view

    explicit ListWidget(QWidget* parent = nullptr);

    void setFactory(Factory factory) { factory_ = std::move(factory); }
    QPushButton* historyButton() const { return historyButton_; }

    // Appends a row; follows it when the view was at the bottom or `follow` is set.
    void appendEntry(EntryItem* item, bool follow);
    // Inserts a row at `row` (history), keeping the rows in view where they are.
    void insertEntry(int row, EntryItem* item);
    // Takes the row out (and its widget, if it has one), keeping the view where it is.
    void removeEntry(int row);
    // Runs a change of rows (insertions, new heights) keeping the top row in view where
    // it is on screen, unless the view follows the bottom.
    void keepingView(const std::function<void()>& change);
    // The rows now in view, widened by the build margin.
    void visibleRows(int* first, int* last) const;
    EntryItem* entryAt(int row) const;
    // Rebuilds the row's widget (its content changed).
    void refresh(EntryItem* item);
    int liveWidgetCount() const { return live_.size(); }
    bool isAtBottom() const;
    // The width rows are laid out for: the list's less a scroll bar, whether or not the
    // bar shows, so that the bar coming and going changes nothing.
    int rowWidth() const;
    // Builds the widgets for the rows now in view.
    void materialize();

signals:
    void setHistoryTipSignal(int index);
    void widthChanged(int width);

public slots:
    void insertHistoryMsgs();

protected:
    void resizeEvent(QResizeEvent* event) override;
    void showEvent(QShowEvent* event) override;

private:
    void schedule();
    void drop(QListWidgetItem* item);

    Factory factory_;
    QPushButton* historyButton_;
    QListWidgetItem* historyRow_;
    QSet<QListWidgetItem*> live_;
    bool scheduled_ = false;
    bool follow_ = false;
    int lastWidth_ = -1;
};

}  // namespace qx_output
