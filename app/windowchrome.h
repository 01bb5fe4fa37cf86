#pragma once

#include <QObject>

class FunctionListView;
class QAbstractButton;
class QButtonGroup;
class QFrame;
class QLabel;
class QMainWindow;
class QStackedWidget;
class QWidget;
class WinStyleButtons;
class WorkSitePage;

// The main window's chrome, built into it: the bordered frame; the left column with the
// signed-in user, a button for each page (settings at its foot) and the count of unread
// messages on the chat button; the title strip with the window buttons; and the page
// stack, where each page says what will be there until its view is built.
class WindowChrome : public QObject {
    Q_OBJECT
public:
    // Builds the chrome as `window`'s central widget.
    explicit WindowChrome(QMainWindow* window);

    QStackedWidget* pages() const { return pages_; }
    QWidget* leftColumn() const { return leftColumn_; }
    QWidget* titleStrip() const { return titleStrip_; }
    WinStyleButtons* titleButtons() const { return titleButtons_; }
    FunctionListView* userView() const { return functionList_; }
    WorkSitePage* workSite() const { return workSite_; }

    // Puts `view` in the place of a page's placeholder.
    void replacePage(int page, QWidget* view);
    // Shows the page and checks its button.
    void showPage(int page);
    void setPageButtonsEnabled(bool enabled);
    // The badge on the chat button: the count, or nothing for none.
    void setUnread(int count);

signals:
    // The user pressed a page's button.
    void pageRequested(int page);

private:
    QWidget* buildLeftColumn();
    QAbstractButton* addPageButton(const QString& icon, const QString& tip, int page);
    QWidget* buildTitleStrip();
    void buildPages();

    QFrame* frame_;
    FunctionListView* functionList_ = nullptr;
    WinStyleButtons* titleButtons_ = nullptr;
    WorkSitePage* workSite_ = nullptr;
    QWidget* titleStrip_ = nullptr;
    QWidget* leftColumn_ = nullptr;
    QStackedWidget* pages_ = nullptr;
    QButtonGroup* pageButtons_ = nullptr;
    QLabel* chatBadge_ = nullptr;
};
