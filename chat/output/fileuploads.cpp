// Uploading our own files from a conversation page and matching their echoes to the rows.
#include "fileuploads.h"

#include <QDateTime>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QWidget>

#include "configstore.h"
#include "directorystore.h"
#include "filetransfer.h"
#include "manager.h"
#include "messageentry.h"
#include "prompts.h"

namespace qx_output {

namespace {
const QString kFileSummary = QStringLiteral("[文件]");

QString compact(const QJsonObject& o) {
    return QString::fromUtf8(QJsonDocument(o).toJson(QJsonDocument::Compact));
}
}  // namespace

FileUploads::FileUploads(const QString& conversationId, bool isTribe, QWidget* page, AddRow addRow,
                         RowOf rowOf)
    : QObject(page),
      id_(conversationId),
      isTribe_(isTribe),
      page_(page),
      addRow_(std::move(addRow)),
      rowOf_(std::move(rowOf)) {}

void FileUploads::upload(const QString& path) {
    const QString userId = DirectoryStore::instance().selfId();
    BaseMsg::MMessage m;
    // Rows of our own uploads get ids of their own, far from the service's.
    m.msgId = (quint64(1) << 63) + nextLocalId_++;
    m.conversationId = id_;
    m.isTribe = isTribe_;
    m.senderId = userId;
    m.isSelf = true;
    m.time = QDateTime::currentSecsSinceEpoch();
    m.kind = BaseMsg::Custom;
    m.summary = kFileSummary;
    m.mediaPath = path;
    const QString key = QStringLiteral("upload:%1:%2").arg(m.msgId).arg(path);
    m.contentJson = compact({{QStringLiteral("msgType"), int(BaseMsg::CustomFile)},
                             {QStringLiteral("fileName"), QFileInfo(path).fileName()},
                             {QStringLiteral("fileSize"), QString::number(QFileInfo(path).size())},
                             {QStringLiteral("uploadKey"), key}});
    // The transfer is there before the row, whose widget shows its progress.
    FileTransfer* transfer = Manager::instance()->transfer(key);
    const quint64 rowId = m.msgId;
    addRow_(m);
    connect(transfer, &FileTransfer::uploaded, this,
            [this, rowId, key](const QString& fileId, const QString& name, qint64 size) {
                EntryItem* row = rowOf_(rowId);
                const QString json = compact({{QStringLiteral("msgType"), int(BaseMsg::CustomFile)},
                                              {QStringLiteral("fileName"), name},
                                              {QStringLiteral("fileSize"), QString::number(size)},
                                              {QStringLiteral("id"), fileId}});
                if (row) {
                    byFileId_.insert(fileId, row);
                    row->entry.msg.contentJson = json;
                    // From now on the row names the file by its id.
                    Manager::instance()->rekeyTransfer(key, QStringLiteral("up:") + fileId);
                }
                emit Manager::instance()->sendCustemMsgSignal(id_, kFileSummary, json);
            });
    connect(transfer, &FileTransfer::finished, this, [this, transfer](bool ok) {
        if (!ok && !transfer->failure().isEmpty()) Prompts::error(page_, transfer->failure());
    });
    transfer->upload(ConfigStore::instance().url(UrlTable::UrlUpload), userId, path);
}

EntryItem* FileUploads::rowOfEcho(const BaseMsg::MMessage& m) const {
    if (!m.isSelf) return nullptr;
    const QString fileId = QJsonDocument::fromJson(m.contentJson.toUtf8())
                               .object()
                               .value(QStringLiteral("id"))
                               .toVariant()
                               .toString();
    return byFileId_.value(fileId);
}

}  // namespace qx_output
