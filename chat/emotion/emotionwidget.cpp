#include "emotionwidget.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QScrollArea>
#include <QStackedWidget>
#include <QVBoxLayout>

#include "emotionbutton.h"
#include "emotionlabel.h"
#include "sdk/wide_text.h"

EmotionWidget::EmotionWidget(QWidget* parent) : QFrame(parent, Qt::Popup) {
    setObjectName(QStringLiteral("emoFrame"));
    setStyleSheet(
        QStringLiteral("QFrame#emoFrame{background-color:#fafafa;border:1px solid "
                       "#dfe8ef;}"));
    stack_ = new QStackedWidget(this);
    stack_->addWidget(area(&defaultGrid_));
    stack_->addWidget(area(&stickerGrid_));
    defaultTab_ = new EmotionButton(
        QStringLiteral(":/resource/Chat/FuncBtnArea/iconfont-biaoqing.png"), this);
    stickerTab_ =
        new EmotionButton(QStringLiteral(":/resource/Chat/FuncBtnArea/quelix_b.png"), this);
    connect(defaultTab_, &QPushButton::clicked, this, &EmotionWidget::showDefultArea);
    connect(stickerTab_, &QPushButton::clicked, this, &EmotionWidget::showBannArea);
    auto* tabs = new QHBoxLayout;
    tabs->setContentsMargins(4, 0, 4, 2);
    tabs->setSpacing(2);
    tabs->addWidget(defaultTab_);
    tabs->addWidget(stickerTab_);
    tabs->addStretch();
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(1, 1, 1, 1);
    layout->setSpacing(0);
    layout->addWidget(stack_);
    layout->addLayout(tabs);
    // Wide enough for a full row of either area, plus a scroll bar.
    resize(qMax(kDefaultColumns * EmotionLabel::kCell, kStickerColumns * kStickerCell) + 24,
           5 * EmotionLabel::kCell + 48);
    showDefultArea();
}

QWidget* EmotionWidget::area(QGridLayout** grid) {
    auto* scroll = new QScrollArea;
    scroll->setStyleSheet(
        QStringLiteral("QScrollArea{border: %1px solid gray;background-color:#fafafa;}").arg(0));
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setWidgetResizable(true);
    auto* cells = new QWidget;
    *grid = new QGridLayout(cells);
    (*grid)->setSpacing(0);
    (*grid)->setContentsMargins(0, 0, 0, 0);
    (*grid)->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    scroll->setWidget(cells);
    return scroll;
}

void EmotionWidget::setEmotions(const std::vector<openim::IMEmotionItem>& items) {
    for (size_t i = 0; i < items.size(); ++i) {
        auto* cell = new EmotionLabel(items[i]);
        connect(cell, qOverload<const openim::IMEmotionItem&>(&EmotionLabel::clicked), this,
                &EmotionWidget::clickedOneSlot);
        defaultGrid_->addWidget(cell, int(i) / kDefaultColumns, int(i) % kDefaultColumns);
    }
}

void EmotionWidget::setStickers(const QStringList& paths) {
    for (int i = 0; i < paths.size(); ++i) {
        auto* cell = new EmotionLabel(paths[i], kStickerCell);
        connect(cell, qOverload<const QString&>(&EmotionLabel::clicked), this,
                [this](const QString& path) {
                    hide();
                    emit clickedOneEmotion(path);
                });
        stickerGrid_->addWidget(cell, i / kStickerColumns, i % kStickerColumns);
    }
}

QStringList EmotionWidget::stickerFiles(const QString& folder) {
    QDir().mkpath(folder);
    // Our stickers go to the user's folder so that each is a file that can be sent; the
    // user may add pictures of their own there.
    QDirIterator shipped(QStringLiteral(":/resource/Chat/Stickers"), {QStringLiteral("*.png")});
    while (shipped.hasNext()) {
        const QString from = shipped.next();
        const QString to = QDir(folder).filePath(QFileInfo(from).fileName());
        if (!QFile::exists(to) && QFile::copy(from, to))
            QFile::setPermissions(to, QFile::ReadOwner | QFile::WriteOwner);
    }
    QStringList files;
    for (const QString& name :
         QDir(folder).entryList({QStringLiteral("*.png")}, QDir::Files, QDir::Name))
        files << QDir(folder).filePath(name);
    return files;
}

int EmotionWidget::currentArea() const { return stack_->currentIndex(); }

void EmotionWidget::clickedOneSlot(const openim::IMEmotionItem& item) {
    hide();
    emit clickedOneEmotion(wide_text::toQ(item.emPngFixedPath),
                           wide_text::toQ(item.emotionShortCut));
}

void EmotionWidget::showDefultArea() {
    stack_->setCurrentIndex(0);
    defaultTab_->setChosen(true);
    stickerTab_->setChosen(false);
}

void EmotionWidget::showBannArea() {
    stack_->setCurrentIndex(1);
    defaultTab_->setChosen(false);
    stickerTab_->setChosen(true);
}

void EmotionWidget::popUpAbove(QWidget* button) {
    const QPoint top = button->mapToGlobal(QPoint(0, 0));
    move(top.x(), top.y() - height() - 2);
    show();
    raise();
}
