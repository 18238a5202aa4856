// Arbitrary bytes through every JSON reader and writer, the UTF converters and the settings
// text. Memory errors are the harness's to find (ASan/UBSan); the checks are the properties no
// table can sweep.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "core/json.h"
#include "core/settings.h"
#include "core/utf.h"
#include "fuzz_support.h"

namespace {

using qn::kJsonNotFound;

// Keys worth trying: the ones the seeds use, plus whatever sits between the input's first
// two quotes, so that the fuzzer can reach matches on its own.
std::vector<std::string> KeysFor(std::string_view text) {
  std::vector<std::string> keys = {"type", "text", "k", "ok", "n", "tags", ""};
  const size_t open = text.find('"');
  const size_t close = open == std::string_view::npos ? open : text.find('"', open + 1);
  if (close != std::string_view::npos && close - open <= 33) {
    keys.emplace_back(text.substr(open + 1, close - open - 1));
  }
  return keys;
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
  FUZZ_CHECK(found <= text.size() && text[found - 1] == ':');
  CheckParseString(text, found);
  if (!items.empty()) FUZZ_CHECK(text[qn::JsonSkipSpace(text, found)] == '[');
  // Numbers read as the C library reads them, saturation included.
  if (number) {
    const std::string value(text.substr(qn::JsonSkipSpace(text, found)));
    FUZZ_CHECK(*number == std::strtoll(value.c_str(), nullptr, 10));
  }
}

void CheckEscapeRoundTrip(std::string_view raw, std::string_view tail) {
  const std::string escaped = qn::JsonEscape(raw);
  for (const char c : escaped) FUZZ_CHECK(static_cast<unsigned char>(c) >= 0x20);
  const std::string literal = "\"" + escaped + "\"";
  size_t end = 0;
  FUZZ_CHECK(qn::JsonParseString(literal + std::string(tail), 0, &end) == std::string(raw));
  FUZZ_CHECK(end == literal.size());
}

// Well-formed UTF-8 comes back byte for byte; anything else settles after one pass.
void CheckUtf(std::string_view bytes) {
  const std::wstring wide = qn::Utf8ToWide(bytes);
  FUZZ_CHECK(wide.size() <= bytes.size());
  const std::string utf8 = qn::WideToUtf8(wide);
  FUZZ_CHECK(qn::Utf8ToWide(utf8) == wide);
  if (wide.find(static_cast<wchar_t>(0xFFFD)) == std::wstring::npos) FUZZ_CHECK(utf8 == bytes);
}

// Numbers in the settings land on the nearer end of their range, however far past it they lie,
// and the file written from the settings reads back as the same settings.
void CheckSettings(std::string_view text) {
  const qn::Settings read = qn::ParseSettingsText(text);
  const std::tuple<const char*, int32_t, int64_t, int64_t> clamped[] = {
      {"drawer_pct", read.drawer_pct, 20, 50},
      {"blur_pct", read.blur_pct, 0, 100},
      {"sound_volume", read.sound_volume, 0, 100}};
  for (const auto& [key, field, low, high] : clamped) {
    if (const std::optional<int64_t> value = qn::JsonGetInt(text, key)) {
      FUZZ_CHECK(field == std::clamp(*value, low, high));
    }
  }
  const std::string file = qn::SettingsFileText(read);
  FUZZ_CHECK(qn::SettingsFileText(qn::ParseSettingsText(file)) == file);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const ExactCopy copy(std::string_view(reinterpret_cast<const char*>(data), size));
  const std::string_view text = copy.view();

  for (const std::string& key : KeysFor(text)) CheckGetters(text, key);
  for (const size_t index : {size_t{0}, size / 3, size / 2, size, size + 1, kJsonNotFound}) {
    CheckParseString(text, index);
  }
  CheckEscapeRoundTrip(text, text);
  CheckUtf(text);
  CheckSettings(text);
  return 0;
}
