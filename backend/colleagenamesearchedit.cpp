#include "colleagenamesearchedit.h"

#include <QKeyEvent>
#include <QListWidget>

#include "directorystore.h"
#include "plaintext.h"

ColleageNameSearchEdit::ColleageNameSearchEdit(QWidget* parent, DirectoryStore* store)
    : QLineEdit(parent),
      store_(store ? store : &DirectoryStore::instance()),
      results_(new QListWidget(this)) {
    results_->setObjectName(QStringLiteral("searchResults"));
    results_->setWindowFlags(Qt::Widget);
    results_->hide();
    setPlaceholderText(QStringLiteral("搜索"));
    setClearButtonEnabled(true);
    connect(this, &QLineEdit::textChanged, this, &ColleageNameSearchEdit::setCompleter);
    connect(results_, &QListWidget::itemClicked, this, &ColleageNameSearchEdit::completeText);
    connect(results_, &QListWidget::itemActivated, this, &ColleageNameSearchEdit::completeText);
    connect(results_, &QListWidget::currentItemChanged, this,
            &ColleageNameSearchEdit::updateCurrentSelection);
}

void ColleageNameSearchEdit::setOrgCompleter() {
    tribeMode_ = false;
    setCompleter(text());
}

void ColleageNameSearchEdit::setTribeCompleter() {
    tribeMode_ = true;
    setCompleter(text());
}

void ColleageNameSearchEdit::setCompleter(const QString& typed) {
    if (typed.isEmpty()) {
        results_->clear();
        emit erasedAllText(typed);
        return;
    }
    const auto hits = store_->search(typed, tribeMode_ ? DirectoryStore::SearchMode::Tribes
                                                       : DirectoryStore::SearchMode::Colleagues);
    results_->setUpdatesEnabled(false);
    results_->clear();
    for (int i = 0; i < hits.size() && i < kMaxRows; ++i) {
        const DirectoryStore::Hit& hit = hits[i];
        QString dept;
        if (hit.colleague) {
            dept = hit.colleague->deptName();
            // Records that name only the department's id are named by the directory.
            if (dept.isEmpty())
                if (const DirectoryStore::Department* d =
                        store_->department(hit.colleague->section()))
                    dept = d->orgName;
        }
        // The department beside the name: colleagues of one name are told apart by it.
        const QString text =
            dept.isEmpty() ? hit.name() : hit.name() + QStringLiteral(" · ") + dept;
        auto* item = new QListWidgetItem(text, results_);  // a list item never reads markup
        item->setData(Qt::UserRole, hit.id());
        item->setData(DepartmentRole, dept);
        item->setData(Qt::ToolTipRole, plaintext::toolTip(text));
    }
    results_->setUpdatesEnabled(true);
    if (results_->count() > 0) results_->setCurrentRow(0);
    emit searchListSignal(results_);
}

void ColleageNameSearchEdit::completeText(QListWidgetItem* item) {
    if (!item) return;
    const QString id = item->data(Qt::UserRole).toString();
    emit selectedSearchResultItem(id);
}

void ColleageNameSearchEdit::updateCurrentSelection(QListWidgetItem* current,
                                                    QListWidgetItem* last) {
    if (last) last->setSelected(false);
    if (current) {
        current->setSelected(true);
        results_->scrollToItem(current);
    }
}

void ColleageNameSearchEdit::keyPressEvent(QKeyEvent* event) {
    const int rows = results_->count();
    if (rows > 0 && (event->key() == Qt::Key_Down || event->key() == Qt::Key_Up)) {
        const int step = event->key() == Qt::Key_Down ? 1 : -1;
        results_->setCurrentRow((results_->currentRow() + step + rows) % rows);
        return;
    }
    if (rows > 0 && (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter)) {
        completeText(results_->currentItem());
        return;
    }
    QLineEdit::keyPressEvent(event);
}
