#include "gatedserver.h"

#include "requesthead.h"

#include <openssl/err.h>

#include <QtGlobal>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

const char* reason(int status) {
    switch (status) {
        case 400:
            return "Bad Request";
        case 408:
            return "Request Timeout";
        case 413:
            return "Payload Too Large";
        case 431:
            return "Request Header Fields Too Large";
        default:
            return "Service Unavailable";
    }
}

std::string addressText(const sockaddr_storage& addr, int* port) {
    char text[INET6_ADDRSTRLEN] = {};
    if (addr.ss_family == AF_INET) {
        const auto* in = reinterpret_cast<const sockaddr_in*>(&addr);
        ::inet_ntop(AF_INET, &in->sin_addr, text, sizeof text);
        *port = ntohs(in->sin_port);
    } else if (addr.ss_family == AF_INET6) {
        const auto* in = reinterpret_cast<const sockaddr_in6*>(&addr);
        ::inet_ntop(AF_INET6, &in->sin6_addr, text, sizeof text);
        *port = ntohs(in->sin6_port);
    }
    return text;
}

}  // namespace

GatedServer::GatedServer(const Limits& limits, RefusalBody refusal)
    : limits_(limits), refusal_(std::move(refusal)), epoch_(std::chrono::steady_clock::now()) {
    // Only for the Keep-Alive header the library writes: the gate applies both.
    set_keep_alive_timeout(limits_.idleTimeoutMs / 1000);
    set_keep_alive_max_count(size_t(limits_.keepAliveMaxRequests));
}

GatedServer::~GatedServer() { stopServing(); }

bool GatedServer::useTls(const std::string& certFile, const std::string& keyFile,
                         std::string* error) {
    if (gate_.joinable()) {
        *error = "already serving";
        return false;
    }
    return tls_.load(certFile, keyFile, error);
}

long long GatedServer::nowMs() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 epoch_)
        .count();
}

int GatedServer::openConnections() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return open_;
}

int GatedServer::bindTo(const std::string& host, int port) {
    if (listenFd_ >= 0) return -1;
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    const std::string service = std::to_string(port);
    if (::getaddrinfo(host.empty() ? nullptr : host.c_str(), service.c_str(), &hints, &found) != 0)
        return -1;
    for (addrinfo* a = found; a && listenFd_ < 0; a = a->ai_next) {
        const int fd =
            ::socket(a->ai_family, a->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, a->ai_protocol);
        if (fd < 0) continue;
        const int yes = 1;
        ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        if (::bind(fd, a->ai_addr, a->ai_addrlen) == 0 && ::listen(fd, 1024) == 0) {
            listenFd_ = fd;
        } else {
            ::close(fd);
        }
    }
    ::freeaddrinfo(found);
    if (listenFd_ < 0) return -1;
    sockaddr_storage addr{};
    socklen_t len = sizeof addr;
    ::getsockname(listenFd_, reinterpret_cast<sockaddr*>(&addr), &len);
    int bound = 0;
    addressText(addr, &bound);
    // The library checks this to tell whether it is shutting down while it streams a reply.
    svr_sock_ = listenFd_;
    return bound;
}

bool GatedServer::startServing() {
    if (listenFd_ < 0 || gate_.joinable()) return false;
    wakeFd_ = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (wakeFd_ < 0) return false;
    workers_ = std::make_unique<httplib::ThreadPool>(size_t(qMax(1, limits_.workers)));
    gate_ = std::thread([this] { gateLoop(); });
    return true;
}

void GatedServer::stopServing() {
    if (stopping_.exchange(true)) return;
    if (gate_.joinable()) {
        const uint64_t one = 1;
        [[maybe_unused]] const auto n = ::write(wakeFd_, &one, sizeof one);
        gate_.join();
    }
    // Queued requests are closed unanswered; requests being answered finish first (every
    // read and write of theirs has a deadline).
    if (workers_) workers_->shutdown();
    std::deque<std::unique_ptr<Connection>> left;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        left.swap(returned_);
    }
    for (auto& c : left) close(*c);
    if (listenFd_ >= 0) ::close(listenFd_);
    if (wakeFd_ >= 0) ::close(wakeFd_);
    listenFd_ = wakeFd_ = -1;
    svr_sock_ = INVALID_SOCKET;
}

void GatedServer::gateLoop() {
    std::vector<std::unique_ptr<Connection>> held;
    std::vector<pollfd> fds;
    while (!stopping_) {
        fds.clear();
        fds.push_back({wakeFd_, POLLIN, 0});
        fds.push_back({listenFd_, POLLIN, 0});
        long long next = nowMs() + 1000;
        for (const auto& c : held) {
            fds.push_back({c->fd, short(c->wantsWrite ? POLLIN | POLLOUT : POLLIN), 0});
            next = qMin(next, c->deadlineMs);
        }
        const int n = ::poll(fds.data(), nfds_t(fds.size()), int(qMax(0LL, next - nowMs())));
        if (stopping_) break;
        if (n < 0 && errno != EINTR) break;
        const long long now = nowMs();
        for (size_t i = 0; i < held.size(); ++i) {
            Connection& c = *held[i];
            const short events = fds[i + 2].revents;
            if (events & (POLLIN | POLLOUT | POLLERR | POLLHUP)) {
                if (!readHead(c)) {
                    held[i].reset();
                    continue;
                }
                size_t headBytes = 0;
                if (isReady(c, &headBytes)) {
                    handOver(std::move(held[i]), headBytes);
                    continue;
                }
            }
            if (now >= c.deadlineMs) {
                // A request that started and did not finish in time is told so; an idle
                // kept-alive connection is just closed, as clients expect.
                if (c.started) {
                    refuse(c, 408, "request head too slow");
                } else {
                    close(c);
                }
                held[i].reset();
            }
        }
        held.erase(std::remove(held.begin(), held.end(), nullptr), held.end());
        if (fds[0].revents & POLLIN) {
            uint64_t count = 0;
            [[maybe_unused]] const auto r = ::read(wakeFd_, &count, sizeof count);
            std::deque<std::unique_ptr<Connection>> back;
            {
                std::lock_guard<std::mutex> lock(mutex_);
                back.swap(returned_);
            }
            for (auto& c : back) {
                // Bytes TLS has taken off the socket but not yet handed out wake no poll.
                if (c->ssl && SSL_has_pending(c->ssl) && !readHead(*c)) continue;
                // A pipelined request may already be complete.
                size_t headBytes = 0;
                if (isReady(*c, &headBytes)) {
                    handOver(std::move(c), headBytes);
                } else {
                    held.push_back(std::move(c));
                }
            }
        }
        if (fds[1].revents & POLLIN) acceptAll(held);
    }
    for (auto& c : held) close(*c);
}

void GatedServer::acceptAll(std::vector<std::unique_ptr<Connection>>& held) {
    for (;;) {
        sockaddr_storage addr{};
        socklen_t len = sizeof addr;
        const int fd = ::accept4(listenFd_, reinterpret_cast<sockaddr*>(&addr), &len,
                                 SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0) {
            if (errno == EINTR || errno == ECONNABORTED) continue;
            if (errno == EMFILE || errno == ENFILE) noteRefusal("out of descriptors", "");
            return;
        }
        auto c = std::make_unique<Connection>();
        c->fd = fd;
        c->address = addressText(addr, &c->port);
        const int yes = 1;
        // Small JSON replies on kept-alive connections would otherwise wait for delayed ACKs.
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        bool admitted = false;
        const char* why = "too many connections";
        {
            std::lock_guard<std::mutex> lock(mutex_);
            int& mine = perAddress_[c->address];
            if (open_ < limits_.maxConnections && mine < limits_.maxPerAddress) {
                ++mine;
                ++open_;
                admitted = true;
            } else {
                if (open_ < limits_.maxConnections) why = "too many connections from one address";
                if (mine == 0) perAddress_.erase(c->address);
            }
        }
        if (!admitted && tls_.loaded()) {
            // Nothing can be said before a handshake; the refusal is only logged.
            ::close(fd);
            noteRefusal(why, c->address);
            continue;
        }
        if (!admitted) {
            const std::string response = [&] {
                const std::string body = refusal_ ? refusal_(503) : std::string();
                return "HTTP/1.1 503 Service Unavailable\r\nContent-Type: "
                       "application/json;charset=UTF-8\r\nContent-Length: " +
                       std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
            }();
            [[maybe_unused]] const auto sent =
                ::send(fd, response.data(), response.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
            ::close(fd);
            noteRefusal(why, c->address);
            continue;
        }
        // With TLS the handshake has the head's time too.
        c->deadlineMs = nowMs() + limits_.headTimeoutMs;
        if (tls_.loaded()) {
            c->ssl = tls_.open(fd);
            if (!c->ssl) {
                noteRefusal("out of memory for TLS", c->address);
                close(*c);
                continue;
            }
        }
        held.push_back(std::move(c));
    }
}

bool GatedServer::handshake(Connection& c) {
    c.wantsWrite = false;
    const int r = SSL_do_handshake(c.ssl);
    if (r == 1) {
        c.secured = true;
        return true;
    }
    const int error = SSL_get_error(c.ssl, r);
    if (error == SSL_ERROR_WANT_READ) return true;
    if (error == SSL_ERROR_WANT_WRITE) {
        c.wantsWrite = true;
        return true;
    }
    // A peer that hung up mid-handshake (a client that quit) is no refusal worth a line.
    const unsigned long queued = ERR_peek_error();
    if ((error == SSL_ERROR_SYSCALL || error == SSL_ERROR_ZERO_RETURN || error == SSL_ERROR_SSL) &&
        (queued == 0 || ERR_GET_REASON(queued) == SSL_R_UNEXPECTED_EOF_WHILE_READING)) {
        ERR_clear_error();
        close(c);
        return false;
    }
    // Plain HTTP to this port lands here too ("http request").
    const std::string why = "a TLS handshake (" + TlsContext::lastError() + ")";
    noteRefusal(why.c_str(), c.address);
    close(c);
    return false;
}

ssize_t GatedServer::receive(Connection& c, char* into, size_t size) {
    if (!c.ssl) {
        for (;;) {
            const ssize_t n = ::recv(c.fd, into, size, 0);
            if (n > 0) return n;
            if (n < 0 && errno == EINTR) continue;
            if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return 0;
            return -1;
        }
    }
    const int n = SSL_read(c.ssl, into, int(qMin<size_t>(size, 1 << 30)));
    if (n > 0) return n;
    const int error = SSL_get_error(c.ssl, n);
    if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE) return 0;
    return -1;
}

bool GatedServer::readHead(Connection& c) {
    if (c.ssl && !c.secured) {
        if (!handshake(c)) return false;
        if (!c.secured) return true;
    }
    const size_t room = size_t(limits_.maxHeadBytes + limits_.prereadBodyBytes);
    char chunk[4096];
    for (;;) {
        if (c.buffered.size() >= room) return true;  // the scan decides what that means
        const ssize_t n = receive(c, chunk, qMin(sizeof chunk, room - c.buffered.size()));
        if (n > 0) {
            if (!c.started) {
                c.started = true;
                c.deadlineMs = nowMs() + limits_.headTimeoutMs;
            }
            c.buffered.append(chunk, size_t(n));
            continue;
        }
        if (n == 0) break;
        close(c);  // the peer closed or the connection broke
        return false;
    }
    const RequestHead head = RequestHead::scan(c.buffered.data(), c.buffered.size(),
                                               size_t(limits_.maxHeadBytes), limits_.maxHeadLines);
    if (head.state == RequestHead::TooLarge) {
        refuse(c, 431, "request head too large");
        return false;
    }
    if (head.state == RequestHead::Malformed || (head.chunked && head.contentLength >= 0)) {
        refuse(c, 400, "request head unreadable");
        return false;
    }
    return true;
}

bool GatedServer::isReady(const Connection& c, size_t* headBytes) const {
    const RequestHead head = RequestHead::scan(c.buffered.data(), c.buffered.size(),
                                               size_t(limits_.maxHeadBytes), limits_.maxHeadLines);
    if (head.state != RequestHead::Complete) return false;
    *headBytes = head.headBytes;
    // A small body is waited for here too; a large or chunked one (or one whose sender waits
    // to be told to go on) streams on the worker, capped and paced there.
    return head.contentLength <= 0 || head.contentLength > limits_.prereadBodyBytes ||
           head.expectsContinue || c.buffered.size() >= head.headBytes + size_t(head.contentLength);
}

void GatedServer::handOver(std::unique_ptr<Connection> c, size_t headBytes) {
    Connection* raw = c.release();
    workers_->enqueue(
        [this, raw, headBytes] { serve(std::unique_ptr<Connection>(raw), headBytes); });
}

void GatedServer::serve(std::unique_ptr<Connection> c, size_t headBytes) {
    if (stopping_) return close(*c);
    GatedStream stream(c->fd, std::move(c->buffered), headBytes, c->address, c->port, limits_.pace,
                       limits_.defaultBodyCap, c->ssl);
    GatedStream::setCurrent(&stream);
    bool closed = false;
    const bool last = ++c->served >= limits_.keepAliveMaxRequests;
    const bool answered = process_request(stream, last, closed, nullptr);
    GatedStream::setCurrent(nullptr);
    if (!answered || closed || last || stream.closesAfterReply() || stopping_) return close(*c);
    c->buffered = stream.takeLeftover();
    giveBack(std::move(c));
}

void GatedServer::giveBack(std::unique_ptr<Connection> c) {
    c->started = !c->buffered.empty();
    c->deadlineMs = nowMs() + (c->started ? limits_.headTimeoutMs : limits_.idleTimeoutMs);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        returned_.push_back(std::move(c));
    }
    const uint64_t one = 1;
    [[maybe_unused]] const auto n = ::write(wakeFd_, &one, sizeof one);
}

void GatedServer::refuse(Connection& c, int status, const char* why) {
    const std::string body = refusal_ ? refusal_(status) : std::string();
    const std::string response = "HTTP/1.1 " + std::to_string(status) + " " + reason(status) +
                                 "\r\nContent-Type: application/json;charset=UTF-8\r\n"
                                 "Content-Length: " +
                                 std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" +
                                 body;
    if (!c.ssl) {
        [[maybe_unused]] const auto sent =
            ::send(c.fd, response.data(), response.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    } else if (c.secured) {
        // Best effort on the non-blocking socket, as in the clear.
        [[maybe_unused]] const int sent = SSL_write(c.ssl, response.data(), int(response.size()));
    }
    noteRefusal(why, c.address);
    close(c);
}

void GatedServer::close(Connection& c) {
    if (c.fd < 0) return;
    TlsContext::close(c.ssl);
    c.ssl = nullptr;
    ::close(c.fd);
    c.fd = -1;
    std::lock_guard<std::mutex> lock(mutex_);
    --open_;
    const auto it = perAddress_.find(c.address);
    if (it != perAddress_.end() && --it->second <= 0) perAddress_.erase(it);
}

void GatedServer::noteRefusal(const char* why, const std::string& address) {
    // One line a second at most: a flood of refusals must not become a flood of log lines.
    std::lock_guard<std::mutex> lock(mutex_);
    const long long now = nowMs();
    if (now - lastRefusalLogMs_ < 1000) {
        ++refusalsSinceLog_;
        return;
    }
    if (refusalsSinceLog_ > 0) {
        qInfo("http: refused %s from %s (and %d more refusals in the last second)", why,
              address.c_str(), refusalsSinceLog_);
    } else {
        qInfo("http: refused %s from %s", why, address.c_str());
    }
    lastRefusalLogMs_ = now;
    refusalsSinceLog_ = 0;
}
