#include "tlscontext.h"

#include <openssl/err.h>

TlsContext::~TlsContext() {
    if (ctx_) SSL_CTX_free(ctx_);
}

bool TlsContext::load(const std::string& certFile, const std::string& keyFile, std::string* error) {
    SSL_CTX* ctx = SSL_CTX_new(TLS_server_method());
    if (!ctx) {
        *error = lastError();
        return false;
    }
    SSL_CTX_set_min_proto_version(ctx, TLS1_2_VERSION);
    // Compression leaks secrets (CRIME); renegotiation by the client only costs us.
    SSL_CTX_set_options(
        ctx, SSL_OP_NO_COMPRESSION | SSL_OP_NO_RENEGOTIATION | SSL_OP_CIPHER_SERVER_PREFERENCE);
    // Writes go out as the socket takes them, from a buffer that may move between tries.
    SSL_CTX_set_mode(ctx, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER |
                              SSL_MODE_RELEASE_BUFFERS);
    if (SSL_CTX_use_certificate_chain_file(ctx, certFile.c_str()) != 1) {
        *error = "certificate " + certFile + ": " + lastError();
    } else if (SSL_CTX_use_PrivateKey_file(ctx, keyFile.c_str(), SSL_FILETYPE_PEM) != 1) {
        *error = "key " + keyFile + ": " + lastError();
    } else if (SSL_CTX_check_private_key(ctx) != 1) {
        *error = "the key does not belong to the certificate: " + lastError();
    } else {
        if (ctx_) SSL_CTX_free(ctx_);
        ctx_ = ctx;
        return true;
    }
    SSL_CTX_free(ctx);
    return false;
}

SSL* TlsContext::open(int fd) const {
    SSL* ssl = SSL_new(ctx_);
    if (!ssl) return nullptr;
    if (SSL_set_fd(ssl, fd) != 1) {
        SSL_free(ssl);
        return nullptr;
    }
    SSL_set_accept_state(ssl);
    return ssl;
}

void TlsContext::close(SSL* ssl) {
    if (!ssl) return;
    // One close_notify if the socket takes it; the peer's answer is not waited for.
    if (SSL_is_init_finished(ssl)) SSL_shutdown(ssl);
    SSL_free(ssl);
    ERR_clear_error();
}

std::string TlsContext::lastError() {
    const unsigned long code = ERR_get_error();
    ERR_clear_error();
    if (code == 0) return "no details";
    char text[256];
    ERR_error_string_n(code, text, sizeof text);
    return text;
}
