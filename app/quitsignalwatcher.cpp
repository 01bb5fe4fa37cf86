#include "quitsignalwatcher.h"

#include <QSocketNotifier>

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {
int g_pipe[2] = {-1, -1};

void onSignal(int sig) {
    const char byte = char(sig);
    // Only write() here: the event loop does the rest.
    if (::write(g_pipe[1], &byte, 1) < 0) return;
}
}  // namespace

QuitSignalWatcher::QuitSignalWatcher(QObject* parent) : QObject(parent) {
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, g_pipe) != 0) return;
    notifier_ = new QSocketNotifier(g_pipe[0], QSocketNotifier::Read, this);
    connect(notifier_, &QSocketNotifier::activated, this, &QuitSignalWatcher::onReadable);
    struct sigaction sa {};
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    for (int sig : {SIGTERM, SIGINT, SIGHUP}) ::sigaction(sig, &sa, nullptr);
}

QuitSignalWatcher::~QuitSignalWatcher() {
    for (int sig : {SIGTERM, SIGINT, SIGHUP}) ::signal(sig, SIG_DFL);
    delete notifier_;
    for (int& fd : g_pipe) {
        if (fd >= 0) ::close(fd);
        fd = -1;
    }
}

void QuitSignalWatcher::onReadable() {
    char byte = 0;
    if (::read(g_pipe[0], &byte, 1) == 1) emit quitRequested(int(byte));
}
