#include "tribememberview.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QScrollBar>
#include <QStackedWidget>
#include <QVBoxLayout>
#include <QWheelEvent>

#include "avatarpixmapcache.h"
#include "directorystore.h"
#include "logger.h"
#include "membericonandnamewidget.h"

const char* const TribeMemberView::kAdvanced = "advanced";
const char* const TribeMemberView::kGroup = "group";

TribeMemberView::TribeMemberView(QWidget* parent, DirectoryStore* store, AvatarPixmapCache* avatars)
    : QWidget(parent),
      store_(store ? store : &DirectoryStore::instance()),
      avatars_(avatars ? avatars : new AvatarPixmapCache(store_, nullptr, this)),
      heading_(new QLabel(QStringLiteral("群成员"), this)),
      hint_(new QLabel(QStringLiteral("选择查看群成员"), this)),
      stack_(new QStackedWidget(this)),
      viewport_(new QWidget(this)),
      bar_(new QScrollBar(Qt::Vertical, this)) {
    setObjectName(QStringLiteral("tribeMemberView"));
    heading_->setObjectName(QStringLiteral("memberHeading"));
    heading_->setStyleSheet(QStringLiteral("QLabel{color:#444;font-weight:bold;padding:6px;}"));
    hint_->setAlignment(Qt::AlignCenter);
    hint_->setStyleSheet(QStringLiteral("QLabel{color:#9aa5b1;}"));

    auto* listArea = new QWidget(stack_);
    auto* listLayout = new QHBoxLayout(listArea);
    listLayout->setContentsMargins(0, 0, 0, 0);
    listLayout->setSpacing(0);
    listLayout->addWidget(viewport_, 1);
    listLayout->addWidget(bar_);
    viewport_->installEventFilter(this);
    stack_->addWidget(hint_);
    stack_->addWidget(listArea);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(heading_);
    layout->addWidget(stack_, 1);

    connect(bar_, &QScrollBar::valueChanged, this, [this] { layoutRows(); });
    connect(avatars_, &AvatarPixmapCache::avatarChanged, this, &TribeMemberView::UpdateUserIcon);
    clearTribe();
}

void TribeMemberView::clearTribe() {
    tribeId_.clear();
    ownerId_.clear();
    members_.clear();
    heading_->setText(QStringLiteral("群成员"));
    hint_->setText(QStringLiteral("选择查看群成员"));
    stack_->setCurrentWidget(hint_);
    shown_.fill(-1);
    layoutRows();
}

void TribeMemberView::setLoading(const QString& tribeId) {
    clearTribe();
    tribeId_ = tribeId;
    hint_->setText(QStringLiteral("正在读取群成员…"));
}

void TribeMemberView::setTribe(const QString& tribeId, const TribeMembers& members,
                               const QString& ownerId, const QString& typeWord) {
    tribeId_ = tribeId;
    ownerId_ = ownerId;
    members_ = members;
    ownerMarked_ = typeWord == QLatin1String(kAdvanced);
    if (!ownerMarked_ && typeWord != QLatin1String(kGroup))
        Logger::instance().write(QStringLiteral("tribe %1: unknown kind \"%2\", listed as a group")
                                     .arg(tribeId, typeWord));
    if (ownerMarked_) {
        for (int i = 1; i < members_.size(); ++i) {
            if (members_[i].id == ownerId) {
                const TribeMember owner = members_[i];
                members_.remove(i);
                members_.prepend(owner);
                break;
            }
        }
    }
    heading_->setText(QStringLiteral("群成员 (%1)").arg(members_.size()));
    if (members_.isEmpty()) hint_->setText(QStringLiteral("该群暂无成员"));
    stack_->setCurrentIndex(members_.isEmpty() ? 0 : 1);
    shown_.fill(-1);
    bar_->setValue(0);
    layoutRows();
}

bool TribeMemberView::isOnline(const QString& userId) const {
    return userId == store_->selfId() || store_->isOnline(userId);
}

void TribeMemberView::fillRow(MemberIconAndNameWidget* row, int index) {
    const TribeMember& m = members_[index];
    const bool online = isOnline(m.id);
    row->setMember(m.id, m.name, avatars_->pixmap(m.id, online, kAvatar), online,
                   ownerMarked_ && m.id == ownerId_);
}

void TribeMemberView::layoutRows() {
    const int height = qMax(0, viewport_->height());
    const int total = members_.size() * kRowHeight;
    bar_->setRange(0, qMax(0, total - height));
    bar_->setPageStep(qMax(1, height));
    bar_->setSingleStep(kRowHeight);
    bar_->setVisible(total > height);
    const int needed = members_.isEmpty() ? 0 : height / kRowHeight + 2;
    while (pool_.size() < needed) {
        auto* row = new MemberIconAndNameWidget(viewport_);
        row->setFixedHeight(kRowHeight);
        connect(row, &MemberIconAndNameWidget::enterSignal, this,
                &TribeMemberView::showPersonalInfoCard);
        connect(row, &MemberIconAndNameWidget::leaveSignal, this,
                &TribeMemberView::hidePersonalInfoCard);
        connect(row, &MemberIconAndNameWidget::doubleClicked, this,
                &TribeMemberView::StartTalkWith);
        pool_.append(row);
        shown_.append(-1);
    }
    const int first = bar_->value() / kRowHeight;
    const int offset = -(bar_->value() % kRowHeight);
    for (int i = 0; i < pool_.size(); ++i) {
        MemberIconAndNameWidget* row = pool_[i];
        const int index = first + i;
        if (i >= needed || index >= members_.size()) {
            row->hide();
            shown_[i] = -1;
            continue;
        }
        if (shown_[i] != index) {
            fillRow(row, index);
            shown_[i] = index;
        }
        row->setGeometry(0, offset + i * kRowHeight, viewport_->width(), kRowHeight);
        row->show();
    }
}

QVector<MemberIconAndNameWidget*> TribeMemberView::visibleRows() const {
    QVector<MemberIconAndNameWidget*> out;
    for (int i = 0; i < pool_.size(); ++i)
        if (shown_[i] >= 0) out.append(pool_[i]);
    return out;
}

void TribeMemberView::UpdateUserIcon(const QString& userId) {
    for (int i = 0; i < pool_.size(); ++i)
        if (shown_[i] >= 0 && members_[shown_[i]].id == userId) fillRow(pool_[i], shown_[i]);
}

void TribeMemberView::setOnline(const QString& userId, bool) { UpdateUserIcon(userId); }

bool TribeMemberView::eventFilter(QObject* watched, QEvent* event) {
    if (watched == viewport_) {
        if (event->type() == QEvent::Resize) {
            layoutRows();
        } else if (event->type() == QEvent::Wheel) {
            auto* wheel = static_cast<QWheelEvent*>(event);
            bar_->setValue(bar_->value() - wheel->angleDelta().y() * kRowHeight / 40);
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}
