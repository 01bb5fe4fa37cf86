#include "conversationcontentinputview.h"

#include <QAction>
#include <QDragEnterEvent>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QMenu>
#include <QMimeData>
#include <QPushButton>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

#include "configstore.h"
#include "conversationcontentinputedit.h"
#include "conversationcontentview.h"
#include "emotionset.h"
#include "emotionwidget.h"
#include "mainviewdelegate.h"
#include "prompts.h"
#include "sdk/wide_text.h"

namespace {
const QString kButtonStyle = QStringLiteral(
    "QPushButton{image: url(:/resource/Chat/FuncBtnArea/%1.png);border-radius:0px;}"
    "QPushButton:hover{image: url(:/resource/Chat/FuncBtnArea/%1-hover.png);border-radius:0px;}"
    "QPushButton:pressed{image: url(:/resource/Chat/FuncBtnArea/%1-pressed.png);"
    "border-radius:0px;}");
}  // namespace

ConversationContentInputView::ConversationContentInputView(ConversationContentView* page,
                                                           QWidget* parent)
    : QWidget(parent), page_(page) {
    setObjectName(QStringLiteral("inputArea"));
    setAcceptDrops(true);
    edit_ = new ConversationContentInputEdit(this);
    edit_->setPasteFolder(ConfigStore::instance().folderPath(ConfigStore::ScreenShot));
    edit_->setSendGuard([this] { return !page_ || page_->checkSend(); });

    emotionButton_ = toolButton(QStringLiteral("iconfont-biaoqing"), QStringLiteral("发送表情"));
    emotionButton_->setStyleSheet(QStringLiteral(
        "QPushButton{image: url(:/resource/Chat/FuncBtnArea/iconfont-biaoqing.png);"
        "border-radius:0px;}QPushButton:hover{image: "
        "url(:/resource/Chat/FuncBtnArea/iconfont-biaoqing-hover.png);border-radius:0px;}"
        "QPushButton:pressed{image: "
        "url(:/resource/Chat/FuncBtnArea/iconfont-biaoqing-pressed.png);border-radius:0px;}"));
    QPushButton* picture =
        toolButton(QStringLiteral("iconfont-tupian"), QStringLiteral("发送图片"));
    QPushButton* file = toolButton(QStringLiteral("iconfont-wenjian"), QStringLiteral("发送文件"));
    QPushButton* shot = toolButton(QStringLiteral("iconfont-jietu"), QStringLiteral("屏幕截图"));
    auto* shotMenu = new QToolButton(this);
    shotMenu->setToolTip(QStringLiteral("截图"));
    shotMenu->setPopupMode(QToolButton::InstantPopup);
    shotMenu->setAutoRaise(true);
    shotMenu->setArrowType(Qt::DownArrow);
    shotMenu->setFixedSize(14, 24);
    auto* menu = new QMenu(shotMenu);
    hideOnShot_ = menu->addAction(QStringLiteral("截图时隐藏窗口"));
    hideOnShot_->setCheckable(true);
    hideOnShot_->setChecked(ConfigStore::instance().hasUser() &&
                            ConfigStore::instance().userConfig().shotHide);
    connect(hideOnShot_, &QAction::toggled, this, &ConversationContentInputView::setCheckItemIcon);
    shotMenu->setMenu(menu);
    shakeButton_ = toolButton(QStringLiteral("iconfont-doudong"), QStringLiteral("抖动窗口"));
    auto* send = new QPushButton(QStringLiteral("发送"), this);
    send->setObjectName(QStringLiteral("sendButton"));
    send->setCursor(Qt::PointingHandCursor);
    send->setFixedSize(72, 28);
    send->setStyleSheet(
        QStringLiteral("QPushButton{font-family:%1;font-size:%2px;color:#333333;"
                       "background-color:#f2f2f2;border:%3px solid #e8e8e8;border-radius:%4px;}"
                       "QPushButton::hover{background-color:#87d1fe;color:#fff;border:0px solid "
                       "#dfdfdf;}")
            .arg(font().family())
            .arg(13)
            .arg(1)
            .arg(3));

    auto* tools = new QHBoxLayout;
    tools->setContentsMargins(8, 4, 8, 0);
    tools->setSpacing(6);
    for (QWidget* w : std::initializer_list<QWidget*>{emotionButton_, picture, file, shot})
        tools->addWidget(w);
    tools->addWidget(shotMenu);
    tools->addWidget(shakeButton_);
    tools->addStretch();
    // Shown while the conversation's output has an unread mention of us (the output's
    // mention tip drives it through the page).
    auto* mention = new QLabel(QStringLiteral("有人@了你"), this);
    mention->setObjectName(QStringLiteral("atText"));
    mention->setStyleSheet(QStringLiteral("color:#FFA54F;"));
    mention->hide();
    tools->addWidget(mention);
    auto* bottom = new QHBoxLayout;
    bottom->setContentsMargins(8, 0, 12, 8);
    bottom->addStretch();
    bottom->addWidget(send);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(2);
    layout->addLayout(tools);
    layout->addWidget(edit_, 1);
    layout->addLayout(bottom);

    connect(emotionButton_, &QPushButton::clicked, this,
            &ConversationContentInputView::emotionWidgetShow);
    connect(picture, &QPushButton::clicked, this, [this] {
        const QString path =
            qx_output::Prompts::openName(this, QStringLiteral("打开图片"),
                                         QStringLiteral("图片 (*.png *.jpg *.jpeg *.bmp *.gif)"));
        if (!path.isEmpty()) StartSendPicture(path);
    });
    connect(file, &QPushButton::clicked, this, &ConversationContentInputView::conversationUpload);
    connect(shot, &QPushButton::clicked, this,
            &ConversationContentInputView::conversationViewScreenShots);
    connect(shakeButton_, &QPushButton::clicked, this,
            &ConversationContentInputView::conversationViewSendShake);
    connect(send, &QPushButton::clicked, edit_, &ConversationContentInputEdit::sendTextContent);

    connect(edit_, &ConversationContentInputEdit::conversationViewKeyEnter, this,
            &ConversationContentInputView::conversationSendText);
    connect(edit_, &ConversationContentInputEdit::SendPicture, this,
            &ConversationContentInputView::conversationSendPic);
    connect(edit_, &ConversationContentInputEdit::filePathSignal, this,
            &ConversationContentInputView::startToUploadSignal);
    connect(edit_, &ConversationContentInputEdit::filesDropped, this,
            &ConversationContentInputView::takeFiles);
    connect(this, &ConversationContentInputView::showShakeDisableSignal, this,
            [this] { shakeButton_->setEnabled(false); });

    if (page_) {
        connect(this, &ConversationContentInputView::conversationSendTextSignal, page_,
                &ConversationContentView::sendText);
        connect(this, &ConversationContentInputView::conversationSendPicSignal, page_,
                &ConversationContentView::sendMedia);
        connect(this, &ConversationContentInputView::conversationSendCustomSignal, page_,
                &ConversationContentView::sendCustom);
        connect(this, &ConversationContentInputView::startToUploadSignal, page_,
                &ConversationContentView::startToUploadSlot);
    }
}

QPushButton* ConversationContentInputView::toolButton(const QString& icon, const QString& tip) {
    auto* button = new QPushButton(this);
    button->setFixedSize(24, 24);
    button->setCursor(Qt::PointingHandCursor);
    button->setToolTip(tip);
    button->setFocusPolicy(Qt::NoFocus);
    button->setStyleSheet(kButtonStyle.arg(icon));
    return button;
}

EmotionWidget* ConversationContentInputView::emotionWidget() {
    if (!emotions_) {
        emotions_ = new EmotionWidget(this);
        std::vector<openim::IMEmotionItem> items;
        for (const EmotionSet::Item& item : EmotionSet::instance().items())
            items.push_back({wide_text::fromQ(item.picture), wide_text::fromQ(item.code)});
        emotions_->setEmotions(items);
        emotions_->setStickers(
            EmotionWidget::stickerFiles(ConfigStore::instance().folderPath(ConfigStore::Emoji)));
        connect(emotions_,
                qOverload<const QString&, const QString&>(&EmotionWidget::clickedOneEmotion), edit_,
                &ConversationContentInputEdit::addEmotion);
        connect(emotions_, qOverload<const QString&>(&EmotionWidget::clickedOneEmotion), this,
                &ConversationContentInputView::sendBannEmotion);
    }
    return emotions_;
}

void ConversationContentInputView::emotionWidgetShow() {
    emotionWidget()->popUpAbove(emotionButton_);
}

void ConversationContentInputView::conversationSendText(const QString& text) {
    emit conversationSendTextSignal(text);
}

void ConversationContentInputView::conversationSendPic(const QString& path) {
    emit conversationSendPicSignal(path);
}

void ConversationContentInputView::sendBannEmotion(const QString& path) {
    // A sticker goes at once, as a picture; the edit is left as it is.
    emit conversationSendPicSignal(path);
}

void ConversationContentInputView::conversationViewSendShake() {
    if (!shakeEnabled_) {
        if (page_) page_->showTipLabel(QStringLiteral("抖动消息发送过于频繁。"));
        return;
    }
    if (page_ && !page_->checkSend()) return;
    const QJsonObject shake{{QStringLiteral("msgType"), QStringLiteral("shake")}};
    emit conversationSendCustomSignal(
        QString::fromUtf8(QJsonDocument(shake).toJson(QJsonDocument::Compact)),
        QStringLiteral("[抖动窗口]"));
    shakeEnabled_ = false;
    emit showShakeDisableSignal();
    // A precise timer: a coarse one may end the lock a few per cent early.
    QTimer::singleShot(kShakeLockMs, Qt::PreciseTimer, this,
                       &ConversationContentInputView::setSackEnable);
}

void ConversationContentInputView::setSackEnable() {
    shakeEnabled_ = true;
    shakeButton_->setEnabled(true);
}

void ConversationContentInputView::conversationViewScreenShots() {
    MainViewDelegate* shell = MainViewDelegate::instance();
    if (!shell) return;
    if (hideOnShot_->isChecked()) shell->hideMainWindow();
    shell->startScreenshot();
}

void ConversationContentInputView::setCheckItemIcon(bool isChecked) {
    hideOnShot_->setIcon(isChecked ? QIcon(QStringLiteral(":/resource/Chat/FuncBtnArea/check.png"))
                                   : QIcon());
    ConfigStore& store = ConfigStore::instance();
    if (!store.hasUser()) return;
    store.userConfig().shotHide = isChecked;
    store.userConfig().save();
}

void ConversationContentInputView::StartSendPicture(const QString& strFile) {
    if (edit_->insertPicture(strFile)) edit_->setFocus();
}

void ConversationContentInputView::conversationUpload() {
    const QString path = qx_output::Prompts::openName(this, QStringLiteral("打开文件"),
                                                      QStringLiteral("所有文件 (*)"));
    if (!path.isEmpty()) upLoading(path);
}

bool ConversationContentInputView::upLoading(const QString& path) {
    const QFileInfo info(path);
    if (!info.isFile()) {
        qx_output::Prompts::notice(this, QStringLiteral("提示"),
                                   QStringLiteral("请确保拖放的是一个文件。\n %1").arg(path),
                                   QStringLiteral("确定"));
        return false;
    }
    if (info.size() > kMaxFileBytes) {
        qx_output::Prompts::notice(
            this, QStringLiteral("提示"),
            QStringLiteral("对不起，文件：%1大于45M\n暂不支持大于45M的文件传输。\n")
                .arg(info.fileName()),
            QStringLiteral("确定"));
        return false;
    }
    emit startToUploadSignal(path);
    return true;
}

bool ConversationContentInputView::takeFiles(const QList<QUrl>& urls) {
    bool all = true;
    for (const QUrl& url : urls)
        all = upLoading(url.isLocalFile() ? url.toLocalFile() : url.toString()) && all;
    return all;
}

void ConversationContentInputView::dragEnterEvent(QDragEnterEvent* event) {
    if (event->mimeData()->hasUrls()) event->acceptProposedAction();
}

void ConversationContentInputView::dropEvent(QDropEvent* event) {
    takeFiles(event->mimeData()->urls());
    event->acceptProposedAction();
}
