#pragma once

#include <cstdint>

#include "prg/prg_string.h"

namespace openim {

// Content kinds of a message.
enum ContentKind : std::int32_t {
    kContentText = 1,
    kContentImage = 2,
    kContentFile = 4,
    kContentHidden = 8,  // not shown: malformed, too long or of a kind this SDK does not know
    kContentCustom = 16,
};

// The content of a message: its kind, then the kind's data.
struct IMMessageContent {
    std::int32_t type = kContentText;
    // Kind 1: the text. Kind 16: the client's JSON. Kinds 2 and 4: the local file path once
    // downloaded (the sender's own path for sent media), otherwise empty.
    prg::PrgStringT<wchar_t> content;
    // Kind 16: the one-line summary. Kinds 2 and 4: the file's name.
    prg::PrgStringT<wchar_t> summary;
    // Kinds 2 and 4: where the file was uploaded, its size and, for pictures, its size in pixels.
    prg::PrgStringT<wchar_t> url;
    std::uint64_t fileSize = 0;
    std::int32_t width = 0;
    std::int32_t height = 0;
};

}  // namespace openim
