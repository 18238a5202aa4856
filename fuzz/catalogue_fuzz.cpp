// Arbitrary bytes through the catalogue, progress and token readers. Memory errors are the
// harness's to find (ASan/UBSan); the checks are properties that hold for any input.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/json.h"
#include "fuzz_support.h"
#include "net/catalogue.h"

namespace {

std::vector<qn::GameEntry> Parse(std::string_view text) {
  return qn::ParseCatalogue(ExactCopy(text).view());
}

// No entry without a slug, never more entries than opening braces, and any prefix of the text
// yields a prefix of the entries.
void CheckCatalogue(std::string_view text) {
  const std::vector<qn::GameEntry> entries = Parse(text);
  FUZZ_CHECK(entries.size() <= static_cast<size_t>(std::count(text.begin(), text.end(), '{')));
  for (const qn::GameEntry& entry : entries) FUZZ_CHECK(!entry.slug.empty());
  for (const size_t cut : {text.size() / 2, text.size() * 3 / 4, text.size() - text.size() / 8}) {
    const std::vector<qn::GameEntry> part = Parse(text.substr(0, cut));
    FUZZ_CHECK(part.size() <= entries.size());
    for (size_t i = 0; i < part.size(); ++i) FUZZ_CHECK(part[i] == entries[i]);
  }
}

std::vector<std::string> SplitAtNul(std::string_view text, size_t most) {
  std::vector<std::string> parts;
  for (size_t start = 0; start <= text.size() && parts.size() < most;) {
    const size_t stop = std::min(text.find('\0', start), text.size());
    parts.emplace_back(text.substr(start, stop - start));
    start = stop + 1;
  }
  return parts;
}

// Entries cut from the input, written as the service would write them, must read back whole.
void CheckCatalogueRoundTrip(std::string_view text) {
  const std::vector<std::string> parts = SplitAtNul(text, 24);
  std::vector<qn::GameEntry> written;
  std::string json = "[";
  for (size_t i = 0; i + 1 < parts.size(); i += 2) {
    const bool indexed = (parts[i].size() & 1) != 0;
    if (json.size() > 1) json += ",";
    json += "{\"slug\":\"" + qn::JsonEscape(parts[i]) + "\",\"title\":\"" +
            qn::JsonEscape(parts[i + 1]) + "\",\"has_index\":" + (indexed ? "true" : "false") + "}";
    if (!parts[i].empty()) written.push_back({parts[i], parts[i + 1], indexed});
  }
  json += "]";
  FUZZ_CHECK(Parse(json) == written);
}

// A record and a token reply written as the service writes them, from values the input
// chooses (two 64-bit numbers, a flag byte, then two strings), read back: numbers of any size,
// the ordinal saturated to 32 bits, and an empty token read as none: taken, it would go out as
// "Bearer " and be stored as if signed in.
void CheckRepliesRoundTrip(std::string_view text) {
  if (text.size() < 17) return;
  int64_t ordinal = 0, revision = 0;
  std::memcpy(&ordinal, text.data(), 8);
  std::memcpy(&revision, text.data() + 8, 8);
  const bool spoilers = (text[16] & 1) != 0;
  std::vector<std::string> words = SplitAtNul(text.substr(17), 2);
  words.resize(2);
  const std::string a = qn::JsonEscape(words[0]), b = qn::JsonEscape(words[1]);
  const std::string record = R"({"stage":")" + a + R"(","stage_ordinal":)" +
                             std::to_string(ordinal) + R"(,"directness":")" + b +
                             R"(","spoilers_ok":)" + (spoilers ? "true" : "false") +
                             ",\"revision\":" + std::to_string(revision) + "}";
  const auto saturated = static_cast<int32_t>(std::clamp<int64_t>(ordinal, INT32_MIN, INT32_MAX));
  FUZZ_CHECK(qn::ParseMemoryRecord(ExactCopy(record).view()) ==
             (qn::MemoryRecord{true, words[0], saturated, words[1], spoilers, revision}));
  const qn::TokenReply tokens =
      qn::ParseTokenReply(R"({"access_token":")" + a + R"(","refresh_token":")" + b + "\"}");
  for (const auto& [token, word] :
       {std::pair(tokens.access_token, words[0]), std::pair(tokens.refresh_token, words[1])}) {
    FUZZ_CHECK(token == (word.empty() ? std::nullopt : std::optional<std::string>(word)));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  CheckCatalogue(text);
  CheckCatalogueRoundTrip(text);
  qn::ParseMemoryRecord(ExactCopy(text).view());
  CheckRepliesRoundTrip(text);
  return 0;
}
