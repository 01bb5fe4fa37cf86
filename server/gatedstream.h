#pragma once

#include <httplib.h>

#include <QElapsedTimer>

#include <openssl/ssl.h>

#include <string>

// One request's view of its connection, for the HTTP library's request parser and writer.
// Reads start with the bytes already read while the request head was gathered. Both
// directions must keep moving: after a grace period a transfer has to average a minimum rate,
// so a peer that trickles a byte a second loses its connection instead of holding a worker.
// The body is capped while it streams, whatever its framing (length or chunks).
class GatedStream : public httplib::Stream {
public:
    struct Pace {
        int graceMs = 10000;           // before the minimum rate applies
        int minBytesPerSecond = 8192;  // average over the whole transfer after the grace
        int waitMs = 10000;            // longest wait for any single read or write
    };

    // `buffered` starts with the request head of `headBytes` bytes. With `ssl` (a finished
    // TLS session over `fd`, owned by the caller) every byte goes through it.
    GatedStream(int fd, std::string buffered, size_t headBytes, const std::string& address,
                int port, const Pace& pace, size_t bodyCap, SSL* ssl = nullptr);

    bool is_readable() const override;
    bool is_writable() const override;
    ssize_t read(char* ptr, size_t size) override;
    ssize_t write(const char* ptr, size_t size) override;
    void get_remote_ip_and_port(std::string& ip, int& port) const override;
    void get_local_ip_and_port(std::string& ip, int& port) const override;
    socket_t socket() const override { return fd_; }

    // The cap on bytes read past the request head; a read beyond it fails.
    void setBodyCap(size_t cap) { bodyCap_ = cap; }
    size_t bodyCap() const { return bodyCap_; }
    bool bodyTooLarge() const { return tooLarge_; }
    // The peer sent too slowly.
    bool timedOut() const { return timedOut_; }
    // Set when the rest of the connection cannot be trusted (an unread or refused body).
    void closeAfterReply() { closeAfter_ = true; }
    // Undoes closeAfterReply() once the body was read to its end after all.
    void keepAfterReply() { closeAfter_ = false; }
    bool closesAfterReply() const {
        return closeAfter_ || tooLarge_ || timedOut_ || writeTimedOut_ || broken_;
    }
    // Bytes read from the socket but not consumed by this request (a pipelined next one).
    std::string takeLeftover();

    // The stream of the request the calling worker is answering; null elsewhere.
    static GatedStream* current();
    static void setCurrent(GatedStream* stream);

private:
    bool waitFor(short events, qint64 deadlineMs) const;
    // One try at the socket, in the clear or through TLS: >0 moved, 0 the peer closed,
    // -1 broken; `waitEvents` is set to what to wait for when nothing could move yet.
    ssize_t receiveOnce(char* ptr, size_t size, short* waitEvents);
    ssize_t sendOnce(const char* ptr, size_t size, short* waitEvents);
    qint64 deadline(qint64 startedMs, qint64 moved) const;

    int fd_;
    SSL* ssl_;
    std::string buffered_;
    size_t bufferedAt_ = 0;
    std::string address_;
    int port_;
    Pace pace_;
    size_t bodyCap_;
    size_t headBytes_;
    qint64 consumed_ = 0;  // head and body
    qint64 bytesWritten_ = 0;
    qint64 writeStartMs_ = -1;
    QElapsedTimer clock_;
    bool tooLarge_ = false;
    bool timedOut_ = false;  // reading
    bool writeTimedOut_ = false;
    bool broken_ = false;
    bool closeAfter_ = false;
};
