#pragma once

#include <QIcon>
#include <QObject>
#include <QTimer>

#include <functional>

class MessageLabel;
class TrayBackend;
class TrayMenu;
class UnreadMsgsCard;

// The client's icon in the notification area: online or grey by sign-in state, blinking
// every 400 ms while unread messages wait and stopping by itself once they are read; the
// new-message sound, the hover card of unread conversations, the pop-up and the menu.
// Which alerts are given follows the user's "Popup", "TrayShining" and "Sound" flags.
class SystemTrayIcon : public QObject {
    Q_OBJECT
public:
    struct Alerts {
        bool popup = false;
        bool shining = false;
        bool sound = false;
    };
    static constexpr int kBlinkMs = 400;

    // Takes the backend (parented to this).
    explicit SystemTrayIcon(TrayBackend* backend, QObject* parent = nullptr);
    ~SystemTrayIcon() override;

    // Where the alert flags come from; the signed-in user's settings by default.
    void setAlertSource(std::function<Alerts()> source) { alerts_ = std::move(source); }
    // How the sound is played; the program's MSG.wav by default. Tests count calls.
    void setSoundPlayer(std::function<void()> player) { play_ = std::move(player); }

    // A conversation's unread count rose to `count`, as the talk list reports it.
    void newMessage(const QString& id, const QString& name, const QString& summary,
                    const QString& avatar, int count);
    // The talk list's total changed: conversations read since are dropped from the card
    // (countOf gives a conversation's unread count now).
    void unreadChanged(int total, const std::function<int(const QString&)>& countOf);
    void setOnline(bool online);
    bool isOnline() const { return online_; }
    void show();
    // At exit: the icon leaves the notification area.
    void remove();

    bool isBlinking() const { return blink_.isActive(); }
    int blinkPhase() const { return phase_; }
    int blinkInterval() const { return blink_.interval(); }
    // The picture currently applied, for tests: 0 normal, 1 the blank blink phase.
    int appliedPicture() const { return applied_; }
    UnreadMsgsCard* card() const { return card_; }
    TrayMenu* menu() const { return menu_; }
    MessageLabel* popup() const { return popup_; }
    TrayBackend* backend() const { return backend_; }

signals:
    void showWindowRequested();
    void openConversationRequested(const QString& id);
    void quitRequested();
    void ignoreAllRequested();
    // A menu toggle changed (number as in TrayMenu, enabled is the alert's new state).
    void alertToggled(int number, bool enabled);

public slots:
    void iconChanged();
    void stopBlinking();
    void unreadItemClickedSlot(const QString& id, const QString& name);
    void thisShowSlot(bool);
    void appQuitSlot(bool);
    void iconIsActived();

private:
    void apply(int picture);
    void onHovered(const QPoint& pos);
    void onLeftClicked();
    void onRightClicked(const QPoint& pos);

    TrayBackend* backend_;
    UnreadMsgsCard* card_;
    TrayMenu* menu_;
    MessageLabel* popup_;
    QTimer blink_;
    int phase_ = 0;
    int applied_ = -1;
    bool online_ = false;
    QIcon normal_;
    QIcon gray_;
    QIcon blank_;
    std::function<Alerts()> alerts_;
    std::function<void()> play_;
};
