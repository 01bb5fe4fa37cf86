#include "sidebarview.h"

#include <QDesktopServices>
#include <QGuiApplication>
#include <QMouseEvent>
#include <QPainter>
#include <QPropertyAnimation>
#include <QPushButton>
#include <QScreen>
#include <QVBoxLayout>
#include <QWindow>

#include "configstore.h"
#include "logger.h"
#include "manager.h"
#include "sidebarhittest.h"
#include "webengineloader.h"
#ifdef Q_OS_WIN
#include "sidebarnative.h"
#endif

namespace {

// The main window's title strip: a rectangle of height 40, plus its one-pixel border.
constexpr int kTitleStripHeight = 40 + 1;
constexpr int kWidth = 560;
constexpr int kSlideMs = 500;

bool sameHost(const QUrl& a, const QUrl& b) {
    return a.scheme() == b.scheme() && a.host() == b.host() && a.port() == b.port();
}

}  // namespace

SidebarView::SidebarView(QWidget* anchor)
    : QWidget(nullptr, Qt::Window | Qt::FramelessWindowHint), anchor_(anchor) {
    setAttribute(Qt::WA_TranslucentBackground);
    setMouseTracking(true);
    setObjectName(QStringLiteral("sidebarView"));
    layout_ = new QVBoxLayout(this);
    layout_->setContentsMargins(0, kTitleStripHeight, 0, 0);
    layout_->setSpacing(0);
    // The strip above the page, level with the main window's title strip, closes the panel.
    auto* close = new QPushButton(QStringLiteral("×"), this);
    close->setObjectName(QStringLiteral("sidebarClose"));
    close->setFixedSize(32, 28);
    close->setCursor(Qt::PointingHandCursor);
    close->setStyleSheet(QStringLiteral(
        "QPushButton{background:transparent;border:none;color:#666666;font-size:18px;}"
        "QPushButton:hover{color:#e04343;}"));
    connect(close, &QPushButton::clicked, this, &SidebarView::hideSidebarView);
    close_ = close;
    animation_ = new QPropertyAnimation(this, "geometry", this);
    connect(animation_, &QPropertyAnimation::finished, this, [this] {
        if (view_) view_->show();
    });

    qx_output::Manager* outputs = qx_output::Manager::instance();
    connect(outputs, &qx_output::Manager::createTaskSignal, this, &SidebarView::loadUrlSlot);
    connect(outputs, &qx_output::Manager::openTaskSignal, this, &SidebarView::showSidebarView);
    connect(outputs, &qx_output::Manager::mainWinActiveSignal, this, &SidebarView::hideSidebarView);
}

QString SidebarView::completeUrl(const QString& url, const QString& home) {
    const QString trimmed = url.trimmed();
    QUrl parsed(trimmed);
    if (!trimmed.startsWith(QLatin1String("http"))) {
        if (!parsed.scheme().isEmpty()) return QString();  // javascript:, file:, data: ...
        // Card addresses are the back end's pages: relative ones are read against its home.
        QUrl base(home);
        if (base.path().isEmpty()) base.setPath(QStringLiteral("/"));
        parsed = base.resolved(parsed);
    }
    if (!parsed.isValid() ||
        (parsed.scheme() != QLatin1String("http") && parsed.scheme() != QLatin1String("https")) ||
        parsed.host().isEmpty())
        return QString();
    return parsed.toString(QUrl::FullyEncoded);
}

QPoint SidebarView::anchorPoint() const {
    QScreen* screen = anchor_ ? anchor_->screen() : QGuiApplication::primaryScreen();
    const QRect avail = screen ? screen->availableGeometry() : QRect(0, 0, 1280, 800);
    if (!anchor_) return QPoint(avail.right() - width(), avail.top());
    const QRect frame = anchor_->frameGeometry();
    QPoint p(frame.right() + 1, frame.top());
    // No room to the right: slide out over the anchor's right part, inside the screen.
    if (p.x() + width() > avail.right() + 1)
        p.setX(qMax(avail.left(), avail.right() + 1 - width()));
    return p;
}

bool SidebarView::ensureView() {
    if (view_) return true;
    const WebEngineApi* api = WebEngineLoader::api();
    if (!api) return false;
    view_ = api->create(this);
    layout_->addWidget(view_);
    zoomApplied_ = false;
    connect(view_, SIGNAL(loadStarted()), this, SLOT(onLoadStarted()));
    connect(view_, SIGNAL(loadFinished(bool)), this, SLOT(onLoadFinished()));
    connect(view_, SIGNAL(loadFinished(bool)), this, SIGNAL(pageLoaded(bool)));
    connect(view_, SIGNAL(urlChanged(QUrl)), this, SLOT(urlChangedSlot(QUrl)));
    return true;
}

void SidebarView::loadUrlSlot(const QString& url) {
    Logger::instance().write(QStringLiteral("SidebarView::loadUrlSlot"));
    const QString home = ConfigStore::instance().url(UrlTable::UrlHome);
    const QString complete = completeUrl(url, home);
    if (complete.isEmpty()) {
        Logger::instance().write(QStringLiteral("sidebar refused address: ") + url.left(200));
        return;
    }
    if (!ensureView()) return;
    const WebEngineApi* api = WebEngineLoader::api();
    // Pages on the back end's host see the user's session, as the client's own requests do.
    const QString session = session_ ? session_() : QString();
    const QUrl target(complete);
    if (!session.isEmpty() && sameHost(target, QUrl(home))) {
        const QString origin = target
                                   .adjusted(QUrl::RemovePath | QUrl::RemoveQuery |
                                             QUrl::RemoveFragment | QUrl::RemoveUserInfo)
                                   .toString();
        api->setCookie(origin.toUtf8().constData(), "QXSESSION", session.toUtf8().constData());
    }
    url_ = complete;
    api->load(view_, complete.toUtf8().constData());
}

void SidebarView::showSidebarView(const QString& url) {
    const QString complete = completeUrl(url, ConfigStore::instance().url(UrlTable::UrlHome));
    if (complete.isEmpty()) {
        Logger::instance().write(QStringLiteral("sidebar refused address: ") + url.left(200));
        return;
    }
    // Another card while a page shows opens that card's page.
    if (!view_ || complete != url_) loadUrlSlot(url);
    if (!view_) return;  // no web engine: nothing to show (logged once)
    const QWidget* anchor = anchor_;
    const int height = anchor ? anchor->frameGeometry().height() : 700;
    resize(kWidth, qMax(400, height));
    showAnimation(int(QEasingCurve::OutQuart), anchorPoint());
}

void SidebarView::showAnimation(int nCurveType, const QPoint& point) {
    QSize full = size();
    if (animation_->state() == QAbstractAnimation::Running) {
        // Mid-slide the panel is narrower than it will be: the running slide knows its size.
        full = animation_->endValue().toRect().size();
        animation_->stop();
    }
    // The page shows once the panel is out: drawing it at every step of the slide would
    // hold up the toolkit's thread, which is also the web engine's, and so the page itself.
    if (view_) view_->hide();
    animation_->setDuration(kSlideMs);
    animation_->setStartValue(QRect(point, QSize(0, full.height())));
    animation_->setEndValue(QRect(point, full));
    animation_->setEasingCurve(QEasingCurve::Type(nCurveType));
    show();
    animation_->start();
}

void SidebarView::hideSidebarView() {
    hide();
    url_.clear();
    if (discardOnHide_ && view_) {
        if (const WebEngineApi* api = WebEngineLoader::api()) api->stop(view_);
        view_->deleteLater();
        view_ = nullptr;
        zoomApplied_ = false;
    }
}

void SidebarView::onLoadStarted() {}

void SidebarView::onLoadFinished() {
    QScreen* screen = QGuiApplication::primaryScreen();
    if (!view_ || !screen) return;
    // The page is laid out for 96 dpi; larger logical dpi scales it as the widgets are.
    if (const WebEngineApi* api = WebEngineLoader::api())
        api->setZoom(view_, screen->logicalDotsPerInchX() / 96.0);
    zoomApplied_ = true;
}

void SidebarView::urlChangedSlot(const QUrl& url) {
    const QString text = url.toString(QUrl::FullyEncoded);
    if (text == url_ || url.isEmpty()) return;
    const QUrl home(ConfigStore::instance().url(UrlTable::UrlHome));
    if (sameHost(url, home) || url.scheme() == QLatin1String("about")) {
        // Following the page's own links and forms: this is now the page shown.
        url_ = text;
        return;
    }
    // A link away from the work site opens in the user's browser; the sidebar stays on the
    // task it was opened for.
    if (url.scheme() == QLatin1String("http") || url.scheme() == QLatin1String("https"))
        QDesktopServices::openUrl(url);
    else
        Logger::instance().write(QStringLiteral("sidebar refused navigation to ") + text.left(200));
    const QString back = url_;
    url_.clear();
    if (!back.isEmpty()) loadUrlSlot(back);
}

bool SidebarView::CanMoveIfHit(const QWidget* ptr) const {
    // The page and the buttons take their own presses; anything else drags the panel.
    for (const QWidget* w = ptr; w && w != this; w = w->parentWidget())
        if (w == view_ || qobject_cast<const QAbstractButton*>(w)) return false;
    return true;
}

void SidebarView::paintEvent(QPaintEvent*) {
    // The window is translucent (its edges may be shaped by the system), so the panel
    // paints its own background: the title strip's colour, and a border.
    QPainter painter(this);
    painter.fillRect(rect(), QColor(0xf5, 0xf7, 0xfa));
    painter.setPen(QColor(0xd9, 0xd9, 0xd9));
    painter.drawRect(rect().adjusted(0, 0, -1, -1));
}

void SidebarView::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    close_->move(width() - close_->width() - 6, (kTitleStripHeight - close_->height()) / 2);
    close_->raise();
}

bool SidebarView::_OnNcHitTest(int x, int y, long* result) {
    const QWidget* child = childAt(x, y);
    switch (SidebarHitTest::hit(QPoint(x, y), size(), child && !CanMoveIfHit(child))) {
        case SidebarHitTest::NotHandled:
            return false;
        case SidebarHitTest::Caption:
            *result = 2;  // the caption: dragged by the body
            return true;
        case SidebarHitTest::Left:
            *result = 10;  // the left border
            return true;
        case SidebarHitTest::Nothing:
            *result = 0;
            return true;
    }
    return false;
}

bool SidebarView::nativeEvent(const QByteArray& eventType, void* message, long* result) {
#ifdef Q_OS_WIN
    int x = 0;
    int y = 0;
    const qreal ratio = devicePixelRatioF();
    const QPoint frame = frameGeometry().topLeft() * ratio;
    if (sidebarnative::hitTestPoint(message, frame.x(), frame.y(), &x, &y) &&
        _OnNcHitTest(int(x / ratio), int(y / ratio), result))
        return true;
#endif
    return QWidget::nativeEvent(eventType, message, result);
}

void SidebarView::mousePressEvent(QMouseEvent* event) {
#ifndef Q_OS_WIN
    // Elsewhere the window system moves and resizes the panel on request, with the same
    // areas as the hit test on Windows.
    QWindow* window = windowHandle();
    if (event->button() == Qt::LeftButton && window) {
        long hit = 0;
        if (_OnNcHitTest(event->pos().x(), event->pos().y(), &hit)) {
            if (hit == 2) window->startSystemMove();
            if (hit == 10) window->startSystemResize(Qt::LeftEdge);
            event->accept();
            return;
        }
    }
#endif
    QWidget::mousePressEvent(event);
}
