#include "core/utf.h"

#include <cstddef>
#include <cstdint>

namespace qn {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

struct Decoded {
  char32_t code;
  size_t length;  // bytes consumed; for an ill-formed sequence, its maximal subpart
};

// What a lead byte promises. The tighter bounds on the first continuation byte are what
// reject overlongs (E0, F0), encoded surrogates (ED) and values above U+10FFFF (F4) at the
// earliest byte, which is where the maximal subpart ends.
struct Lead {
  size_t continuations = 0;  // 0 for a byte that cannot start a sequence
  char32_t bits = 0;
  unsigned char low = 0x80;
  unsigned char high = 0xBF;
};

Lead ClassifyLead(unsigned char byte) {
  if (byte >= 0xC2 && byte <= 0xDF) return {1, byte & 0x1Fu, 0x80, 0xBF};
  if (byte == 0xE0) return {2, 0, 0xA0, 0xBF};
  if (byte == 0xED) return {2, 0x0D, 0x80, 0x9F};
  if (byte >= 0xE1 && byte <= 0xEF) return {2, byte & 0x0Fu, 0x80, 0xBF};
  if (byte == 0xF0) return {3, 0, 0x90, 0xBF};
  if (byte >= 0xF1 && byte <= 0xF3) return {3, byte & 0x07u, 0x80, 0xBF};
  if (byte == 0xF4) return {3, 0x04, 0x80, 0x8F};
  return {};
}

Decoded DecodeAt(std::string_view text, size_t start) {
  const auto first = static_cast<unsigned char>(text[start]);
  if (first < 0x80) return {first, 1};
  Lead lead = ClassifyLead(first);
  if (lead.continuations == 0) return {kReplacement, 1};
  char32_t code = lead.bits;
  size_t length = 1;
  for (; length <= lead.continuations; ++length) {
    if (start + length >= text.size()) return {kReplacement, length};
    const auto byte = static_cast<unsigned char>(text[start + length]);
    if (byte < lead.low || byte > lead.high) return {kReplacement, length};
    code = (code << 6) | (byte & 0x3Fu);
    lead.low = 0x80;
    lead.high = 0xBF;
  }
  return {code, length};
}

void AppendUtf16(std::wstring& out, char32_t code) {
  if (code < 0x10000) {
    out.push_back(static_cast<wchar_t>(code));
    return;
  }
  code -= 0x10000;
  out.push_back(static_cast<wchar_t>(0xD800 + (code >> 10)));
  out.push_back(static_cast<wchar_t>(0xDC00 + (code & 0x3FF)));
}

void AppendUtf8(std::string& out, char32_t code) {
  auto push = [&out](char32_t value) { out.push_back(static_cast<char>(value & 0xFF)); };
  if (code < 0x80) {
    push(code);
  } else if (code < 0x800) {
    push(0xC0 | (code >> 6));
    push(0x80 | (code & 0x3F));
  } else if (code < 0x10000) {
    push(0xE0 | (code >> 12));
    push(0x80 | ((code >> 6) & 0x3F));
    push(0x80 | (code & 0x3F));
  } else {
    push(0xF0 | (code >> 18));
    push(0x80 | ((code >> 12) & 0x3F));
    push(0x80 | ((code >> 6) & 0x3F));
    push(0x80 | (code & 0x3F));
  }
}

// wchar_t is signed and 32 bits wide on some targets; going through uint32_t keeps a stray
// negative or wide value out of the UTF-16 ranges instead of aliasing into them.
uint32_t UnitAt(std::wstring_view text, size_t i) { return static_cast<uint32_t>(text[i]); }
bool IsHighSurrogate(uint32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool IsLowSurrogate(uint32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

}  // namespace

std::wstring Utf8ToWide(std::string_view text) {
  std::wstring out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    const Decoded decoded = DecodeAt(text, i);
    AppendUtf16(out, decoded.code);
    i += decoded.length;
  }
  return out;
}

std::string WideToUtf8(std::wstring_view text) {
  std::string out;
  out.reserve(text.size() * 3);
  for (size_t i = 0; i < text.size(); ++i) {
    const uint32_t unit = UnitAt(text, i);
    if (IsHighSurrogate(unit) && i + 1 < text.size() && IsLowSurrogate(UnitAt(text, i + 1))) {
      AppendUtf8(out, 0x10000 + ((unit - 0xD800) << 10) + (UnitAt(text, i + 1) - 0xDC00));
      ++i;
    } else if (unit > 0xFFFF || IsHighSurrogate(unit) || IsLowSurrogate(unit)) {
      AppendUtf8(out, kReplacement);
    } else {
      AppendUtf8(out, unit);
    }
  }
  return out;
}

}  // namespace qn
