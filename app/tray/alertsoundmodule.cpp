// The sound player as a module of its own (quelix-sound), loaded on the first new message:
// the audio stack (Qt Multimedia, PulseAudio, GStreamer) costs start-up time and memory
// that a client waiting at its log-in window should not pay.
#include <QCoreApplication>
#include <QPointer>
#include <QSoundEffect>
#include <QUrl>

extern "C" Q_DECL_EXPORT void quelixPlaySound(const char* utf8Path, int volumePercent) {
    // Owned by the application, so it goes before the application does (not at exit).
    static QPointer<QSoundEffect> effect;
    const QString path = QString::fromUtf8(utf8Path);
    if (!effect || effect->source() != QUrl::fromLocalFile(path)) {
        delete effect;
        effect = new QSoundEffect(QCoreApplication::instance());
        effect->setSource(QUrl::fromLocalFile(path));
    }
    effect->setVolume(qBound(0, volumePercent, 100) / 100.0);
    effect->stop();
    effect->play();
}
