#pragma once

#include <QFrame>

class QLabel;

namespace qx_output {

// A colleague's card, shown over the output when an avatar is clicked: picture, name,
// department, and a button that opens a conversation with them.
class InfoCard : public QFrame {
    Q_OBJECT
public:
    explicit InfoCard(QWidget* parent = nullptr);
    void setUser(const QString& userId);
    const QString& userId() const { return userId_; }
    QString nameText() const;

signals:
    void inforCardChatSignal(const QString& userId);

private:
    QString userId_;
    QLabel* avatar_;
    QLabel* name_;
    QLabel* dept_;
};

}  // namespace qx_output
