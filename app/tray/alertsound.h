#pragma once

#include <QObject>
#include <QString>

class QSoundEffect;

// The new-message sound: "<program folder>/resource/MSG.wav" at volume 80 of 100. The
// player is made on the first message, so starting the client loads no audio back end.
class AlertSound : public QObject {
    Q_OBJECT
public:
    explicit AlertSound(QObject* parent = nullptr);

    static QString defaultSource();
    void setSource(const QString& path) { source_ = path; }
    const QString& source() const { return source_; }

    // Plays from the start; a sound still playing starts over.
    void play();

private:
    QString source_;
    QSoundEffect* effect_ = nullptr;
    bool missingLogged_ = false;
};
