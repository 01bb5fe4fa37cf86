#pragma once

#include <filesystem>
#include <string>

#define FILE_PATH_LITERAL_INTERNAL(x) x
#ifdef _WIN32
#define FILE_PATH_LITERAL(x) L##x
#else
#define FILE_PATH_LITERAL(x) FILE_PATH_LITERAL_INTERNAL(x)
#endif

namespace base {

// A path in the platform's native form (wide on Windows, UTF-8 bytes elsewhere).
class FilePath {
public:
    using StringType = std::filesystem::path::string_type;
    using CharType = StringType::value_type;

    FilePath() = default;
    explicit FilePath(StringType path) : path_(std::move(path)) {}

    const StringType& value() const { return path_; }
    bool empty() const { return path_.empty(); }

    // The folder holding this path: "/a/b/c" gives "/a/b", "c" gives ".", "/" stays "/".
    FilePath DirName() const;
    // The last component: "/a/b/c" gives "c".
    FilePath BaseName() const;
    // This path with `component` added below it; an empty component changes nothing.
    FilePath Append(const StringType& component) const;
    FilePath Append(const FilePath& component) const { return Append(component.value()); }
    FilePath AppendASCII(const std::string& component) const;

    std::string AsUTF8Unsafe() const;
    static FilePath FromUTF8Unsafe(const std::string& utf8);

    bool operator==(const FilePath& other) const { return path_ == other.path_; }
    bool operator!=(const FilePath& other) const { return path_ != other.path_; }

private:
    StringType path_;
};

}  // namespace base
