#pragma once

#include <QObject>
#include <QString>

// The new-message sound: "<program folder>/resource/MSG.wav" at volume 80 of 100. The
// player module is loaded on the first message, so starting the client loads no audio.
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
    using PlayFunction = void (*)(const char*, int);
    QString source_;
    PlayFunction play_ = nullptr;
    bool failedLogged_ = false;
};
