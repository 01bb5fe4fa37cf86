#pragma once

#include <QTextEdit>

namespace qx_output {

// The read-only rich text inside a text bubble: selectable and copyable, never editable,
// and it loads nothing but the emoticon pictures the markup names.
class TextItemEdit : public QTextEdit {
    Q_OBJECT
public:
    explicit TextItemEdit(QWidget* parent = nullptr);

    QVariant loadResource(int type, const QUrl& name) override;

signals:
    void heightChanged(int height);

public slots:
    void onContentsChanged();
};

}  // namespace qx_output
