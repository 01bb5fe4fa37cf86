#pragma once

#include <QStringList>
#include <QWidget>

class QLabel;
class QSplitter;
class QVBoxLayout;

// One conversation's page: the message output above the message input. It refuses sends
// that cannot go (off line, a tribe of another company) with a tip, and hands the rest
// to the IM core.
class ConversationContentView : public QWidget {
    Q_OBJECT
public:
    ConversationContentView(const QString& id, bool isTribe, QWidget* parent = nullptr);

    const QString& id() const { return id_; }
    bool isTribe() const { return isTribe_; }

    // The output and input widgets are set by their owners once they exist.
    void setOutput(QWidget* output);
    void setInput(QWidget* input);
    QWidget* output() const { return output_; }
    QWidget* input() const { return input_; }
    // Who (or which tribe) the page is with, shown above the messages, as written.
    void setTitle(const QString& title);
    QString title() const;

    // Shared by every page: the connection state decides whether anything can be sent.
    static void setClientOnline(bool online);
    static bool clientOnline();

    // Whether a message may go now; shows the tip that says why not.
    bool checkSend();
    // Guarded sends; each returns whether the message was handed on.
    bool sendText(const QString& content);
    bool sendMedia(const QString& filePath);
    bool sendCustom(const QString& content, const QString& summary);

    const QStringList& tips() const { return tips_; }

signals:
    void sendTextMsg(const QString& id, const QString& content);
    void sendMediaMsg(const QString& id, const QString& filePath);
    void sendCustomMsg(const QString& id, const QString& content, const QString& summary);
    // A tip line for the output (refused sends, tribe events).
    void tipSignal(const QString& text);

public slots:
    void showTipLabel(const QString& text);
    void startToUploadSlot(const QString& path);
    void setAtTextHiddenSlot(const QString& id, bool isHidden);

private:
    enum class Payload { Message, File };
    bool mayBeSent(Payload payload);

    QString id_;
    bool isTribe_;
    QSplitter* splitter_;
    QLabel* title_;
    QWidget* output_;
    QWidget* input_;
    QStringList tips_;
};
