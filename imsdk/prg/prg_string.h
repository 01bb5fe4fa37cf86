#pragma once

#include <string>

namespace prg {

// The SDK's text type. A value type; Release() only empties it, for callers that were
// told to release a text handed to them.
template <class CharT>
class PrgStringT {
public:
    using StringType = std::basic_string<CharT>;

    PrgStringT() = default;
    PrgStringT(const CharT* text) : text_(text ? text : StringType()) {}  // NOLINT
    PrgStringT(StringType text) : text_(std::move(text)) {}               // NOLINT
    PrgStringT(const CharT* text, std::size_t length) : text_(text, length) {}

    const CharT* c_str() const { return text_.c_str(); }
    const CharT* GetBuffer() const { return text_.c_str(); }
    std::size_t length() const { return text_.size(); }
    std::size_t size() const { return text_.size(); }
    bool empty() const { return text_.empty(); }
    const StringType& str() const { return text_; }
    void Release() { StringType().swap(text_); }

    bool operator==(const PrgStringT& o) const { return text_ == o.text_; }
    bool operator!=(const PrgStringT& o) const { return text_ != o.text_; }
    bool operator<(const PrgStringT& o) const { return text_ < o.text_; }

private:
    StringType text_;
};

using PrgString = PrgStringT<wchar_t>;

}  // namespace prg
