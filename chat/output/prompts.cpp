#include "prompts.h"

#include <QFileDialog>
#include <QMessageBox>
#include <QPushButton>

namespace qx_output {

namespace {
Prompts::Ask g_ask;
Prompts::Error g_error;
Prompts::SaveName g_saveName;
const QString kErrorTitle = QStringLiteral("错误提示");
}  // namespace

bool Prompts::ask(QWidget* parent, const QString& text, const QString& yes, const QString& no) {
    if (g_ask) return g_ask(parent, text, yes, no);
    QMessageBox box(QMessageBox::Question, kErrorTitle, text, QMessageBox::NoButton, parent);
    QPushButton* first = box.addButton(yes, QMessageBox::AcceptRole);
    box.addButton(no, QMessageBox::RejectRole);
    box.exec();
    return box.clickedButton() == first;
}

void Prompts::error(QWidget* parent, const QString& text) {
    if (g_error) return g_error(parent, text);
    QMessageBox box(QMessageBox::Warning, kErrorTitle, text, QMessageBox::NoButton, parent);
    box.addButton(QStringLiteral("确定"), QMessageBox::AcceptRole);
    box.exec();
}

QString Prompts::saveName(QWidget* parent, const QString& proposed, const QString& filter) {
    if (g_saveName) return g_saveName(parent, proposed, filter);
    return QFileDialog::getSaveFileName(parent, QString(), proposed, filter);
}

void Prompts::setAsk(Ask ask) { g_ask = std::move(ask); }
void Prompts::setError(Error error) { g_error = std::move(error); }
void Prompts::setSaveName(SaveName saveName) { g_saveName = std::move(saveName); }

}  // namespace qx_output
