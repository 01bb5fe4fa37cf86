#pragma once

#include <QWidget>

class QLabel;

namespace qx_output {

// A centred grey line: time separators, tribe events, shakes, refused sends.
class TipMsgItem : public QWidget {
    Q_OBJECT
public:
    explicit TipMsgItem(const QString& text, QWidget* parent = nullptr);
    QString text() const;

private:
    QLabel* label_;
};

}  // namespace qx_output
