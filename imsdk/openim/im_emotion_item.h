#pragma once

#include "prg/prg_string.h"

namespace openim {

// One emoticon of the catalogue: its picture and the short code that stands for it in text.
struct IMEmotionItem {
    prg::PrgStringT<wchar_t> emPngFixedPath;
    prg::PrgStringT<wchar_t> emotionShortCut;
};

}  // namespace openim
