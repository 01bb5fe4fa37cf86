#include "alertsound.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QSoundEffect>
#include <QUrl>

#include "logger.h"

AlertSound::AlertSound(QObject* parent) : QObject(parent), source_(defaultSource()) {}

QString AlertSound::defaultSource() {
    return QCoreApplication::applicationDirPath() + QStringLiteral("/resource/MSG.wav");
}

void AlertSound::play() {
    if (!QFileInfo(source_).isFile()) {
        if (!missingLogged_)
            Logger::instance().write(QStringLiteral("alert sound missing: ") + source_);
        missingLogged_ = true;
        return;
    }
    if (!effect_) {
        effect_ = new QSoundEffect(this);
        effect_->setSource(QUrl::fromLocalFile(source_));
        effect_->setVolume(0.8);
    }
    effect_->stop();
    effect_->play();
}
