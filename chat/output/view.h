#pragma once

#include <QDateTime>
#include <QHash>
#include <QPointer>
#include <QWidget>

#include <memory>

#include "basemsg.h"
#include "pictureactions.h"
#include "roworder.h"
#include "showpicturewidget.h"

class QLabel;
class QListWidget;
class QPushButton;

namespace qx_output {

class EntryItem;
class FileUploads;
class InfoCard;
class ListWidget;
class RowMeasurer;

struct MessageEntry;

// One conversation's message output: the rows of its messages, each filed by its kind and
// drawn by the widget its kind calls for, the disconnect label, the mention tip and the
// colleague card. Where rows go, their sizes, uploads and the picture menu are the work of
// RowOrder, RowMeasurer, FileUploads and PictureActions.
class View : public QWidget {
    Q_OBJECT
public:
    static constexpr qint64 kSeparatorSeconds = RowOrder::kSeparatorSeconds;

    View(const QString& conversationId, bool isTribe, QWidget* parent = nullptr);

    const QString& conversationId() const { return id_; }
    // Files a message by its kind; duplicates (a message shown already) are dropped.
    void addMessage(const BaseMsg::MMessage& msg);
    // `msg`, already shown, was not sent: a row after it says why and offers to send it
    // again (Manager::resendRequested).
    void addSendFailure(const BaseMsg::MMessage& msg, const QString& reason);
    // A received picture or file is on disk now (or failed: empty path).
    bool mediaReady(quint64 msgId, const QString& path);
    // Shows our own file while it uploads; sends the file message once it is up.
    void uploadFile(const QString& path);
    // Adds a separator before a message of time `t` when it is due; true when added.
    bool showChatMsgTime(qint64 t);
    void showDisconnectLabel();

    ListWidget* listWidget() const { return list_; }
    int messageCount() const { return msgIds_.size(); }
    QPushButton* atTip() const { return atTip_; }
    InfoCard* infoCard() const { return infoCard_; }
    ShowPictureWidget* pictureWindow() const { return picture_; }
    QLabel* disconnectLabel() const { return disconnect_; }

    // The default name proposed when saving a picture: the local time, fourteen digits.
    static QString pictureSaveName(const QDateTime& now = QDateTime::currentDateTime()) {
        return PictureActions::saveName(now);
    }

signals:
    void talkToSignal(const QString& userId);
    void memberViewSignal(bool isShow);

public slots:
    void addTipMsg(BaseMsg::MMessage msg);
    void addTextMsg(BaseMsg::MMessage msg);
    void addMediaMsg(BaseMsg::MMessage msg);
    void addTaskMsg(BaseMsg::MMessage msg);
    void addTabelMsg(BaseMsg::MMessage msg);
    void addFileMsg(BaseMsg::MMessage msg);
    void showPictureSlot(const QString& path);
    void setHistoryTipSlot(int index);
    QListWidget* getListWidget();
    void showMemberView(bool isShow);
    void playmediaSlot();
    void showShareOfPersonal(const QString& userId);
    void hideDisconnectLabelSlot();
    void showPictureMenuSlot(const QString& path);
    void copyPic(const QString& path);
    bool savePic(const QString& path);
    void onTalkToSlot(const QString& userId);
    void showInfoCardSlot(const QString& userId);
    void hideInfoCardSlot();
    void setAtTipHiddenSlot(bool isHidden);
    bool getAtHiddenStatus() const;
    void atTipClickedSlot();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void showEvent(QShowEvent* event) override;

private:
    void add(MessageEntry entry);
    QWidget* createItem(EntryItem* item);

    QString id_;
    bool isTribe_;
    QWidget* background_;
    ListWidget* list_;
    QLabel* disconnect_;
    QPushButton* atTip_;
    InfoCard* infoCard_;
    QPointer<ShowPictureWidget> picture_;
    QHash<quint64, EntryItem*> msgIds_;
    EntryItem* mentionRow_ = nullptr;
    RowMeasurer* measurer_;
    std::unique_ptr<RowOrder> order_;
    FileUploads* uploads_;
    PictureActions pictures_;
};

}  // namespace qx_output
