#include "prompts.h"

#include <QFileDialog>
#include <QMessageBox>
#include <QPushButton>

namespace qx_output {

namespace {
Prompts::Ask g_ask;
Prompts::Error g_error;
Prompts::SaveName g_saveName;
Prompts::Notice g_notice;
Prompts::OpenName g_openName;
const QString kErrorTitle = QStringLiteral("错误提示");
}  // namespace

bool Prompts::ask(QWidget* parent, const QString& text, const QString& yes, const QString& no) {
    if (g_ask) return g_ask(parent, text, yes, no);
    QMessageBox box(QMessageBox::Question, kErrorTitle, text, QMessageBox::NoButton, parent);
    box.setTextFormat(Qt::PlainText);  // file names, the server's reasons
    QPushButton* first = box.addButton(yes, QMessageBox::AcceptRole);
    box.addButton(no, QMessageBox::RejectRole);
    box.exec();
    return box.clickedButton() == first;
}

void Prompts::error(QWidget* parent, const QString& text) {
    if (g_error) return g_error(parent, text);
    QMessageBox box(QMessageBox::Warning, kErrorTitle, text, QMessageBox::NoButton, parent);
    box.setTextFormat(Qt::PlainText);
    box.addButton(QStringLiteral("确定"), QMessageBox::AcceptRole);
    box.exec();
}

QString Prompts::saveName(QWidget* parent, const QString& proposed, const QString& filter) {
    if (g_saveName) return g_saveName(parent, proposed, filter);
    return QFileDialog::getSaveFileName(parent, QString(), proposed, filter);
}

void Prompts::notice(QWidget* parent, const QString& title, const QString& text,
                     const QString& button) {
    if (g_notice) return g_notice(parent, title, text, button);
    QMessageBox box(QMessageBox::Warning, title, text, QMessageBox::NoButton, parent);
    box.setTextFormat(Qt::PlainText);
    box.addButton(button, QMessageBox::AcceptRole);
    box.exec();
}

QString Prompts::openName(QWidget* parent, const QString& title, const QString& filter) {
    if (g_openName) return g_openName(parent, title, filter);
    return QFileDialog::getOpenFileName(parent, title, QString(), filter);
}

void Prompts::setNotice(Notice notice) { g_notice = std::move(notice); }
void Prompts::setOpenName(OpenName openName) { g_openName = std::move(openName); }
void Prompts::setAsk(Ask ask) { g_ask = std::move(ask); }
void Prompts::setError(Error error) { g_error = std::move(error); }
void Prompts::setSaveName(SaveName saveName) { g_saveName = std::move(saveName); }

}  // namespace qx_output
