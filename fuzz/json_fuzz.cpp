// Arbitrary bytes through every JSON reader and writer and the UTF converters. Besides
// memory errors (the harness runs under ASan/UBSan) it checks properties that hold for any
// input, so that a lenient reader cannot quietly drift into a wrong one.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fuzz_support.h"
#include "core/json.h"
#include "core/utf.h"

namespace {

using qn::kJsonNotFound;

bool IsJsonSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// Keys worth trying: the ones the seeds use, plus whatever sits between the input's first
// two quotes, so that the fuzzer can reach matches on its own.
std::vector<std::string> KeysFor(std::string_view text) {
  std::vector<std::string> keys = {"type", "text", "k", "ok", "n", "tags", ""};
  const size_t open = text.find('"');
  if (open != std::string_view::npos) {
    const size_t close = text.find('"', open + 1);
    if (close != std::string_view::npos && close - open <= 33) {
      keys.emplace_back(text.substr(open + 1, close - open - 1));
    }
  }
  return keys;
}

void CheckSkipSpace(std::string_view text, size_t index) {
  const size_t at = qn::JsonSkipSpace(text, index);
  FUZZ_CHECK(at <= text.size() && at >= std::min(index, text.size()));
  FUZZ_CHECK(at == text.size() || !IsJsonSpace(text[at]));
  for (size_t i = index; i < at; ++i) FUZZ_CHECK(IsJsonSpace(text[i]));
}

// A decoded literal never outgrows its body, ends on a quote, and decodes the same when cut
// out of its surroundings (nothing past the closing quote may influence it).
void CheckParseString(std::string_view text, size_t index) {
  size_t end = kJsonNotFound;
  const std::optional<std::string> value = qn::JsonParseString(text, index, &end);
  if (!value) {
    FUZZ_CHECK(end == kJsonNotFound);
    return;
  }
  const size_t quote = qn::JsonSkipSpace(text, index);
  FUZZ_CHECK(end <= text.size() && end >= quote + 2);
  FUZZ_CHECK(text[quote] == '"' && text[end - 1] == '"');
  FUZZ_CHECK(value->size() <= end - quote - 2);
  size_t alone_end = 0;
  FUZZ_CHECK(qn::JsonParseString(text.substr(quote, end - quote), 0, &alone_end) == value);
  FUZZ_CHECK(alone_end == end - quote);
}

// The found index sits just past a colon that follows "key" with only spaces and tabs
// between them.
void CheckKeyIndex(std::string_view text, std::string_view key, size_t found) {
  FUZZ_CHECK(found <= text.size() && found >= key.size() + 3);
  FUZZ_CHECK(text[found - 1] == ':');
  size_t close = found - 2;
  while (close > 0 && (text[close] == ' ' || text[close] == '\t')) --close;
  FUZZ_CHECK(text[close] == '"' && close >= key.size() + 1);
  FUZZ_CHECK(text[close - key.size() - 1] == '"');
  FUZZ_CHECK(text.substr(close - key.size(), key.size()) == key);
}

std::optional<int64_t> StrtollOracle(std::string_view text, size_t value) {
  if (value >= text.size()) return std::nullopt;
  if (text[value] != '-' && (text[value] < '0' || text[value] > '9')) return std::nullopt;
  const std::string copy(text.substr(value));  // strtoll needs a terminator
  return static_cast<int64_t>(std::strtoll(copy.c_str(), nullptr, 10));
}

std::optional<bool> BoolOracle(std::string_view text, size_t value) {
  if (value > text.size()) return std::nullopt;
  const std::string_view rest = text.substr(value);
  if (rest.substr(0, 4) == "true") return true;
  if (rest.substr(0, 5) == "false") return false;
  return std::nullopt;
}

void CheckGetters(std::string_view text, std::string_view key) {
  const size_t found = qn::JsonFindKey(text, key);
  const std::optional<std::string> string = qn::JsonGetString(text, key);
  const std::optional<bool> flag = qn::JsonGetBool(text, key);
  const std::optional<int64_t> number = qn::JsonGetInt(text, key);
  const std::vector<std::string> items = qn::JsonGetStringArray(text, key);
  if (found == kJsonNotFound) {
    FUZZ_CHECK(!string && !flag && !number && items.empty());
    return;
  }
  CheckKeyIndex(text, key, found);
  CheckParseString(text, found);
  FUZZ_CHECK(string == qn::JsonParseString(text, found));
  const size_t value = qn::JsonSkipSpace(text, found);
  FUZZ_CHECK(flag == BoolOracle(text, value));
  FUZZ_CHECK(number == StrtollOracle(text, value));
  if (!items.empty()) FUZZ_CHECK(text[value] == '[');
}

void CheckEscapeRoundTrip(std::string_view raw, std::string_view tail) {
  const std::string escaped = qn::JsonEscape(raw);
  for (const char c : escaped) FUZZ_CHECK(static_cast<unsigned char>(c) >= 0x20);
  const std::string literal = "\"" + escaped + "\"";
  size_t end = 0;
  FUZZ_CHECK(qn::JsonParseString(literal + std::string(tail), 0, &end) == std::string(raw));
  FUZZ_CHECK(end == literal.size());
}

// Pairs cut from the input at NUL bytes. Keys lose quotes and backslashes (the writer trusts
// its keys), then every key must read back as the value of its first pair.
void CheckFlatObject(std::string_view text) {
  std::vector<std::pair<std::string, std::string>> pairs;
  std::vector<std::string> parts;
  for (size_t start = 0; start <= text.size() && parts.size() < 16;) {
    const size_t stop = std::min(text.find('\0', start), text.size());
    parts.emplace_back(text.substr(start, stop - start));
    start = stop + 1;
  }
  for (size_t i = 0; i + 1 < parts.size(); i += 2) {
    std::string key;
    for (const char c : parts[i]) {
      if (c != '"' && c != '\\') key.push_back(c);
    }
    pairs.emplace_back(std::move(key), parts[i + 1]);
  }
  const std::string object = qn::JsonWriteFlatObject(pairs);
  for (size_t i = 0; i < pairs.size(); ++i) {
    size_t first = 0;
    while (pairs[first].first != pairs[i].first) ++first;
    FUZZ_CHECK(qn::JsonGetString(object, pairs[i].first) == pairs[first].second);
    FUZZ_CHECK(qn::JsonGetStringArray(object, pairs[i].first).empty());
  }
}

std::wstring WithoutLoneSurrogates(const std::wstring& text) {
  std::wstring out;
  for (size_t i = 0; i < text.size(); ++i) {
    const auto unit = static_cast<uint32_t>(text[i]);
    const bool high = unit >= 0xD800 && unit <= 0xDBFF;
    const bool low = unit >= 0xDC00 && unit <= 0xDFFF;
    const bool paired = high && i + 1 < text.size() &&
                        static_cast<uint32_t>(text[i + 1]) >= 0xDC00 &&
                        static_cast<uint32_t>(text[i + 1]) <= 0xDFFF;
    if (paired) {
      out.append(text, i, 2);
      ++i;
    } else {
      out.push_back(high || low ? static_cast<wchar_t>(0xFFFD) : text[i]);
    }
  }
  return out;
}

void CheckUtf(std::string_view bytes) {
  const std::wstring wide = qn::Utf8ToWide(bytes);
  FUZZ_CHECK(wide.size() <= bytes.size());
  const std::string utf8 = qn::WideToUtf8(wide);
  FUZZ_CHECK(qn::Utf8ToWide(utf8) == wide);
  if (wide.find(static_cast<wchar_t>(0xFFFD)) == std::wstring::npos) FUZZ_CHECK(utf8 == bytes);

  std::wstring units;  // the same bytes read as little-endian UTF-16
  for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
    const auto low = static_cast<unsigned char>(bytes[i]);
    const auto high = static_cast<unsigned char>(bytes[i + 1]);
    units.push_back(static_cast<wchar_t>(low | (high << 8)));
  }
  const std::string from_units = qn::WideToUtf8(units);
  FUZZ_CHECK(qn::Utf8ToWide(from_units) == WithoutLoneSurrogates(units));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const ExactCopy copy(std::string_view(reinterpret_cast<const char*>(data), size));
  const std::string_view text = copy.view();

  for (const std::string& key : KeysFor(text)) CheckGetters(text, key);
  for (const size_t index : {size_t{0}, size / 3, size / 2, size, size + 1, kJsonNotFound}) {
    CheckSkipSpace(text, index);
    CheckParseString(text, index);
  }
  CheckEscapeRoundTrip(text, text);
  CheckFlatObject(text);
  CheckUtf(text);
  return 0;
}
