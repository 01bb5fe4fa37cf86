#include "prompts.h"

#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>
#include <QPushButton>

#include "configstore.h"

namespace qx_output {

namespace {
Prompts::Ask g_ask;
Prompts::Error g_error;
Prompts::SaveName g_saveName;
Prompts::Notice g_notice;
Prompts::OpenName g_openName;
const QString kErrorTitle = QStringLiteral("错误提示");
QString g_lastSaveFolder;
QString g_lastOpenFolder;

bool isFolder(const QString& path) { return !path.isEmpty() && QFileInfo(path).isDir(); }
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
    const QString start =
        QDir::isRelativePath(proposed) ? QDir(saveFolder()).filePath(proposed) : proposed;
    const QString chosen = g_saveName
                               ? g_saveName(parent, start, filter)
                               : QFileDialog::getSaveFileName(parent, QString(), start, filter);
    if (!chosen.isEmpty()) g_lastSaveFolder = QFileInfo(chosen).absolutePath();
    return chosen;
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
    const QString folder = openFolder();
    const QString chosen = g_openName ? g_openName(parent, title, folder, filter)
                                      : QFileDialog::getOpenFileName(parent, title, folder, filter);
    if (!chosen.isEmpty()) g_lastOpenFolder = QFileInfo(chosen).absolutePath();
    return chosen;
}

QString Prompts::saveFolder() {
    if (isFolder(g_lastSaveFolder)) return g_lastSaveFolder;
    const QString downloads = ConfigStore::instance().folderPath(ConfigStore::Download);
    QDir().mkpath(downloads);  // a dialog starting in a missing folder starts anywhere
    return downloads;
}

QString Prompts::openFolder() {
    return isFolder(g_lastOpenFolder) ? g_lastOpenFolder : QDir::homePath();
}

void Prompts::forgetFolders() {
    g_lastSaveFolder.clear();
    g_lastOpenFolder.clear();
}

void Prompts::setNotice(Notice notice) { g_notice = std::move(notice); }
void Prompts::setOpenName(OpenName openName) { g_openName = std::move(openName); }
void Prompts::setAsk(Ask ask) { g_ask = std::move(ask); }
void Prompts::setError(Error error) { g_error = std::move(error); }
void Prompts::setSaveName(SaveName saveName) { g_saveName = std::move(saveName); }

}  // namespace qx_output
