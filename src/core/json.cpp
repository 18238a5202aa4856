#include "core/json.h"

#include <cstdlib>
#include <cstring>
#include <limits>

namespace qn {
namespace {

bool IsJsonSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// True when `"key"` starts at `quote`. Compared in place so that a lookup allocates nothing.
bool QuotedKeyAt(std::string_view text, size_t quote, std::string_view key) {
  const size_t closing = quote + 1 + key.size();
  return closing < text.size() && text[closing] == '"' && text.substr(quote + 1, key.size()) == key;
}

// Only spaces and tabs may sit between a key and its colon: a line break there defeats the
// match on purpose.
size_t ColonAfterKey(std::string_view text, size_t quote, std::string_view key) {
  if (!QuotedKeyAt(text, quote, key)) return kJsonNotFound;
  size_t i = quote + key.size() + 2;
  while (i < text.size() && (text[i] == ' ' || text[i] == '\t')) ++i;
  if (i < text.size() && text[i] == ':') return i + 1;
  return kJsonNotFound;
}

struct KeyScan {
  ptrdiff_t depth = 0;  // never clamped: stray closers push later members out of reach
  bool in_string = false;
  bool escaped = false;

  void StepInString(char c) {
    if (escaped) {
      escaped = false;
    } else if (c == '\\') {
      escaped = true;
    } else if (c == '"') {
      in_string = false;
    }
  }
};

char SimpleEscape(char letter) {
  switch (letter) {
    case 'b':
      return '\b';
    case 'f':
      return '\f';
    case 'n':
      return '\n';
    case 'r':
      return '\r';
    case 't':
      return '\t';
    default:
      return letter;  // '"', '/', '\\' and unknown letters alike stand for themselves
  }
}

// strtoul itself rather than a strict hex reader, so that its leniency is kept exactly: leading
// white space, a sign and "0x" are accepted, reading stops at the first byte that is not a hex
// digit ("00zz" is 0), and a negative number wraps as Windows' 32-bit unsigned long does.
uint32_t ReadHexCode(std::string_view four) {
  char digits[5] = {};
  std::memcpy(digits, four.data(), four.size());
  return static_cast<uint32_t>(std::strtoul(digits, nullptr, 16) & 0xFFFFFFFFul);
}

void PushByte(std::string& out, uint32_t value) {
  out.push_back(static_cast<char>(static_cast<unsigned char>(value & 0xFF)));
}

// Not the converters' UTF-8 encoder: every code at or above 0x800 takes three bytes, so
// surrogate halves are written one by one and never paired, and the wrapped values of
// negative escapes keep only their low bits in the lead byte.
void AppendEscapedCode(std::string& out, uint32_t code) {
  if (code < 0x80) {
    PushByte(out, code);
  } else if (code < 0x800) {
    PushByte(out, 0xC0 | (code >> 6));
    PushByte(out, 0x80 | (code & 0x3F));
  } else {
    PushByte(out, 0xE0 | (code >> 12));
    PushByte(out, 0x80 | ((code >> 6) & 0x3F));
    PushByte(out, 0x80 | (code & 0x3F));
  }
}

// `slash` is a backslash with at least one byte after it. Returns where decoding goes on.
size_t DecodeEscape(std::string_view text, size_t slash, std::string& out) {
  const char letter = text[slash + 1];
  if (letter != 'u') {
    out.push_back(SimpleEscape(letter));
    return slash + 2;
  }
  const size_t digits = slash + 2;
  // A \u cut short by the end of the text is dropped and its digits are kept as plain bytes.
  if (text.size() - digits < 4) return digits;
  AppendEscapedCode(out, ReadHexCode(text.substr(digits, 4)));
  // Six bytes on even when strtoul stopped early, so the skipped bytes may include a quote.
  return slash + 6;
}

// strtoll base 10 from a '-' or a digit, bounded by the view rather than a terminator.
int64_t ReadDecimal(std::string_view text, size_t i) {
  const bool negative = text[i] == '-';
  if (negative) ++i;
  const uint64_t limit = negative ? uint64_t{1} << 63 : (uint64_t{1} << 63) - 1;
  uint64_t magnitude = 0;
  bool overflow = false;
  for (; i < text.size() && IsDigit(text[i]); ++i) {
    const auto digit = static_cast<uint64_t>(text[i] - '0');
    if (magnitude > (limit - digit) / 10) overflow = true;
    if (!overflow) magnitude = magnitude * 10 + digit;
  }
  if (overflow) magnitude = limit;
  if (!negative) return static_cast<int64_t>(magnitude);
  if (magnitude == limit) return std::numeric_limits<int64_t>::min();
  return -static_cast<int64_t>(magnitude);
}

// Start of the value after `key`, white space skipped, or kJsonNotFound at the end of text.
size_t ValueStart(std::string_view text, std::string_view key) {
  const size_t colon_end = JsonFindKey(text, key);
  if (colon_end == kJsonNotFound) return kJsonNotFound;
  const size_t value = JsonSkipSpace(text, colon_end);
  return value < text.size() ? value : kJsonNotFound;
}

// The letter of the two-byte escape for `byte`, or 0 when it has none. Backspace and form
// feed are left to the \u00XX form on purpose.
char ShortEscapeLetter(unsigned char byte) {
  switch (byte) {
    case '\t':
      return 't';
    case '\n':
      return 'n';
    case '\r':
      return 'r';
    case '"':
    case '\\':
      return static_cast<char>(byte);
    default:
      return 0;
  }
}

void AppendEscapedByte(std::string& out, unsigned char byte) {
  static constexpr char kHex[] = "0123456789abcdef";
  if (const char letter = ShortEscapeLetter(byte)) {
    out.push_back('\\');
    out.push_back(letter);
  } else if (byte >= 0x20) {
    out.push_back(static_cast<char>(byte));
  } else {
    out += "\\u00";
    out.push_back(kHex[byte >> 4]);
    out.push_back(kHex[byte & 0x0F]);
  }
}

}  // namespace

size_t JsonFindKey(std::string_view text, std::string_view key) {
  KeyScan scan;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (scan.in_string) {
      scan.StepInString(c);
    } else if (c == '{' || c == '[') {
      ++scan.depth;
    } else if (c == '}' || c == ']') {
      --scan.depth;
    } else if (c == '"') {
      if (scan.depth == 1) {
        const size_t found = ColonAfterKey(text, i, key);
        if (found != kJsonNotFound) return found;
      }
      scan.in_string = true;
    }
  }
  return kJsonNotFound;
}

size_t JsonSkipSpace(std::string_view text, size_t index) {
  size_t i = index;
  while (i < text.size() && IsJsonSpace(text[i])) ++i;
  return i < text.size() ? i : text.size();
}

std::optional<std::string> JsonParseString(std::string_view text, size_t index, size_t* end) {
  size_t i = JsonSkipSpace(text, index);
  if (i >= text.size() || text[i] != '"') return std::nullopt;
  std::string out;
  for (++i; i < text.size();) {
    const char c = text[i];
    if (c == '"') {
      if (end != nullptr) *end = i + 1;
      return out;
    }
    if (c != '\\') {
      out.push_back(c);
      ++i;
    } else if (i + 1 < text.size()) {
      i = DecodeEscape(text, i, out);
    } else {
      return std::nullopt;  // a lone backslash as the last byte
    }
  }
  return std::nullopt;
}

std::optional<std::string> JsonGetString(std::string_view text, std::string_view key) {
  const size_t colon_end = JsonFindKey(text, key);
  if (colon_end == kJsonNotFound) return std::nullopt;
  return JsonParseString(text, colon_end);
}

std::optional<bool> JsonGetBool(std::string_view text, std::string_view key) {
  const size_t value = ValueStart(text, key);
  if (value == kJsonNotFound) return std::nullopt;
  const std::string_view rest = text.substr(value);
  if (rest.starts_with("true")) return true;
  if (rest.starts_with("false")) return false;
  return std::nullopt;
}

// A lone "-" reads as 0, just as strtoll gives 0 when it converts nothing.
std::optional<int64_t> JsonGetInt(std::string_view text, std::string_view key) {
  const size_t value = ValueStart(text, key);
  if (value == kJsonNotFound) return std::nullopt;
  if (text[value] != '-' && !IsDigit(text[value])) return std::nullopt;
  return ReadDecimal(text, value);
}

// Lenient on purpose: commas are optional and may repeat, so only a non-string element or
// the end of the text stops the walk early.
std::vector<std::string> JsonGetStringArray(std::string_view text, std::string_view key) {
  std::vector<std::string> items;
  size_t i = ValueStart(text, key);
  if (i == kJsonNotFound || text[i] != '[') return items;
  for (++i;;) {
    i = JsonSkipSpace(text, i);
    if (i >= text.size() || text[i] == ']') break;
    if (text[i] == ',') {
      ++i;
      continue;
    }
    std::optional<std::string> item = JsonParseString(text, i, &i);
    if (!item) break;
    items.push_back(std::move(*item));
  }
  return items;
}

std::string JsonEscape(std::string_view text) {
  std::string out;
  out.reserve(text.size() + 8);
  for (const char c : text) AppendEscapedByte(out, static_cast<unsigned char>(c));
  return out;
}

std::string JsonWriteFlatObject(const std::vector<std::pair<std::string, std::string>>& pairs) {
  std::string out = "{";
  for (const auto& [key, value] : pairs) {
    if (out.size() > 1) out += ',';
    out += '"';
    out += key;
    out += "\":\"";
    out += JsonEscape(value);
    out += '"';
  }
  out += '}';
  return out;
}

}  // namespace qn
