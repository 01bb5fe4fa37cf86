#include "worksitepage.h"

#include <QLabel>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

#include "configstore.h"
#include "webengineloader.h"

WorkSitePage::WorkSitePage(QWidget* parent) : QWidget(parent) {
    setObjectName(QStringLiteral("workSitePage"));
    layout_ = new QVBoxLayout(this);
    layout_->setContentsMargins(0, 0, 0, 0);
}

void WorkSitePage::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    if (!tried_) open();
}

void WorkSitePage::open() {
    tried_ = true;
    const QUrl home(ConfigStore::instance().url(UrlTable::UrlHome));
    const WebEngineApi* api = WebEngineLoader::api();
    if (!api || !home.isValid() || home.host().isEmpty()) {
        // Without a web engine the page still leads somewhere.
        auto* text = new QLabel(QStringLiteral("工作台无法在此显示。"), this);
        text->setAlignment(Qt::AlignCenter);
        auto* button = new QPushButton(QStringLiteral("在浏览器中打开"), this);
        button->setObjectName(QStringLiteral("openWorkSite"));
        connect(button, &QPushButton::clicked, this, &WorkSitePage::openInBrowser);
        layout_->addStretch();
        layout_->addWidget(text);
        layout_->addWidget(button, 0, Qt::AlignHCenter);
        layout_->addStretch();
        return;
    }
    view_ = api->create(this);
    layout_->addWidget(view_);
    connect(view_, SIGNAL(loadFinished(bool)), this, SIGNAL(pageLoaded(bool)));
    const QString session = session_ ? session_() : QString();
    if (!session.isEmpty()) {
        const QString origin =
            home.adjusted(QUrl::RemovePath | QUrl::RemoveQuery | QUrl::RemoveFragment).toString();
        api->setCookie(origin.toUtf8().constData(), "QXSESSION", session.toUtf8().constData());
    }
    api->load(view_, home.toString(QUrl::FullyEncoded).toUtf8().constData());
}
