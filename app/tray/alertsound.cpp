#include "alertsound.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QLibrary>

#include "logger.h"

AlertSound::AlertSound(QObject* parent) : QObject(parent), source_(defaultSource()) {}

QString AlertSound::defaultSource() {
    return QCoreApplication::applicationDirPath() + QStringLiteral("/resource/MSG.wav");
}

void AlertSound::play() {
    if (!play_) {
        QLibrary module(QCoreApplication::applicationDirPath() + QStringLiteral("/quelix-sound"));
        play_ = reinterpret_cast<PlayFunction>(module.resolve("quelixPlaySound"));
        if (!play_) {
            if (!failedLogged_)
                Logger::instance().write(QStringLiteral("alert sound unavailable: ") +
                                         module.errorString());
            failedLogged_ = true;
            return;
        }
    }
    if (!QFileInfo(source_).isFile()) {
        if (!failedLogged_)
            Logger::instance().write(QStringLiteral("alert sound missing: ") + source_);
        failedLogged_ = true;
        return;
    }
    play_(source_.toUtf8().constData(), 80);
}
