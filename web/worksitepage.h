#pragma once

#include <QPointer>
#include <QWidget>

#include <functional>

class QVBoxLayout;

// The work-platform page of the main window: the company's home page, signed in, shown in
// place. The web view (and with it the web engine) is made the first time the page shows.
class WorkSitePage : public QWidget {
    Q_OBJECT
public:
    explicit WorkSitePage(QWidget* parent = nullptr);

    void setSessionSource(std::function<QString()> source) { session_ = std::move(source); }
    QWidget* webView() const { return view_; }

signals:
    void pageLoaded(bool ok);
    // Asked for when no web engine can be loaded.
    void openInBrowser();

protected:
    void showEvent(QShowEvent* event) override;

private:
    void open();

    QVBoxLayout* layout_;
    // Released by the loader when the event loop ends.
    QPointer<QWidget> view_;
    bool tried_ = false;
    std::function<QString()> session_;
};
