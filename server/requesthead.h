#pragma once

#include <cstddef>
#include <cstdint>

// Where a request head stands in the bytes read so far from a connection: still arriving,
// complete (with what it says about the body), or refused before any worker sees it.
struct RequestHead {
    enum State { Incomplete, Complete, TooLarge, Malformed };

    State state = Incomplete;
    size_t headBytes = 0;        // through the blank line, once complete
    int64_t contentLength = -1;  // -1: no Content-Length
    bool chunked = false;
    bool expectsContinue = false;  // the peer waits for "100 Continue" before its body

    // `maxBytes` bounds the head (request line and every header), `maxLines` the number of
    // lines in it, the request line included.
    static RequestHead scan(const char* data, size_t size, size_t maxBytes, int maxLines);
};
