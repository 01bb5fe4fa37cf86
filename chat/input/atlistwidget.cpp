#include "atlistwidget.h"

AtListWidget::AtListWidget(QWidget* parent) : QListWidget(parent) {
    setStyleSheet(QStringLiteral("QListWidget::item:selected {background:#e6e9ec;}"
                                 "QListWidget::item:hover{background:#e6e9ec;border-radius:0px;}"
                                 "QListWidget{background-color:rgb(244,245,246);border-radius:%1px;"
                                 "border: %2px solid #dfe8ef;}")
                      .arg(4)
                      .arg(1));
    setFocusPolicy(Qt::NoFocus);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    connect(this, &QListWidget::itemPressed, this, &AtListWidget::itemPressedSlots);
    hide();
}

void AtListWidget::setMembers(const QList<Member>& members) { members_ = members; }

int AtListWidget::applyFilter(const QString& filter) {
    clear();
    for (const Member& m : members_) {
        if (!filter.isEmpty() && !m.nick.contains(filter, Qt::CaseInsensitive)) continue;
        auto* item = new QListWidgetItem(m.nick, this);
        item->setData(Qt::UserRole, m.userId);
    }
    if (count() > 0) setCurrentRow(0);
    return count();
}

void AtListWidget::moveCurrent(int step) {
    if (count() == 0) return;
    setCurrentRow((currentRow() + step + count()) % count());
}

QString AtListWidget::currentNick() const {
    return currentItem() ? currentItem()->text() : QString();
}

void AtListWidget::itemPressedSlots(QListWidgetItem* item) {
    if (item) emit itemPressedSignal(item->text());
}
