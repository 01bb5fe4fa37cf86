#include "systemtrayicon.h"

#include <QGuiApplication>
#include <QPixmap>
#include <QScreen>

#include "alertsound.h"
#include "configstore.h"
#include "messagelabel.h"
#include "traybackend.h"
#include "traymenu.h"
#include "unreadmsgscard.h"

namespace {
QIcon trayIcon(const QString& resource) {
    return QIcon(QPixmap(resource).scaled(16, 16, Qt::KeepAspectRatio, Qt::SmoothTransformation));
}
}  // namespace

SystemTrayIcon::SystemTrayIcon(TrayBackend* backend, QObject* parent)
    : QObject(parent),
      backend_(backend),
      card_(new UnreadMsgsCard),
      menu_(new TrayMenu),
      popup_(new MessageLabel),
      normal_(trayIcon(QStringLiteral(":/resource/240x240.ico"))),
      gray_(trayIcon(QStringLiteral(":/resource/240x240(gray).ico"))) {
    backend_->setParent(this);
    QPixmap blank(16, 16);
    blank.fill(Qt::transparent);
    blank_ = QIcon(blank);
    alerts_ = [] {
        ConfigStore& store = ConfigStore::instance();
        Alerts a;
        if (!store.hasUser()) return a;
        const quelix::userconfig_t& u = store.userConfig();
        a.popup = u.popup;
        a.shining = u.trayShining;
        a.sound = u.sound;
        return a;
    };
    auto* sound = new AlertSound(this);
    play_ = [sound] { sound->play(); };

    blink_.setInterval(kBlinkMs);
    connect(&blink_, SIGNAL(timeout()), this, SLOT(iconChanged()));
    connect(card_, SIGNAL(unreadItemClicked(const QString&, const QString)), this,
            SLOT(unreadItemClickedSlot(const QString&, const QString&)));
    connect(card_, &UnreadMsgsCard::ignoreAllClicked, this, [this] {
        card_->clear();
        emit ignoreAllRequested();
    });
    connect(menu_, SIGNAL(trayMenuShowWidgetSignal(bool)), this, SLOT(thisShowSlot(bool)));
    connect(menu_, SIGNAL(trayMenuExitSignal(bool)), this, SLOT(appQuitSlot(bool)));
    connect(menu_, &TrayMenu::alertToggled, this, &SystemTrayIcon::alertToggled);
    connect(popup_, SIGNAL(msgTipClicked(QString)), this, SLOT(iconIsActived()));

    connect(backend_, &TrayBackend::hoveredSignal, this, &SystemTrayIcon::onHovered);
    connect(backend_, &TrayBackend::leftClickedSignal, this, &SystemTrayIcon::onLeftClicked);
    connect(backend_, &TrayBackend::rightClickedSignal, this, &SystemTrayIcon::onRightClicked);
    backend_->setToolTip(QStringLiteral("Quelix"));
    apply(0);
}

SystemTrayIcon::~SystemTrayIcon() {
    remove();
    delete card_;
    delete menu_;
    delete popup_;
}

void SystemTrayIcon::show() { backend_->show(); }

void SystemTrayIcon::remove() {
    blink_.stop();
    backend_->remove();
}

void SystemTrayIcon::newMessage(const QString& id, const QString& name, const QString& summary,
                                const QString& avatar, int count) {
    UnreadMsgsCard::Entry entry;
    entry.id = id;
    entry.name = name;
    entry.summary = summary;
    entry.avatar = avatar;
    entry.count = count;
    card_->setUnread(entry);
    if (count <= 0) return;
    apply(phase_ == 0 ? 0 : 1);
    const Alerts a = alerts_();
    if (a.sound && play_) play_();
    if (a.shining && !blink_.isActive()) blink_.start(kBlinkMs);
    if (a.popup) popup_->showMessage(id, name, card_->entries().first().summary, avatar);
}

void SystemTrayIcon::unreadChanged(int total, const std::function<int(const QString&)>& countOf) {
    if (total <= 0) {
        card_->clear();
        return;
    }
    const QList<UnreadMsgsCard::Entry> entries = card_->entries();
    for (const UnreadMsgsCard::Entry& e : entries) {
        const int now = countOf ? countOf(e.id) : e.count;
        if (now <= 0) card_->remove(e.id);
    }
}

void SystemTrayIcon::iconChanged() {
    if (card_->conversationCount() == 0) {
        stopBlinking();
        return;
    }
    phase_ = 1 - phase_;
    apply(phase_);
}

void SystemTrayIcon::stopBlinking() {
    blink_.stop();
    phase_ = 0;
    apply(0);
}

void SystemTrayIcon::setOnline(bool online) {
    online_ = online;
    menu_->setTogglesAvailable(online || ConfigStore::instance().hasUser());
    stopBlinking();
}

void SystemTrayIcon::apply(int picture) {
    applied_ = picture;
    backend_->setIcon(picture == 1 ? blank_ : (online_ ? normal_ : gray_));
}

void SystemTrayIcon::unreadItemClickedSlot(const QString& id, const QString& name) {
    Q_UNUSED(name);
    emit openConversationRequested(id);
}

void SystemTrayIcon::thisShowSlot(bool) { emit showWindowRequested(); }

void SystemTrayIcon::appQuitSlot(bool) { emit quitRequested(); }

// The icon or the pop-up was clicked: the newest unread conversation when there is one
// (what the alert was about), otherwise the window.
void SystemTrayIcon::iconIsActived() {
    card_->hide();
    if (card_->conversationCount() > 0) {
        // A copy: opening the conversation reads it and so empties the card.
        const QString id = card_->entries().first().id;
        emit openConversationRequested(id);
    } else
        emit showWindowRequested();
}

void SystemTrayIcon::onHovered(const QPoint& pos) {
    Q_UNUSED(pos);
    if (card_->conversationCount() > 0 && !card_->isVisible())
        card_->showNear(backend_->geometry());
}

void SystemTrayIcon::onLeftClicked() {
    // Where the tray reports no hovering, the first click on a waiting icon shows the card
    // (the user sees who wrote); a click on the card's row, or a second click, opens.
    if (!backend_->reportsHover() && card_->conversationCount() > 1 && !card_->isVisible()) {
        card_->showNear(backend_->geometry());
        return;
    }
    iconIsActived();
}

void SystemTrayIcon::onRightClicked(const QPoint& pos) {
    card_->hide();
    QPoint at = pos;
    // Kept on screen: the menu opens upwards/leftwards when it would leave it.
    if (QScreen* screen = QGuiApplication::screenAt(pos)) {
        const QRect avail = screen->availableGeometry();
        const QSize size = menu_->sizeHint();
        if (at.x() + size.width() > avail.right()) at.rx() -= size.width();
        if (at.y() + size.height() > avail.bottom()) at.ry() -= size.height();
    }
    menu_->popup(at);
}
