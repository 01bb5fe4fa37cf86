// The web engine as a module of its own (quelix-webengine), loaded when the first web page
// opens: Qt WebEngine maps a whole browser (well over 100 MB) that the log-in window and
// the chats never need.
#include <QByteArray>
#include <QNetworkCookie>
#include <QUrl>
#include <QWebEngineCookieStore>
#include <QWebEngineProfile>
#include <QWebEngineView>

#include "trustedpage.h"
#include "webengineapi.h"

namespace {

QWidget* create(QWidget* parent) {
    auto* view = new QWebEngineView(parent);
    view->setPage(new TrustedPage(view));
    return view;
}

void load(QWidget* view, const char* utf8Url) {
    if (auto* web = qobject_cast<QWebEngineView*>(view))
        web->load(QUrl(QString::fromUtf8(utf8Url)));
}

void setZoom(QWidget* view, double factor) {
    if (auto* web = qobject_cast<QWebEngineView*>(view)) web->setZoomFactor(factor);
}

void stop(QWidget* view) {
    if (auto* web = qobject_cast<QWebEngineView*>(view)) web->stop();
}

void setCookie(const char* utf8Origin, const char* utf8Name, const char* utf8Value) {
    const QUrl origin(QString::fromUtf8(utf8Origin));
    QNetworkCookie cookie{QByteArray(utf8Name), QByteArray(utf8Value)};
    cookie.setDomain(origin.host());
    cookie.setPath(QStringLiteral("/"));
    // Pages never read it from script: it is the user's whole sign-in.
    cookie.setHttpOnly(true);
    cookie.setSecure(origin.scheme() == QLatin1String("https"));
    QWebEngineProfile::defaultProfile()->cookieStore()->setCookie(cookie, origin);
}

const WebEngineApi kApi{create, load, setZoom, stop, setCookie};

}  // namespace

extern "C" Q_DECL_EXPORT const WebEngineApi* quelixWebEngineApi() { return &kApi; }
