#pragma once

#include <QListWidget>

// The mention list of a tribe conversation: members by nick, filtered by what follows the
// "@" being typed.
class AtListWidget : public QListWidget {
    Q_OBJECT
public:
    explicit AtListWidget(QWidget* parent = nullptr);

    struct Member {
        QString nick;
        QString userId;
    };
    void setMembers(const QList<Member>& members);
    // Shows the members whose nick contains the filter; returns how many.
    int applyFilter(const QString& filter);
    // Up (-1) or down (+1), wrapping around at both ends.
    void moveCurrent(int step);
    QString currentNick() const;

signals:
    void itemPressedSignal(const QString& nick);

public slots:
    void itemPressedSlots(QListWidgetItem* item);

private:
    QList<Member> members_;
};
