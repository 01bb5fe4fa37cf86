#include "gatedstream.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <cerrno>

namespace {

thread_local GatedStream* currentStream = nullptr;

}  // namespace

GatedStream::GatedStream(int fd, std::string buffered, size_t headBytes, const std::string& address,
                         int port, const Pace& pace, size_t bodyCap, SSL* ssl)
    : fd_(fd),
      ssl_(ssl),
      buffered_(std::move(buffered)),
      address_(address),
      port_(port),
      pace_(pace),
      bodyCap_(bodyCap),
      headBytes_(headBytes) {
    clock_.start();
}

GatedStream* GatedStream::current() { return currentStream; }

void GatedStream::setCurrent(GatedStream* stream) { currentStream = stream; }

qint64 GatedStream::deadline(qint64 startedMs, qint64 moved) const {
    return startedMs + pace_.graceMs + moved * 1000 / qMax(1, pace_.minBytesPerSecond);
}

bool GatedStream::waitFor(short events, qint64 deadlineMs) const {
    for (;;) {
        const qint64 left = qMin<qint64>(deadlineMs - clock_.elapsed(), pace_.waitMs);
        if (left <= 0) return false;
        pollfd p{fd_, events, 0};
        const int n = ::poll(&p, 1, int(left));
        if (n > 0) return true;
        if (n == 0 || errno != EINTR) return false;
    }
}

bool GatedStream::is_readable() const {
    if (bufferedAt_ < buffered_.size()) return true;
    if (ssl_ && SSL_pending(ssl_) > 0) return true;
    pollfd p{fd_, POLLIN, 0};
    return ::poll(&p, 1, 0) > 0;
}

bool GatedStream::is_writable() const {
    if (broken_ || writeTimedOut_) return false;
    pollfd p{fd_, POLLOUT, 0};
    return ::poll(&p, 1, pace_.waitMs) > 0 && (p.revents & (POLLERR | POLLHUP)) == 0;
}

ssize_t GatedStream::read(char* ptr, size_t size) {
    if (size == 0) return 0;
    const qint64 body = qMax<qint64>(0, consumed_ - qint64(headBytes_));
    const qint64 headLeft = qMax<qint64>(0, qint64(headBytes_) - consumed_);
    if (body >= qint64(bodyCap_) && headLeft == 0) {
        tooLarge_ = true;
        return -1;
    }
    // Never hand over more than the cap allows, so the cap is exact.
    size = size_t(qMin<qint64>(qint64(size), headLeft + qint64(bodyCap_) - body));
    if (bufferedAt_ < buffered_.size()) {
        const size_t n = qMin(size, buffered_.size() - bufferedAt_);
        memcpy(ptr, buffered_.data() + bufferedAt_, n);
        bufferedAt_ += n;
        consumed_ += qint64(n);
        return ssize_t(n);
    }
    // The body's pace is measured from the start of this request.
    const qint64 until = deadline(0, body);
    for (;;) {
        short wait = 0;
        const ssize_t n = receiveOnce(ptr, size, &wait);
        if (n >= 0 && wait == 0) {
            if (n == 0) broken_ = true;
            consumed_ += n;
            return n;
        }
        if (n < 0) {
            broken_ = true;
            return -1;
        }
        if (!waitFor(wait, until)) {
            timedOut_ = true;
            return -1;
        }
    }
}

ssize_t GatedStream::receiveOnce(char* ptr, size_t size, short* waitEvents) {
    if (ssl_) {
        const int n = SSL_read(ssl_, ptr, int(qMin<size_t>(size, 1 << 30)));
        if (n > 0) return n;
        switch (SSL_get_error(ssl_, n)) {
            case SSL_ERROR_WANT_READ:
                *waitEvents = POLLIN;
                return 0;
            case SSL_ERROR_WANT_WRITE:
                *waitEvents = POLLOUT;
                return 0;
            case SSL_ERROR_ZERO_RETURN:
                return 0;
            default:
                return -1;
        }
    }
    for (;;) {
        const ssize_t n = ::recv(fd_, ptr, size, 0);
        if (n >= 0) return n;
        if (errno == EINTR) continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) return -1;
        *waitEvents = POLLIN;
        return 0;
    }
}

ssize_t GatedStream::sendOnce(const char* ptr, size_t size, short* waitEvents) {
    if (ssl_) {
        const int n = SSL_write(ssl_, ptr, int(qMin<size_t>(size, 1 << 30)));
        if (n > 0) return n;
        switch (SSL_get_error(ssl_, n)) {
            case SSL_ERROR_WANT_READ:
                *waitEvents = POLLIN;
                return 0;
            case SSL_ERROR_WANT_WRITE:
                *waitEvents = POLLOUT;
                return 0;
            default:
                return -1;
        }
    }
    for (;;) {
        const ssize_t n = ::send(fd_, ptr, size, MSG_NOSIGNAL);
        if (n > 0) return n;
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            *waitEvents = POLLOUT;
            return 0;
        }
        return -1;
    }
}

ssize_t GatedStream::write(const char* ptr, size_t size) {
    // A peer too slow to send may still be told so; one too slow to read may not.
    if (broken_ || writeTimedOut_) return -1;
    if (writeStartMs_ < 0) writeStartMs_ = clock_.elapsed();
    size_t done = 0;
    while (done < size) {
        short wait = 0;
        const ssize_t n = sendOnce(ptr + done, size - done, &wait);
        if (n > 0) {
            done += size_t(n);
            bytesWritten_ += n;
            continue;
        }
        if (n == 0 && wait != 0) {
            if (!waitFor(wait, deadline(writeStartMs_, bytesWritten_))) {
                writeTimedOut_ = true;
                return -1;
            }
            continue;
        }
        broken_ = true;
        return -1;
    }
    return ssize_t(size);
}

void GatedStream::get_remote_ip_and_port(std::string& ip, int& port) const {
    ip = address_;
    port = port_;
}

void GatedStream::get_local_ip_and_port(std::string& ip, int& port) const {
    sockaddr_storage addr{};
    socklen_t len = sizeof addr;
    if (::getsockname(fd_, reinterpret_cast<sockaddr*>(&addr), &len) != 0) return;
    char text[INET6_ADDRSTRLEN] = {};
    if (addr.ss_family == AF_INET) {
        const auto* in = reinterpret_cast<const sockaddr_in*>(&addr);
        ::inet_ntop(AF_INET, &in->sin_addr, text, sizeof text);
        port = ntohs(in->sin_port);
    } else if (addr.ss_family == AF_INET6) {
        const auto* in = reinterpret_cast<const sockaddr_in6*>(&addr);
        ::inet_ntop(AF_INET6, &in->sin6_addr, text, sizeof text);
        port = ntohs(in->sin6_port);
    }
    ip = text;
}

std::string GatedStream::takeLeftover() {
    std::string rest = buffered_.substr(qMin(bufferedAt_, buffered_.size()));
    buffered_.clear();
    bufferedAt_ = 0;
    return rest;
}
