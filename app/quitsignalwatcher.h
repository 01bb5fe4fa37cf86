#pragma once

#include <QObject>

class QSocketNotifier;

// Turns SIGTERM, SIGINT and SIGHUP into a clean quit of the event loop, so that a session
// logout or a service manager stopping the client still saves what it holds.
class QuitSignalWatcher : public QObject {
    Q_OBJECT
public:
    explicit QuitSignalWatcher(QObject* parent = nullptr);
    ~QuitSignalWatcher() override;

signals:
    void quitRequested(int signalNumber);

private:
    void onReadable();

    QSocketNotifier* notifier_ = nullptr;
};
