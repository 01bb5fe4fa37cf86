#include "sharechooser.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

#include "colleagenamesearchedit.h"
#include "plaintext.h"

ShareChooser::ShareChooser(const QString& sharedName, const QVector<Choice>& recent,
                           QWidget* parent)
    : QDialog(parent),
      search_(new ColleageNameSearchEdit(this)),
      list_(new QListWidget(this)),
      ok_(new QPushButton(QStringLiteral("发送"), this)) {
    setWindowTitle(QStringLiteral("分享名片"));
    setObjectName(QStringLiteral("shareChooser"));
    search_->setOrgCompleter();
    search_->setPlaceholderText(QStringLiteral("搜索同事"));
    for (const Choice& c : recent) {
        auto* item = new QListWidgetItem(c.second, list_);
        item->setData(Qt::UserRole, c.first);
    }
    auto* cancel = new QPushButton(QStringLiteral("取消"), this);
    ok_->setEnabled(false);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(ok_);
    buttons->addWidget(cancel);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(plaintext::label(QStringLiteral("把 %1 的名片发给：").arg(sharedName), this));
    layout->addWidget(search_);
    layout->addWidget(search_->resultList());
    search_->resultList()->hide();
    layout->addWidget(list_, 1);
    layout->addLayout(buttons);
    resize(320, 420);

    connect(list_, &QListWidget::currentRowChanged, this,
            [this](int row) { ok_->setEnabled(row >= 0); });
    connect(list_, &QListWidget::itemDoubleClicked, this,
            [this](QListWidgetItem* item) { choose(item->data(Qt::UserRole).toString()); });
    connect(ok_, &QPushButton::clicked, this, [this] {
        if (QListWidgetItem* item = list_->currentItem())
            choose(item->data(Qt::UserRole).toString());
    });
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(search_, &ColleageNameSearchEdit::searchListSignal, this, [this](QListWidget* results) {
        results->show();
        list_->hide();
    });
    connect(search_, &ColleageNameSearchEdit::erasedAllText, this, [this] {
        search_->resultList()->hide();
        list_->show();
    });
    connect(search_, &ColleageNameSearchEdit::selectedSearchResultItem, this,
            &ShareChooser::choose);
}

void ShareChooser::choose(const QString& id) {
    if (id.isEmpty()) return;
    chosen_ = id;
    accept();
}
