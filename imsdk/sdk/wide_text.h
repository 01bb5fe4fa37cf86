#pragma once

#include <QString>

#include "base/file_path.h"
#include "prg/prg_string.h"

// Conversions between Qt's texts and the SDK's wide texts and paths.
namespace wide_text {

inline QString toQ(const prg::PrgStringT<wchar_t>& s) {
    return QString::fromWCharArray(s.c_str(), int(s.length()));
}

inline prg::PrgStringT<wchar_t> fromQ(const QString& s) {
    return prg::PrgStringT<wchar_t>(s.toStdWString());
}

inline QString pathToQ(const base::FilePath& p) { return QString::fromStdString(p.AsUTF8Unsafe()); }

inline base::FilePath pathFromQ(const QString& p) {
    return base::FilePath::FromUTF8Unsafe(p.toStdString());
}

}  // namespace wide_text
