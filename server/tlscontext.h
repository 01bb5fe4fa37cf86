#pragma once

#include <openssl/ssl.h>

#include <string>

// The server side of HTTPS: the certificate chain and key every connection presents, with
// modern protocol versions only. Connections are driven by the gate (handshake, request head)
// and by a worker (body, reply), never by both at once.
class TlsContext {
public:
    TlsContext() = default;
    ~TlsContext();
    TlsContext(const TlsContext&) = delete;
    TlsContext& operator=(const TlsContext&) = delete;

    // `certFile`: PEM, the server's certificate first and its chain after it; `keyFile`: PEM.
    // False, with the reason in `error`, when they cannot be used together.
    bool load(const std::string& certFile, const std::string& keyFile, std::string* error);
    bool loaded() const { return ctx_ != nullptr; }

    // A server-side session over a connected non-blocking socket; null when out of memory.
    SSL* open(int fd) const;
    // Ends the session without waiting for the peer and frees it.
    static void close(SSL* ssl);
    // The last OpenSSL error of this thread as text, and the queue cleared.
    static std::string lastError();

private:
    SSL_CTX* ctx_ = nullptr;
};
