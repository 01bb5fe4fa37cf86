#pragma once

#include <QWidget>

class QLabel;

namespace qx_output {

// A centred grey line: time separators, tribe events, shakes, refused sends.
class TipMsgItem : public QWidget {
    Q_OBJECT
public:
    explicit TipMsgItem(const QString& text, QWidget* parent = nullptr);
    // A tip with one action after its text ("send again"): `activated` when it is clicked.
    TipMsgItem(const QString& text, const QString& action, QWidget* parent = nullptr);
    QString text() const;

signals:
    void activated();

private:
    QLabel* label_;
};

}  // namespace qx_output
