#include "unreadmsgscard.h"

#include <QCursor>
#include <QEvent>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPixmap>
#include <QPushButton>
#include <QScreen>
#include <QVBoxLayout>

#include "plaintext.h"
#include "uifont.h"

namespace {
// A bounded card: beyond this many rows the oldest conversations wait in the talk list.
constexpr int kMaxRows = 8;
constexpr int kWidth = 260;
const char* const kIdProperty = "conversationId";
}  // namespace

UnreadMsgsCard::UnreadMsgsCard(QWidget* parent)
    : QWidget(parent, Qt::ToolTip | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint),
      pointer_([] { return QCursor::pos(); }) {
    setObjectName(QStringLiteral("unreadMsgsCard"));
    setAttribute(Qt::WA_StyledBackground);
    setStyleSheet(QStringLiteral("QWidget#unreadMsgsCard{background-color:#F5F5F5;}"));
    setFixedWidth(kWidth);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 6, 0, 6);
    layout->setSpacing(0);
    rows_ = new QVBoxLayout;
    rows_->setSpacing(0);
    layout->addLayout(rows_);
    auto* ignore = new QPushButton(QStringLiteral("忽略全部"), this);
    ignore->setObjectName(QStringLiteral("ignoreAll"));
    ignore->setFlat(true);
    ignore->setCursor(Qt::PointingHandCursor);
    ignore->setStyleSheet(QStringLiteral("QPushButton{color:#2d8cf0;border:none;padding:4px;}"));
    connect(ignore, &QPushButton::clicked, this, &UnreadMsgsCard::ignoreAllClicked);
    layout->addWidget(ignore, 0, Qt::AlignRight);

    leaveTimer_.setSingleShot(true);
    leaveTimer_.setInterval(200);
    connect(&leaveTimer_, &QTimer::timeout, this, &UnreadMsgsCard::leaveTrayIconSlot);
}

void UnreadMsgsCard::setUnread(const Entry& entry) {
    QString summary = entry.summary;
    for (int i = 0; i < entries_.size(); ++i) {
        if (entries_[i].id != entry.id) continue;
        if (summary.isEmpty()) summary = entries_[i].summary;
        entries_.removeAt(i);
        break;
    }
    if (entry.count > 0) {
        Entry e = entry;
        e.summary = summary;
        entries_.prepend(e);
    }
    changed();
}

void UnreadMsgsCard::remove(const QString& id) {
    for (int i = 0; i < entries_.size(); ++i)
        if (entries_[i].id == id) {
            entries_.removeAt(i);
            changed();
            return;
        }
}

void UnreadMsgsCard::clear() {
    entries_.clear();
    changed();
    hide();
}

int UnreadMsgsCard::totalCount() const {
    int sum = 0;
    for (const Entry& e : entries_) sum += e.count;
    return sum;
}

void UnreadMsgsCard::changed() {
    stale_ = true;
    if (entries_.isEmpty()) hide();
    if (!isVisible() || rebuildQueued_) return;
    rebuildQueued_ = true;
    QTimer::singleShot(0, this, [this] {
        rebuildQueued_ = false;
        if (stale_ && isVisible()) rebuild();
    });
}

void UnreadMsgsCard::rebuild() {
    stale_ = false;
    // Later, not now: a click on a row can lead here while the row handles its event.
    while (QLayoutItem* item = rows_->takeAt(0)) {
        if (QWidget* w = item->widget()) {
            w->hide();
            w->deleteLater();
        }
        delete item;
    }
    const int shown = qMin(int(entries_.size()), kMaxRows);
    for (int i = 0; i < shown; ++i) {
        const Entry& e = entries_[i];
        auto* row = new QWidget(this);
        row->setObjectName(QStringLiteral("unreadRow"));
        row->setProperty(kIdProperty, e.id);
        row->setAttribute(Qt::WA_Hover);
        row->setCursor(Qt::PointingHandCursor);
        row->setStyleSheet(QStringLiteral("QWidget#unreadRow:hover{background-color:#E4E8EE;}"));
        row->installEventFilter(this);
        auto* h = new QHBoxLayout(row);
        h->setContentsMargins(10, 5, 10, 5);
        auto* avatar = new QLabel(row);
        avatar->setFixedSize(32, 32);
        avatar->setScaledContents(true);
        if (!e.avatar.isEmpty()) avatar->setPixmap(QPixmap(e.avatar));
        h->addWidget(avatar);
        auto* text = new QVBoxLayout;
        text->setSpacing(1);
        auto* name = plaintext::label(e.name, row);
        name->setStyleSheet(
            UiFont::scaled(QStringLiteral("QLabel{color:#1f2d3d;font-size:13px;}")));
        auto* summary = plaintext::label(QString(), row);
        summary->setStyleSheet(
            UiFont::scaled(QStringLiteral("QLabel{color:#8492a6;font-size:12px;}")));
        summary->setText(summary->fontMetrics().elidedText(e.summary, Qt::ElideRight, 160));
        text->addWidget(name);
        text->addWidget(summary);
        h->addLayout(text, 1);
        auto* count =
            new QLabel(e.count > 99 ? QStringLiteral("99+") : QString::number(e.count), row);
        count->setObjectName(QStringLiteral("unreadCount"));
        count->setAlignment(Qt::AlignCenter);
        count->setMinimumWidth(20);
        count->setStyleSheet(QStringLiteral(
            "QLabel{background-color:#FFA54F;color:white;border-radius:9px;padding:1px 5px;}"));
        h->addWidget(count);
        rows_->addWidget(row);
    }
    adjustSize();
    if (entries_.isEmpty()) hide();
}

void UnreadMsgsCard::showNear(const QRect& iconArea) {
    if (entries_.isEmpty()) return;
    iconArea_ = iconArea;
    if (stale_) rebuild();
    adjustSize();
    const QPoint anchor = iconArea.isValid() ? iconArea.center() : pointer_();
    QScreen* screen = QGuiApplication::screenAt(anchor);
    if (!screen) screen = QGuiApplication::primaryScreen();
    const QRect avail = screen ? screen->availableGeometry() : QRect(0, 0, 1920, 1080);
    int x = anchor.x() - width() / 2;
    int y = iconArea.isValid() ? iconArea.top() - height() : anchor.y() - height();
    if (y < avail.top()) y = iconArea.isValid() ? iconArea.bottom() + 1 : anchor.y();
    x = qBound(avail.left(), x, qMax(avail.left(), avail.right() - width()));
    y = qBound(avail.top(), y, qMax(avail.top(), avail.bottom() - height()));
    move(x, y);
    show();
    raise();
    leaveTimer_.start();
}

void UnreadMsgsCard::leaveTrayIconSlot() {
    if (!isVisible()) return;
    const QPoint p = pointer_();
    // The icon's area with a small margin, so a pointer crossing the gap between the icon
    // and the card does not close it.
    const QRect icon = iconArea_.adjusted(-4, -4, 4, 4);
    const QRect card = frameGeometry().adjusted(-4, -4, 4, 4);
    if (!icon.contains(p) && !card.contains(p)) {
        hide();
        return;
    }
    leaveTimer_.start();
}

bool UnreadMsgsCard::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::MouseButtonRelease) {
        auto* e = static_cast<QMouseEvent*>(event);
        auto* row = qobject_cast<QWidget*>(watched);
        if (row && e->button() == Qt::LeftButton) {
            const QString id = row->property(kIdProperty).toString();
            QString name;
            for (const Entry& entry : entries_)
                if (entry.id == id) name = entry.name;
            hide();
            emit unreadItemClicked(id, name);
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}
