#include "core/log_format.h"

#include <windows.h>

#include <cstdint>
#include <cwchar>
#include <iterator>

#include "core/utf.h"

namespace qn {
namespace {

struct Conversion {
  std::wstring flags_and_width;  // "%-08.3" with any '*' already replaced
  std::wstring length;           // "", "h", "hh", "l", "ll", "I64", "z", ...
  wchar_t type = 0;
};

bool IsLengthChar(wchar_t c) { return wcschr(L"hlLwIjzt0123456789", c) != nullptr; }

void AppendNumber(std::wstring& out, int value) { out += std::to_wstring(value); }

// Reads "%[flags][width][.precision][length]type" starting at the percent sign. Returns
// the position after the type, or null when the format ends inside the conversion.
const wchar_t* ParseConversion(const wchar_t* p, va_list* args, Conversion& c) {
  c.flags_and_width = L"%";
  for (++p; *p && wcschr(L"-+ #0", *p); ++p) c.flags_and_width += *p;
  for (; *p && (iswdigit(*p) || *p == L'.' || *p == L'*'); ++p) {
    if (*p == L'*') AppendNumber(c.flags_and_width, va_arg(*args, int));
    else c.flags_and_width += *p;
  }
  // I32 and I64 carry digits, so length letters are read greedily only after 'I'.
  for (; *p && IsLengthChar(*p) && (!iswdigit(*p) || !c.length.empty()); ++p) c.length += *p;
  if (!*p) return nullptr;
  c.type = *p;
  return p + 1;
}

bool Is64Bit(const std::wstring& length) {
  return length == L"ll" || length == L"I64" || length == L"I" || length == L"z" ||
         length == L"j" || length == L"t";
}

template <typename T>
void AppendFormatted(std::wstring& out, const std::wstring& spec, T value) {
  wchar_t piece[kLogMessageMaxChars + 1];
  _snwprintf_s(piece, std::size(piece), _TRUNCATE, spec.c_str(), value);
  out += piece;
}

void AppendInteger(std::wstring& out, const Conversion& c, va_list* args) {
  const std::wstring spec = c.flags_and_width + L"I64" + c.type;  // every MS CRT knows I64
  const bool is_signed = c.type == L'd' || c.type == L'i';
  if (Is64Bit(c.length)) {
    AppendFormatted(out, spec, va_arg(*args, long long));
  } else if (is_signed) {
    const int value = va_arg(*args, int);
    const long long narrowed = c.length == L"hh" ? static_cast<signed char>(value)
                               : c.length == L"h" ? static_cast<short>(value)
                                                  : value;
    AppendFormatted(out, spec, narrowed);
  } else {
    const unsigned value = va_arg(*args, unsigned);
    const unsigned long long narrowed = c.length == L"hh" ? static_cast<unsigned char>(value)
                                        : c.length == L"h" ? static_cast<unsigned short>(value)
                                                           : value;
    AppendFormatted(out, spec, narrowed);
  }
}

void AppendText(std::wstring& out, const Conversion& c, va_list* args) {
  const std::wstring spec = c.flags_and_width + L"ls";
  const bool narrow = c.length == L"h" || (c.type == L'S' && c.length.empty());
  if (narrow) {
    const char* text = va_arg(*args, const char*);
    AppendFormatted(out, spec, text ? Utf8ToWide(text).c_str() : L"(null)");
  } else {
    const wchar_t* text = va_arg(*args, const wchar_t*);
    AppendFormatted(out, spec, text ? text : L"(null)");
  }
}

void AppendConversion(std::wstring& out, const Conversion& c, va_list* args) {
  switch (c.type) {
    case L'%': out += L'%'; break;
    case L'd': case L'i': case L'u': case L'o': case L'x': case L'X':
      AppendInteger(out, c, args);
      break;
    case L's': case L'S': AppendText(out, c, args); break;
    case L'c': case L'C':
      AppendFormatted(out, c.flags_and_width + L"c", static_cast<wchar_t>(va_arg(*args, int)));
      break;
    case L'p': AppendFormatted(out, c.flags_and_width + L"p", va_arg(*args, void*)); break;
    case L'f': case L'F': case L'e': case L'E': case L'g': case L'G': case L'a': case L'A':
      AppendFormatted(out, c.flags_and_width + c.type, va_arg(*args, double));
      break;
    case L'n': static_cast<void>(va_arg(*args, void*)); break;  // never written through
    default: out += c.flags_and_width + c.length + c.type; break;
  }
}

}  // namespace

std::wstring FormatLogMessage(const wchar_t* format, va_list* args) {
  std::wstring out;
  for (const wchar_t* p = format; *p && out.size() < kLogMessageMaxChars;) {
    if (*p != L'%') {
      out += *p++;
      continue;
    }
    Conversion conversion;
    const wchar_t* next = ParseConversion(p, args, conversion);
    if (!next) {
      out += p;
      break;
    }
    AppendConversion(out, conversion, args);
    p = next;
  }
  if (out.size() > kLogMessageMaxChars) out.resize(kLogMessageMaxChars);
  return out;
}

}  // namespace qn
