#pragma once

#include <QHash>
#include <QTextEdit>

#include <functional>

#include "atlistwidget.h"

class MLineEdit;

// The message edit: text mixed with emoticons and pictures, the mention list in tribe
// conversations, and the walk that turns the content into messages when it is sent.
class ConversationContentInputEdit : public QTextEdit {
    Q_OBJECT
public:
    static constexpr int kMaxChars = 2000;
    static constexpr qint64 kMaxPictureBytes = 2097152;  // this size and more is refused

    explicit ConversationContentInputEdit(QWidget* parent = nullptr);

    // Tribe members offered after "@"; empty for a one-to-one conversation.
    void setMentionMembers(const QList<AtListWidget::Member>& members);
    AtListWidget* atList() const { return atList_; }
    MLineEdit* atFilter() const { return atFilter_; }
    // Asked before anything is sent; a refusal (off line, say) keeps the content.
    void setSendGuard(std::function<bool()> guard) { guard_ = std::move(guard); }
    // Puts a picture file at the cursor; false (with its box) when it is too large or
    // not a file.
    bool insertPicture(const QString& path);
    // Pasted or dropped content: pictures go in as pictures, files to the input view,
    // text as plain text.
    void insertFromMimeData(const QMimeData* source) override;
    // The folder pasted pictures are saved into.
    void setPasteFolder(const QString& folder) { pasteFolder_ = folder; }

signals:
    void conversationViewKeyEnter(const QString& text);
    void filePathSignal(const QString& path);
    void SendPicture(const QString& path);
    // Files dropped or pasted as files, for the input view to check and upload.
    void filesDropped(const QList<QUrl>& urls);

public slots:
    void hideAtListSlot();
    void onTextChanged();
    void sendTextContent();
    void setNikeSlot(const QString& nick);
    void keyEventSlot(QKeyEvent* event);
    void addEmotion(const QString& emPngFixedPath, const QString& emotionShortCut);

protected:
    void keyPressEvent(QKeyEvent* event) override;
    bool canInsertFromMimeData(const QMimeData* source) const override;

private:
    void placeAtList();

    AtListWidget* atList_;
    MLineEdit* atFilter_;
    QHash<QString, QString> emotions_;  // picture path -> short code
    std::function<bool()> guard_;
    QString pasteFolder_;
    int pasted_ = 0;
};
