#include "filemsgitem.h"

#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QUrl>

#include <memory>

#include "configstore.h"
#include "filetransfer.h"
#include "manager.h"
#include "plaintext.h"
#include "prompts.h"
#include "uifont.h"

namespace qx_output {

namespace {
const QString kButtonStyle = QStringLiteral(
    "QPushButton{border:0px;image:url(:/resource/style/images/%1.png);}"
    "QPushButton:hover{background-color:#e6f2fb;}");
const QString kLinkStyle = QStringLiteral(
    "QPushButton{background-color:transparent;color:#1589d3;border:0px groove gray;}"
    "QPushButton:hover{color: #23527c;}");
}  // namespace

QString FileMsgItem::transferKey(const MessageEntry& e) {
    const QJsonObject o = QJsonDocument::fromJson(e.msg.contentJson.toUtf8()).object();
    const QString id = o.value(QStringLiteral("id")).toVariant().toString();
    // Our own file while it uploads: the transfer the view started for it.
    const QString upload = o.value(QStringLiteral("uploadKey")).toString();
    if (id.isEmpty() && !upload.isEmpty()) return upload;
    // Our upload and a download of the same file are different transfers.
    if (!id.isEmpty()) return (e.msg.isSelf ? QStringLiteral("up:") : QStringLiteral("down:")) + id;
    return QStringLiteral("local:") + e.msg.mediaPath;
}

QString FileMsgItem::iconStyle(const QString& fileName) {
    static const QStringList known = {
        QStringLiteral("doc"),  QStringLiteral("docx"), QStringLiteral("xls"),
        QStringLiteral("xlsx"), QStringLiteral("ppt"),  QStringLiteral("pptx"),
        QStringLiteral("pdf"),  QStringLiteral("txt"),  QStringLiteral("zip"),
        QStringLiteral("rar"),  QStringLiteral("7z"),   QStringLiteral("jpg"),
        QStringLiteral("png"),  QStringLiteral("gif"),  QStringLiteral("mp3"),
        QStringLiteral("mp4"),  QStringLiteral("exe")};
    const QString ext = QFileInfo(fileName).suffix().toLower();
    const QString icon = known.contains(ext) ? ext : QStringLiteral("wenjianicon-copy");
    return QStringLiteral(
               "QLabel{image: url(:/resource/style/images/%1.png);border-radius:0px;border:0px "
               "groove gray;}")
        .arg(icon);
}

QString FileMsgItem::sizeText(qint64 bytes) {
    if (bytes < 1024) return QStringLiteral("%1 B").arg(bytes);
    if (bytes < 1024 * 1024) return QStringLiteral("%1 KB").arg(bytes / 1024.0, 0, 'f', 1);
    return QStringLiteral("%1 MB").arg(bytes / (1024.0 * 1024.0), 0, 'f', 1);
}

FileMsgItem::FileMsgItem(const MessageEntry& e, QWidget* parent) : BaseItem(e, parent) {
    const QJsonObject o = QJsonDocument::fromJson(e.msg.contentJson.toUtf8()).object();
    fileId_ = o.value(QStringLiteral("id")).toVariant().toString();
    fileName_ = o.value(QStringLiteral("fileName")).toString();
    fileSize_ = o.value(QStringLiteral("fileSize")).toVariant().toLongLong();
    if (fileName_.isEmpty())
        fileName_ = e.msg.summary.isEmpty() || e.msg.summary == QStringLiteral("[文件]")
                        ? QFileInfo(e.msg.mediaPath).fileName()
                        : e.msg.summary;
    if (fileSize_ == 0 && !e.msg.mediaPath.isEmpty()) fileSize_ = QFileInfo(e.msg.mediaPath).size();

    transfer_ = Manager::instance()->transfer(transferKey(e));
    if (transfer_->state() == FileTransfer::Idle && !e.msg.mediaPath.isEmpty() &&
        QFileInfo::exists(e.msg.mediaPath)) {
        // A file that is here already: ours, or one the IM service delivered.
        transfer_->setLocalPath(e.msg.mediaPath);
        transfer_->setState(e.msg.isSelf && !fileId_.isEmpty() ? FileTransfer::Uploaded
                                                               : FileTransfer::Downloaded);
    }

    icon_ = new QLabel(this);
    icon_->setStyleSheet(iconStyle(fileName_));
    name_ = new QLabel(this);
    name_->setTextFormat(Qt::PlainText);
    name_->setText(fontMetrics().elidedText(fileName_, Qt::ElideMiddle, 150));
    name_->setToolTip(plaintext::toolTip(fileName_));
    status_ = new QLabel(this);
    status_->setTextFormat(Qt::PlainText);
    status_->setStyleSheet(UiFont::scaled(QStringLiteral("QLabel{color:#888888;font-size:12px;}")));
    progress_ = new QProgressBar(this);
    progress_->setTextVisible(false);
    progress_->setRange(0, 100);
    progress_->setStyleSheet(
        QStringLiteral("QProgressBar {border: 0px solid gray;border-radius: 2px;text-align: none;"
                       "background-color: #a6a8a8;}QProgressBar::chunk {background-color: #53B353;"
                       "border-radius: 2px;width: 10px;}"));
    action_ = new QPushButton(this);
    action_->setCursor(Qt::PointingHandCursor);
    cancel_ = new QPushButton(this);
    cancel_->setCursor(Qt::PointingHandCursor);
    cancel_->setStyleSheet(kButtonStyle.arg(QStringLiteral("delete")));
    cancel_->setToolTip(QStringLiteral("取消"));
    folder_ = new QPushButton(QStringLiteral("打开文件夹"), this);
    folder_->setStyleSheet(kLinkStyle);
    folder_->setCursor(Qt::PointingHandCursor);
    connect(action_, &QPushButton::clicked, this, &FileMsgItem::operationOfLoad);
    connect(cancel_, &QPushButton::clicked, this, [this] {
        if (transfer_ && transfer_->state() == FileTransfer::Uploading)
            cancelUpLoadSlot();
        else
            cancelDownLoadSlot();
    });
    connect(folder_, &QPushButton::clicked, this, &FileMsgItem::openFolder);
    connect(transfer_, &FileTransfer::changed, this, &FileMsgItem::refresh);
    refresh();
}

QString FileMsgItem::statusText() const { return status_->text(); }

void FileMsgItem::refresh() {
    if (!transfer_) return;
    const FileTransfer::State state = transfer_->state();
    QString status = sizeText(fileSize_);
    switch (state) {
        case FileTransfer::Uploading:
            status = QStringLiteral("正在上传");
            break;
        case FileTransfer::Downloading:
            status = QStringLiteral("正在下载");
            break;
        case FileTransfer::Uploaded:
            status = QStringLiteral("上传完成");
            break;
        case FileTransfer::Downloaded:
            status = QStringLiteral("下载完成");
            break;
        case FileTransfer::UploadFailed:
            status = QStringLiteral("上传失败");
            break;
        case FileTransfer::DownloadFailed:
            status = QStringLiteral("下载失败");
            break;
        case FileTransfer::Idle:
            break;
    }
    status_->setText(status);
    progress_->setVisible(transfer_->busy());
    progress_->setValue(transfer_->percent());
    cancel_->setVisible(transfer_->busy());
    const bool here = state == FileTransfer::Downloaded || state == FileTransfer::Uploaded;
    folder_->setVisible(here);
    if (here) {
        action_->setText(QStringLiteral("打开"));
        action_->setStyleSheet(kLinkStyle);
        action_->setToolTip(QString());
    } else {
        action_->setText(QString());
        action_->setStyleSheet(kButtonStyle.arg(QStringLiteral("download")));
        action_->setToolTip(QStringLiteral("下载"));
    }
    // Our own upload that failed cannot be fetched back from the server.
    action_->setVisible(!transfer_->busy() && !(isSelf() && fileId_.isEmpty() && !here));
    placeChildren();
}

void FileMsgItem::resizeEvent(QResizeEvent* event) {
    BaseItem::resizeEvent(event);
    placeChildren();
}

void FileMsgItem::placeChildren() {
    const QRect r = contentRect();
    icon_->setGeometry(r.x(), r.y() + 4, 40, 40);
    name_->setGeometry(r.x() + 48, r.y(), r.width() - 48, 20);
    status_->setGeometry(r.x() + 48, r.y() + 22, r.width() - 48 - 28, 18);
    progress_->setGeometry(r.x() + 48, r.y() + 44, r.width() - 48 - 28, 6);
    cancel_->setGeometry(r.right() - 22, r.y() + 36, 20, 20);
    if (action_->text().isEmpty()) {
        action_->setGeometry(r.right() - 22, r.y() + 22, 22, 22);  // the download arrow
    } else {
        action_->setGeometry(r.right() - 120, r.bottom() - 20, 36, 20);  // "打开"
    }
    folder_->setGeometry(r.right() - 76, r.bottom() - 20, 76, 20);
}

void FileMsgItem::operationOfLoad() {
    if (!transfer_ || transfer_->busy()) return;
    const FileTransfer::State state = transfer_->state();
    if (state == FileTransfer::Downloaded || state == FileTransfer::Uploaded) {
        openLocal(false);
        return;
    }
    if (fileId_.isEmpty()) return;
    const QString folder = ConfigStore::instance().folderPath(ConfigStore::Download);
    const QString target = FileTransfer::targetPath(folder, fileName_);
    if (QFileInfo::exists(target) &&
        !Prompts::ask(
            this, QStringLiteral("文件：%1 已存在。您要替换吗？").arg(QFileInfo(target).fileName()),
            QStringLiteral("替换"), QStringLiteral("取消")))
        return;
    const QString base = ConfigStore::instance().url(UrlTable::UrlDownload);
    const QString url = base.endsWith(QLatin1Char('/')) ? base + fileId_ : base + '/' + fileId_;
    FileTransfer* transfer = transfer_;
    // One error box per failure, from this row while it is still showing.
    auto once = std::make_shared<QMetaObject::Connection>();
    *once = connect(transfer, &FileTransfer::finished, this, [this, transfer, once](bool ok) {
        QObject::disconnect(*once);
        if (!ok && !transfer->failure().isEmpty()) Prompts::error(this, transfer->failure());
    });
    transfer->download(url, target);
}

void FileMsgItem::cancelUpLoadSlot() {
    if (transfer_ && transfer_->state() == FileTransfer::Uploading) transfer_->cancel();
}

void FileMsgItem::cancelDownLoadSlot() {
    if (transfer_ && transfer_->state() == FileTransfer::Downloading) transfer_->cancel();
}

void FileMsgItem::openFolder() { openLocal(true); }

bool FileMsgItem::openLocal(bool folder) {
    const QString path = transfer_ ? transfer_->localPath() : QString();
    if (path.isEmpty() || !QFileInfo::exists(path)) {
        Prompts::error(this, QStringLiteral("无法打开，文件可能已被删除或移出下载目录。"));
        return false;
    }
#ifdef Q_OS_WIN
    if (folder)
        return QProcess::startDetached(
            QStringLiteral("explorer.exe"),
            {QStringLiteral("/select,") + QDir::toNativeSeparators(path)});
#endif
    const QString target = folder ? QFileInfo(path).absolutePath() : path;
    return QDesktopServices::openUrl(QUrl::fromLocalFile(target));
}

}  // namespace qx_output
