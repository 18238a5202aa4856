// Arbitrary bytes through the catalogue, progress and token readers. Memory errors are the
// harness's to find (ASan/UBSan); the checks are properties that hold for any input.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
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

// Whatever the reply, a token is either missing or usable: an empty one would be sent as
// "Bearer " and stored as if signed in.
void CheckTokenReply(std::string_view text) {
  const qn::TokenReply reply = qn::ParseTokenReply(ExactCopy(text).view());
  FUZZ_CHECK(!reply.access_token || !reply.access_token->empty());
  FUZZ_CHECK(!reply.refresh_token || !reply.refresh_token->empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  CheckCatalogue(text);
  CheckCatalogueRoundTrip(text);
  qn::ParseMemoryRecord(ExactCopy(text).view());
  CheckTokenReply(text);
  return 0;
}
