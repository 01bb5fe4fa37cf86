#pragma once

#include <QWidget>

class ConversationContentInputEdit;
class ConversationContentView;
class EmotionWidget;
class QAction;
class QPushButton;

// The lower half of a conversation page: the tool row (emoticons, picture, file,
// screenshot, shake), the message edit and the send button. Everything it sends goes
// through the page, whose guards (off line, another company's tribe) apply.
class ConversationContentInputView : public QWidget {
    Q_OBJECT
public:
    static constexpr qint64 kMaxFileBytes = 45LL * 1024 * 1024;
    static constexpr int kShakeLockMs = 5000;

    explicit ConversationContentInputView(ConversationContentView* page, QWidget* parent = nullptr);

    ConversationContentInputEdit* edit() const { return edit_; }
    EmotionWidget* emotionWidget();
    bool shakeEnabled() const { return shakeEnabled_; }
    QAction* hideOnShotAction() const { return hideOnShot_; }
    // Checks dropped or chosen files and uploads the good ones; true when all were good.
    bool takeFiles(const QList<QUrl>& urls);

signals:
    void conversationSendTextSignal(const QString& text);
    void conversationSendPicSignal(const QString& path);
    void conversationSendCustomSignal(const QString& content, const QString& summary);
    void showShakeDisableSignal();
    void startToUploadSignal(const QString& path);

public slots:
    void conversationSendText(const QString& text);
    void conversationSendPic(const QString& path);
    void conversationViewSendShake();
    void conversationViewScreenShots();
    void conversationUpload();
    void emotionWidgetShow();
    // Uploads a file after checking it is one and not too large.
    bool upLoading(const QString& path);
    void StartSendPicture(const QString& strFile);
    void setSackEnable();
    void sendBannEmotion(const QString& path);
    void setCheckItemIcon(bool isChecked);

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    QPushButton* toolButton(const QString& icon, const QString& tip);

    ConversationContentView* page_;
    ConversationContentInputEdit* edit_;
    EmotionWidget* emotions_ = nullptr;
    QPushButton* emotionButton_;
    QPushButton* shakeButton_;
    QAction* hideOnShot_;
    bool shakeEnabled_ = true;
};
