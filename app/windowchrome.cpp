// The main window's chrome: frame, left column with the page buttons, title strip, page stack.
#include "windowchrome.h"

#include <QButtonGroup>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QMainWindow>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

#include "functionlistview.h"
#include "mainviewdelegate.h"
#include "screenmetrics.h"
#include "winstylebuttons.h"
#include "worksitepage.h"

namespace {
QWidget* placeholderPage(const QString& picture, const QString& text, QWidget* parent) {
    auto* page = new QWidget(parent);
    page->setObjectName(QStringLiteral("placeholderPage"));
    page->setStyleSheet(QStringLiteral("QWidget#placeholderPage{background-color:#fafafa;}"));
    auto* layout = new QVBoxLayout(page);
    layout->addStretch();
    if (!picture.isEmpty()) {
        auto* image = new QLabel(page);
        image->setPixmap(QPixmap(picture));
        image->setAlignment(Qt::AlignCenter);
        layout->addWidget(image);
    }
    auto* label = new QLabel(text, page);
    label->setAlignment(Qt::AlignCenter);
    label->setStyleSheet(QStringLiteral("QLabel{color:#9aa5b1;font-size:%1px;}")
                             .arg(ScreenMetrics::instance().value(ScreenMetrics::FontSizeNormal)));
    layout->addWidget(label);
    layout->addStretch();
    return page;
}
}  // namespace

WindowChrome::WindowChrome(QMainWindow* window) : QObject(window) {
    const ScreenMetrics& m = ScreenMetrics::instance();
    frame_ = new QFrame(window);
    frame_->setStyleSheet(QStringLiteral(".QFrame{border:%1px solid gray;}")
                              .arg(m.value(ScreenMetrics::BorderWidth)));
    auto* outer = new QHBoxLayout(frame_);
    const int border = m.value(ScreenMetrics::BorderWidth);
    outer->setContentsMargins(border, border, border, border);
    outer->setSpacing(0);
    outer->addWidget(buildLeftColumn());

    auto* right = new QWidget(frame_);
    auto* rightLayout = new QVBoxLayout(right);
    rightLayout->setContentsMargins(0, 0, 0, 0);
    rightLayout->setSpacing(0);
    rightLayout->addWidget(buildTitleStrip());
    pages_ = new QStackedWidget(right);
    rightLayout->addWidget(pages_, 1);
    outer->addWidget(right, 1);
    window->setCentralWidget(frame_);
    buildPages();
}

QWidget* WindowChrome::buildLeftColumn() {
    const ScreenMetrics& m = ScreenMetrics::instance();
    leftColumn_ = new QWidget(frame_);
    leftColumn_->setObjectName(QStringLiteral("leftColumn"));
    leftColumn_->setFixedWidth(m.value(ScreenMetrics::LeftColumnWidth));
    leftColumn_->setStyleSheet(QStringLiteral("QWidget#leftColumn{background-color:#243447;}"));

    auto* layout = new QVBoxLayout(leftColumn_);
    layout->setContentsMargins(0, 0, 0, 8);
    layout->setSpacing(6);
    functionList_ = new FunctionListView(leftColumn_);
    layout->addWidget(functionList_);

    pageButtons_ = new QButtonGroup(this);
    pageButtons_->setExclusive(true);
    const struct {
        const char* icon;
        QString tip;
        int page;
    } buttons[] = {
        {"chat", tr("Conversations"), MainViewDelegate::ChatPage},
        {"org", tr("Organization"), MainViewDelegate::OrgPage},
        {"tribe", tr("Tribes"), MainViewDelegate::TribePage},
        {"worksycle", tr("Work circle"), MainViewDelegate::WorkCirclePage},
        {"set", tr("Settings"), MainViewDelegate::SettingPage},
    };
    for (const auto& b : buttons) {
        QAbstractButton* button = addPageButton(QLatin1String(b.icon), b.tip, b.page);
        const int page = b.page;
        connect(button, &QAbstractButton::pressed, this,
                [this, page] { emit pageRequested(page); });
        if (b.page == MainViewDelegate::ChatPage) {
            // The count of unread messages on the chat button, seen from every page.
            chatBadge_ = new QLabel(button);
            chatBadge_->setObjectName(QStringLiteral("chatBadge"));
            chatBadge_->setTextFormat(Qt::PlainText);
            chatBadge_->setAlignment(Qt::AlignCenter);
            chatBadge_->setStyleSheet(QStringLiteral(
                "QLabel#chatBadge{background-color:#f5455c;color:white;border-radius:8px;"
                "font-size:10px;padding:0 3px;}"));
            chatBadge_->setMinimumSize(16, 16);
            chatBadge_->hide();
        }
        // The settings button sits at the bottom of the column, apart from the pages.
        if (b.page == MainViewDelegate::SettingPage) layout->addStretch();
        layout->addWidget(button, 0, Qt::AlignHCenter);
    }
    return leftColumn_;
}

QAbstractButton* WindowChrome::addPageButton(const QString& icon, const QString& tip, int page) {
    const int size = ScreenMetrics::instance().value(ScreenMetrics::PageButtonSize);
    auto* button = new QPushButton(leftColumn_);
    button->setObjectName(icon + QStringLiteral("Button"));
    button->setCheckable(true);
    button->setFixedSize(size, size);
    button->setToolTip(tip);
    button->setFocusPolicy(Qt::NoFocus);
    button->setStyleSheet(
        QStringLiteral("QPushButton{image:url(:/resource/MainWindow/%1_normal.png);border:none;"
                       "border-radius:6px;background:transparent;padding:8px;}"
                       "QPushButton:hover{background-color:rgba(255,255,255,0.08);}"
                       "QPushButton:checked{image:url(:/resource/MainWindow/%1_checked.png);"
                       "background-color:#2d8cf0;}")
            .arg(icon));
    pageButtons_->addButton(button, page);
    return button;
}

QWidget* WindowChrome::buildTitleStrip() {
    const ScreenMetrics& m = ScreenMetrics::instance();
    titleStrip_ = new QWidget(frame_);
    titleStrip_->setObjectName(QStringLiteral("titleStrip"));
    titleStrip_->setFixedHeight(m.value(ScreenMetrics::TitleHeight));
    titleStrip_->setStyleSheet(QStringLiteral("QWidget#titleStrip{background-color:#f5f7fa;}"));
    auto* layout = new QHBoxLayout(titleStrip_);
    layout->setContentsMargins(8, 0, 4, 0);
    layout->addStretch();
    titleButtons_ = new WinStyleButtons(titleStrip_);
    layout->addWidget(titleButtons_);
    return titleStrip_;
}

void WindowChrome::buildPages() {
    // The login, conversation, organisation and tribe views take these places as they
    // are built; until then each page says what will be there.
    pages_->insertWidget(MainViewDelegate::LoginPage,
                         placeholderPage(QStringLiteral(":/resource/app_icon.png"),
                                         tr("Sign in to start chatting."), pages_));
    pages_->insertWidget(MainViewDelegate::ChatPage,
                         placeholderPage(QStringLiteral(":/resource/Chat/default_chat.png"),
                                         QStringLiteral("请选择联系人，开始聊天"), pages_));
    pages_->insertWidget(
        MainViewDelegate::OrgPage,
        placeholderPage(QStringLiteral(":/resource/style/images/iconfont-zuzhijiagou.png"),
                        tr("The organisation appears here once you are signed in."), pages_));
    pages_->insertWidget(
        MainViewDelegate::TribePage,
        placeholderPage(QStringLiteral(":/resource/Chat/tribeIcon_avatar.png"),
                        tr("Your project tribes appear here once you are signed in."), pages_));
    // The company's home page in place; the web engine loads when the page first shows.
    workSite_ = new WorkSitePage(pages_);
    pages_->insertWidget(MainViewDelegate::WorkCirclePage, workSite_);
    pages_->insertWidget(
        MainViewDelegate::SettingPage,
        placeholderPage(QString(), tr("Settings open here once you are signed in."), pages_));
    pages_->setCurrentIndex(MainViewDelegate::LoginPage);
}

void WindowChrome::setPageButtonsEnabled(bool enabled) {
    for (QAbstractButton* b : pageButtons_->buttons()) b->setEnabled(enabled);
}

void WindowChrome::replacePage(int page, QWidget* view) {
    QWidget* placeholder = pages_->widget(page);
    pages_->removeWidget(placeholder);
    placeholder->deleteLater();
    pages_->insertWidget(page, view);
}

void WindowChrome::showPage(int page) {
    if (page < 0 || page >= pages_->count()) return;
    pages_->setCurrentIndex(page);
    if (QAbstractButton* b = pageButtons_->button(page)) b->setChecked(true);
}

void WindowChrome::setUnread(int count) {
    chatBadge_->setText(count > 99 ? QStringLiteral("99+") : QString::number(count));
    chatBadge_->adjustSize();
    const QWidget* button = chatBadge_->parentWidget();
    chatBadge_->move(button->width() - chatBadge_->width(), 0);
    chatBadge_->setVisible(count > 0);
}
