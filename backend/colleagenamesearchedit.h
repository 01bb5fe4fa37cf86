#pragma once

#include <QLineEdit>

class DirectoryStore;
class QListWidget;
class QListWidgetItem;

// The search box over colleagues (or tribes) with its result list. The list belongs to
// the box; the page that hosts the box shows it where it wants (searchListSignal).
class ColleageNameSearchEdit : public QLineEdit {
    Q_OBJECT
public:
    // A broad query ("l") can hit tens of thousands of colleagues; the list shows the
    // first ones and the user narrows it by typing on.
    static constexpr int kMaxRows = 50;
    // A colleague row's department (namesakes are told apart by it); "" for tribes.
    static constexpr int DepartmentRole = Qt::UserRole + 1;

    explicit ColleageNameSearchEdit(QWidget* parent = nullptr, DirectoryStore* store = nullptr);
    QListWidget* resultList() const { return results_; }
    bool isTribeMode() const { return tribeMode_; }

signals:
    void selectedSearchResultItem(const QString& id);
    void searchListSignal(QListWidget* list);
    void erasedAllText(const QString& text);

public slots:
    void setCompleter(const QString& text);
    void setOrgCompleter();
    void setTribeCompleter();
    void completeText(QListWidgetItem* item);
    void updateCurrentSelection(QListWidgetItem* current, QListWidgetItem* last);

protected:
    void keyPressEvent(QKeyEvent* event) override;

private:
    DirectoryStore* store_;
    QListWidget* results_;
    bool tribeMode_ = false;
};
