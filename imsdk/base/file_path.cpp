#include "base/file_path.h"

namespace base {

namespace {

bool isSeparator(FilePath::CharType c) {
#ifdef _WIN32
    return c == L'/' || c == L'\\';
#else
    return c == '/';
#endif
}

}  // namespace

FilePath FilePath::DirName() const {
    StringType p = path_;
    // Trailing separators name the same folder ("/a/b/" is "/a/b").
    while (p.size() > 1 && isSeparator(p.back())) p.pop_back();
    auto pos = p.size();
    while (pos > 0 && !isSeparator(p[pos - 1])) --pos;
    if (pos == 0) return FilePath(StringType(1, CharType('.')));
    p.resize(pos);
    while (p.size() > 1 && isSeparator(p.back())) p.pop_back();
    return FilePath(p);
}

FilePath FilePath::BaseName() const {
    StringType p = path_;
    while (p.size() > 1 && isSeparator(p.back())) p.pop_back();
    auto pos = p.size();
    while (pos > 0 && !isSeparator(p[pos - 1])) --pos;
    return FilePath(p.substr(pos));
}

FilePath FilePath::Append(const StringType& component) const {
    if (component.empty()) return *this;
    if (path_.empty()) return FilePath(component);
    StringType p = path_;
    if (!isSeparator(p.back())) p += std::filesystem::path::preferred_separator;
    auto start = component.find_first_not_of(std::filesystem::path::preferred_separator);
    p += component.substr(start == StringType::npos ? component.size() : start);
    return FilePath(p);
}

FilePath FilePath::AppendASCII(const std::string& component) const {
    return Append(FromUTF8Unsafe(component));
}

std::string FilePath::AsUTF8Unsafe() const {
    auto u8 = std::filesystem::path(path_).u8string();
    return std::string(u8.begin(), u8.end());
}

FilePath FilePath::FromUTF8Unsafe(const std::string& utf8) {
    return FilePath(std::filesystem::u8path(utf8).native());
}

}  // namespace base
