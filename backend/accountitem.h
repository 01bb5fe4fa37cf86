#pragma once

#include <QWidget>

class QLabel;
class QPushButton;

// One remembered account in the log-in window's user-name list, with its delete button.
class AccountItem : public QWidget {
    Q_OBJECT
public:
    explicit AccountItem(const QString& account, QWidget* parent = nullptr);
    const QString& account() const { return account_; }

signals:
    void removeAccount(QString account);
    void showAccount(QString account);

public slots:
    void removeAccountSlot();

protected:
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    QString account_;
    QLabel* name_;
    QPushButton* remove_;
};
