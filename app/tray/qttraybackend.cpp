#include "qttraybackend.h"

#include <QCursor>
#include <QSystemTrayIcon>

QtTrayBackend::QtTrayBackend(QObject* parent)
    : TrayBackend(parent), icon_(new QSystemTrayIcon(this)) {
    connect(icon_, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                switch (reason) {
                    case QSystemTrayIcon::Trigger:
                    case QSystemTrayIcon::DoubleClick:
                        emit leftClickedSignal();
                        break;
                    case QSystemTrayIcon::Context:
                        emit rightClickedSignal(QCursor::pos());
                        break;
                    default:
                        break;
                }
            });
}

QtTrayBackend::~QtTrayBackend() { icon_->hide(); }

bool QtTrayBackend::isAvailable() const { return QSystemTrayIcon::isSystemTrayAvailable(); }

void QtTrayBackend::setIcon(const QIcon& icon) { icon_->setIcon(icon); }

void QtTrayBackend::setToolTip(const QString& tip) { icon_->setToolTip(tip); }

void QtTrayBackend::show() { icon_->show(); }

void QtTrayBackend::remove() { icon_->hide(); }

QRect QtTrayBackend::geometry() const { return icon_->geometry(); }
