#pragma once

#include <QPointer>
#include <QString>
#include <QUrl>
#include <QWidget>

#include <functional>

class QPropertyAnimation;
class QVBoxLayout;

// The frameless panel that slides in beside the main window to show a task or goals page.
// Its one web view is made on first use (which loads the web engine) and thrown away when
// the panel hides, so an idle client keeps no page alive. It is dragged by its body and
// resized from its left edge only, and hides when the main window is activated.
class SidebarView : public QWidget {
    Q_OBJECT
public:
    // `anchor`: the window the panel slides out beside (may be null).
    explicit SidebarView(QWidget* anchor = nullptr);

    // The back end's session for the pages, asked before every load (a new sign-in may have
    // replaced it).
    void setSessionSource(std::function<QString()> source) { session_ = std::move(source); }

    QWidget* webView() const { return view_; }
    const QString& currentUrl() const { return url_; }
    bool zoomApplied() const { return zoomApplied_; }
    void setDiscardOnHide(bool discard) { discardOnHide_ = discard; }
    QPropertyAnimation* animation() const { return animation_; }
    // Where the slide starts: the anchor's right edge, or inside the screen when the anchor
    // leaves no room.
    QPoint anchorPoint() const;

    // An address as loaded: one without "http" is a page of the back end (resolved against
    // the home address); any scheme but http and https is refused (empty result).
    static QString completeUrl(const QString& url, const QString& home);

    virtual bool CanMoveIfHit(const QWidget* ptr) const;
    bool _OnNcHitTest(int x, int y, long* result);

signals:
    // A page finished loading (also when it failed).
    void pageLoaded(bool ok);

public slots:
    void onLoadStarted();
    void onLoadFinished();
    void urlChangedSlot(const QUrl& url);
    void showAnimation(int nCurveType, const QPoint& point);
    void showSidebarView(const QString& url);
    void loadUrlSlot(const QString& url);
    void hideSidebarView();

protected:
    bool nativeEvent(const QByteArray& eventType, void* message, long* result) override;
    void mousePressEvent(QMouseEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    bool ensureView();
    void onLoadFinishedOk(bool ok);

    QPointer<QWidget> anchor_;
    QVBoxLayout* layout_;
    QWidget* close_;
    // Released by the loader when the event loop ends.
    QPointer<QWidget> view_;
    QString url_;
    bool zoomApplied_ = false;
    bool discardOnHide_ = true;
    QPropertyAnimation* animation_;
    std::function<QString()> session_;
};
