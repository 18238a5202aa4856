#pragma once
#include <cstdarg>
#include <string>

namespace qn {

constexpr size_t kLogMessageMaxChars = 1023;

// The CRT's wide printf, one conversion at a time, with one deliberate difference: %hs
// (and %S) take UTF-8, which the CRT would read in the ANSI code page and garble. The
// result is cut to kLogMessageMaxChars.
std::wstring FormatLogMessage(const wchar_t* format, va_list* args);

}  // namespace qn
