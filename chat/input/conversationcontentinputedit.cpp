#include "conversationcontentinputedit.h"

#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QImageReader>
#include <QKeyEvent>
#include <QMimeData>
#include <QRegularExpression>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextImageFormat>
#include <QUrl>

#include "emotionset.h"
#include "inputdocumentwalker.h"
#include "mlineedit.h"
#include "prompts.h"

namespace {
constexpr int kPictureWidth = 200;  // pictures wider than this show scaled in the edit
bool isEnter(int key) { return key == Qt::Key_Return || key == Qt::Key_Enter; }
}  // namespace

ConversationContentInputEdit::ConversationContentInputEdit(QWidget* parent) : QTextEdit(parent) {
    setObjectName(QStringLiteral("inputEdit"));
    setAcceptRichText(true);
    setFrameShape(QFrame::NoFrame);
    atList_ = new AtListWidget(this);
    atFilter_ = new MLineEdit(atList_, this);
    connect(atList_, &AtListWidget::itemPressedSignal, this,
            &ConversationContentInputEdit::setNikeSlot);
    connect(this, &QTextEdit::textChanged, this, &ConversationContentInputEdit::onTextChanged);
    for (const EmotionSet::Item& item : EmotionSet::instance().items())
        emotions_.insert(item.picture, item.code);
}

void ConversationContentInputEdit::setMentionMembers(const QList<AtListWidget::Member>& members) {
    atList_->setMembers(members);
}

void ConversationContentInputEdit::hideAtListSlot() {
    atList_->hide();
    atFilter_->hide();
}

void ConversationContentInputEdit::placeAtList() {
    // Over the window, just above the cursor, so that it is not cut by the input area.
    QWidget* host = window();
    if (atList_->parentWidget() != host) {
        atList_->setParent(host);
        atFilter_->setParent(host);
    }
    const QSize size(180, qMin(160, 24 * atList_->count() + 4));
    const QPoint at = mapTo(host, cursorRect().topLeft());
    atList_->setGeometry(QRect(QPoint(at.x(), qMax(24, at.y() - size.height())), size));
    atFilter_->setGeometry(atList_->x(), atList_->y() - 22, size.width(), 22);
    atFilter_->show();
    atList_->show();
    atFilter_->raise();
    atList_->raise();
}

void ConversationContentInputEdit::onTextChanged() {
    const QTextCursor c = textCursor();
    const QString left = c.block().text().left(c.positionInBlock());
    const int at = left.lastIndexOf(QLatin1Char('@'));
    const QString filter = at >= 0 ? left.mid(at + 1) : QString();
    const bool typing = at >= 0 && filter.size() <= 20 &&
                        !filter.contains(QRegularExpression(QStringLiteral("\\s")));
    if (!typing) return hideAtListSlot();
    if (atFilter_->text() == filter)
        atList_->applyFilter(filter);
    else
        atFilter_->setText(filter);  // which filters the list
    if (atList_->count() == 0) return hideAtListSlot();
    placeAtList();
}

void ConversationContentInputEdit::setNikeSlot(const QString& nick) {
    hideAtListSlot();
    if (nick.isEmpty()) return;
    QTextCursor c = textCursor();
    const QString left = c.block().text().left(c.positionInBlock());
    const int at = left.lastIndexOf(QLatin1Char('@'));
    if (at >= 0) {
        c.setPosition(c.block().position() + at, QTextCursor::KeepAnchor);
        c.removeSelectedText();
    }
    // The markup ends in " /" and the "/" is taken back at once: what stays is the
    // highlighted name and one plain space, so that what follows is not highlighted.
    c.insertHtml(QStringLiteral("<span style=\"background-color:#FFA54F;color:gray;\">%1</span> /")
                     .arg((QLatin1Char('@') + nick).toHtmlEscaped()));
    c.deletePreviousChar();
    setTextCursor(c);
    hideAtListSlot();
}

void ConversationContentInputEdit::keyEventSlot(QKeyEvent* event) { keyPressEvent(event); }

void ConversationContentInputEdit::keyPressEvent(QKeyEvent* event) {
    const int key = event->key();
    if (isEnter(key) && event->modifiers() == Qt::ControlModifier) {
        QKeyEvent plain(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier);
        QTextEdit::keyPressEvent(&plain);  // a line break
        return;
    }
    if (atList_->isVisible()) {
        if (key == Qt::Key_Up || key == Qt::Key_Down) {
            atList_->moveCurrent(key == Qt::Key_Up ? -1 : 1);
            return;
        }
        if (isEnter(key)) {
            setNikeSlot(atList_->currentNick());
            return;
        }
        if (key == Qt::Key_Escape) {
            hideAtListSlot();
            return;
        }
    }
    if (isEnter(key) && (event->modifiers() & ~Qt::KeypadModifier) == Qt::NoModifier) {
        sendTextContent();
        return;
    }
    QTextEdit::keyPressEvent(event);
}

void ConversationContentInputEdit::addEmotion(const QString& emPngFixedPath,
                                              const QString& emotionShortCut) {
    emotions_.insert(emPngFixedPath, emotionShortCut);
    textCursor().insertHtml(QStringLiteral("<img class='emo' src='%1'  '/>").arg(emPngFixedPath));
    setFocus();
}

bool ConversationContentInputEdit::insertPicture(const QString& path) {
    const QFileInfo info(path);
    if (!info.isFile()) return false;
    if (info.size() >= kMaxPictureBytes) {
        qx_output::Prompts::notice(
            this, QStringLiteral("提示"),
            QStringLiteral("对不起，图片大小超出限额，您可选择以文件形式发送。"),
            QStringLiteral("确定"));
        return false;
    }
    // Put in as an image format rather than as markup, so that any file name (quotes,
    // angle brackets) stays the picture's exact path.
    const QSize size = QImageReader(path).size();
    QTextImageFormat picture;
    picture.setName(path);
    if (size.width() > kPictureWidth) {
        picture.setWidth(kPictureWidth);
        picture.setHeight(size.height() * kPictureWidth / size.width());
    } else if (size.isValid()) {
        picture.setWidth(size.width());
        picture.setHeight(size.height());
    }
    textCursor().insertImage(picture);
    return true;
}

void ConversationContentInputEdit::sendTextContent() {
    hideAtListSlot();
    if (toPlainText().size() > kMaxChars) {
        qx_output::Prompts::notice(this, QStringLiteral("错误提示！"),
                                   QStringLiteral("发送消息内容超长，请分条发送。\n "),
                                   QStringLiteral("关闭"));
        return;
    }
    if (document()->isEmpty()) return;
    if (guard_ && !guard_()) return;
    const QList<InputDocumentWalker::Part> parts = InputDocumentWalker::walk(toHtml(), emotions_);
    clear();
    for (const InputDocumentWalker::Part& part : parts) {
        switch (part.kind) {
            case InputDocumentWalker::Part::Text:
                emit conversationViewKeyEnter(part.value);
                break;
            case InputDocumentWalker::Part::Picture:
                emit SendPicture(part.value);
                break;
            case InputDocumentWalker::Part::File:
                emit filePathSignal(part.value);
                break;
        }
    }
}

bool ConversationContentInputEdit::canInsertFromMimeData(const QMimeData* source) const {
    return source->hasImage() || source->hasUrls() || QTextEdit::canInsertFromMimeData(source);
}

void ConversationContentInputEdit::insertFromMimeData(const QMimeData* source) {
    if (source->hasUrls()) {
        emit filesDropped(source->urls());
        return;
    }
    if (source->hasImage()) {
        const QImage image = qvariant_cast<QImage>(source->imageData());
        if (image.isNull()) return;  // an unreadable clipboard picture is ignored
        const QString folder = pasteFolder_.isEmpty() ? QDir::tempPath() : pasteFolder_;
        QDir().mkpath(folder);
        const QString path = QDir(folder).filePath(
            QStringLiteral("%1_just_paste%2.png")
                .arg(QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMddhhmmss")))
                .arg(++pasted_));
        if (!image.save(path)) {
            qWarning().noquote() << "input: a pasted picture could not be saved to" << path;
            qx_output::Prompts::notice(this, QStringLiteral("提示"),
                                       QStringLiteral("粘贴的图片无法保存，未能发送。"),
                                       QStringLiteral("确定"));
            return;
        }
        // Too big for a picture message: it goes as a file, as a big picture dropped on the
        // input does (with the file limit's own message when even that is too much).
        if (QFileInfo(path).size() >= kMaxPictureBytes)
            emit filesDropped({QUrl::fromLocalFile(path)});
        else
            insertPicture(path);
        return;
    }
    // Text from elsewhere comes in as text: no foreign markup in what we send.
    textCursor().insertText(source->text());
}
