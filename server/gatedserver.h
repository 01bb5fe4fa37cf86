#pragma once

#include "gatedstream.h"
#include "tlscontext.h"

#include <httplib.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

// The HTTP library's request handling behind a gate of our own. One thread accepts every
// connection and gathers each request head (and a small body) without blocking; only a
// complete request is handed to a worker, and a kept-alive connection goes back to the gate
// between requests. So a peer that trickles bytes, or just keeps connections open, costs a
// socket and a small buffer, never a worker. The gate also caps connections (in all and per
// address), the head's size and line count, and the time a head may take. With a certificate
// the gate also drives each connection's TLS handshake, within the same time as a head.
class GatedServer : public httplib::Server {
public:
    struct Limits {
        int workers = 16;
        int maxConnections = 900;  // the HTTP library refuses descriptors past 1023
        int maxPerAddress = 128;
        int headTimeoutMs = 10000;  // from a request's first byte to its blank line
        int idleTimeoutMs = 15000;  // a kept-alive connection without a request
        int maxHeadBytes = 32 * 1024;
        int maxHeadLines = 100;
        int prereadBodyBytes = 64 * 1024;  // bodies up to this are read by the gate
        size_t defaultBodyCap = 64 * 1024;
        int keepAliveMaxRequests = 1000;
        GatedStream::Pace pace;
    };
    // The body of a refusal the gate answers itself (408, 413, 431, 503, 400).
    using RefusalBody = std::function<std::string(int status)>;

    explicit GatedServer(const Limits& limits, RefusalBody refusal);
    ~GatedServer() override;

    // Serves HTTPS with this certificate chain and key (PEM) instead of HTTP; before
    // startServing(). False, with the reason in `error`, when they cannot be used.
    bool useTls(const std::string& certFile, const std::string& keyFile, std::string* error);
    bool secure() const { return tls_.loaded(); }
    // Binds (port 0: any free port); returns the port, -1 on failure.
    int bindTo(const std::string& host, int port);
    // Starts the gate and the workers.
    bool startServing();
    void stopServing();

    const Limits& limits() const { return limits_; }
    int openConnections() const;

private:
    struct Connection {
        int fd = -1;
        std::string address;
        int port = 0;
        std::string buffered;
        int served = 0;
        long long deadlineMs = 0;
        bool started = false;     // some bytes of the next request have arrived
        SSL* ssl = nullptr;       // with TLS: the session, owned with the descriptor
        bool secured = false;     // its handshake is done
        bool wantsWrite = false;  // the handshake waits for the socket to take bytes
    };

    void gateLoop();
    void acceptAll(std::vector<std::unique_ptr<Connection>>& held);
    // Reads what is there; false when the connection is done with (closed or refused).
    bool readHead(Connection& c);
    // Moves the TLS handshake on; false when it failed (the connection is closed).
    bool handshake(Connection& c);
    // One non-blocking read of plain bytes: >0 read, 0 none yet, -1 closed or broken.
    ssize_t receive(Connection& c, char* into, size_t size);
    // Whether the buffered bytes hold a whole request head (and its small body).
    bool isReady(const Connection& c, size_t* headBytes) const;
    void handOver(std::unique_ptr<Connection> c, size_t headBytes);
    void serve(std::unique_ptr<Connection> c, size_t headBytes);
    void giveBack(std::unique_ptr<Connection> c);
    void refuse(Connection& c, int status, const char* why);
    void close(Connection& c);
    void noteRefusal(const char* why, const std::string& address);
    long long nowMs() const;

    Limits limits_;
    RefusalBody refusal_;
    TlsContext tls_;
    int listenFd_ = -1;
    int wakeFd_ = -1;
    std::atomic<bool> stopping_{false};
    std::thread gate_;
    std::unique_ptr<httplib::ThreadPool> workers_;
    mutable std::mutex mutex_;
    std::map<std::string, int> perAddress_;
    int open_ = 0;
    std::deque<std::unique_ptr<Connection>> returned_;
    std::chrono::steady_clock::time_point epoch_;
    long long lastRefusalLogMs_ = -100000;
    int refusalsSinceLog_ = 0;
};
