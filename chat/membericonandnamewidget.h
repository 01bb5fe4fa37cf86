#pragma once

#include <QWidget>

class QLabel;

// One member row of a tribe's member list: avatar and name. The list keeps only as many
// of these as fit on screen and hands them new members as it scrolls.
class MemberIconAndNameWidget : public QWidget {
    Q_OBJECT
public:
    explicit MemberIconAndNameWidget(QWidget* parent = nullptr);

    void setMember(const QString& userId, const QString& name, const QPixmap& avatar, bool online,
                   bool owner);
    const QString& userId() const { return userId_; }
    QString name() const;

signals:
    void enterSignal(const QString& userId);
    void leaveSignal(const QString& userId);
    void clicked(const QString& userId);
    void doubleClicked(const QString& userId);

protected:
    void enterEvent(QEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;

private:
    QString userId_;
    QLabel* avatar_;
    QLabel* name_;
    QLabel* mark_;
};
