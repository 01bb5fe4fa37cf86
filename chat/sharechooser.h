#pragma once

#include <QDialog>
#include <QPair>
#include <QVector>

class ColleageNameSearchEdit;
class QListWidget;
class QPushButton;

// Asks where to share a colleague's card: one of the recent conversations, or any
// colleague found by name.
class ShareChooser : public QDialog {
    Q_OBJECT
public:
    using Choice = QPair<QString, QString>;  // conversation id, name

    ShareChooser(const QString& sharedName, const QVector<Choice>& recent,
                 QWidget* parent = nullptr);
    const QString& chosenId() const { return chosen_; }
    QListWidget* recentList() const { return list_; }
    ColleageNameSearchEdit* searchEdit() const { return search_; }

private:
    void choose(const QString& id);

    QString chosen_;
    ColleageNameSearchEdit* search_;
    QListWidget* list_;
    QPushButton* ok_;
};
