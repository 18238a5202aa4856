// Arbitrary bytes through the catalogue and progress readers and the request body writers.
// Besides memory errors (the harness runs under ASan/UBSan) it checks properties that hold
// for any input: what the writers produce must read back exactly, and the catalogue reader
// must stay a single left-to-right pass whose output depends only on the bytes it has seen.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz_support.h"
#include "core/json.h"
#include "net/catalogue.h"

namespace {

std::vector<qn::GameEntry> Parse(std::string_view text) {
  return qn::ParseCatalogue(ExactCopy(text).view());
}

// No entry without a slug, never more entries than opening braces, and any prefix of the text
// yields a prefix of the entries.
void CheckCatalogue(std::string_view text) {
  const std::vector<qn::GameEntry> entries = Parse(text);
  size_t braces = 0;
  for (const char c : text) braces += c == '{' ? 1 : 0;
  FUZZ_CHECK(entries.size() <= braces);
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

void CheckMemoryRecord(std::string_view text) {
  const qn::MemoryRecord record = qn::ParseMemoryRecord(ExactCopy(text).view());
  FUZZ_CHECK(record.loaded);
  if (record.stage_ordinal == 0) return;
  FUZZ_CHECK(qn::JsonGetInt(text, "stage_ordinal").has_value());
}

// Fields taken from the input; the body must be canonical (the fixed key order, nothing else)
// and read back as the same values.
void CheckPatchBody(std::string_view text) {
  const std::vector<std::string> parts = SplitAtNul(text, 4);
  const uint8_t mask = text.empty() ? 0 : static_cast<uint8_t>(text[0]);
  qn::MemoryPatch patch;
  if ((mask & 1) != 0) patch.stage = parts[0];
  if ((mask & 2) != 0) patch.stage_ordinal = static_cast<int32_t>(text.size() * 2654435761u);
  if ((mask & 4) != 0) patch.directness = parts.size() > 1 ? parts[1] : "";
  if ((mask & 8) != 0) patch.spoilers_ok = (mask & 16) != 0;
  const std::string body = qn::MemoryPatchBody(patch);
  FUZZ_CHECK(body.front() == '{' && body.back() == '}');
  FUZZ_CHECK(patch.empty() == (body == "{}"));
  const qn::MemoryRecord back = qn::ParseMemoryRecord(body);
  FUZZ_CHECK(back.stage == patch.stage.value_or(""));
  FUZZ_CHECK(back.stage_ordinal == patch.stage_ordinal.value_or(0));
  FUZZ_CHECK(back.directness == patch.directness.value_or(""));
  FUZZ_CHECK(back.spoilers_ok == patch.spoilers_ok.value_or(false));
  FUZZ_CHECK(qn::JsonGetString(body, "stage").has_value() == patch.stage.has_value());
  FUZZ_CHECK(qn::JsonGetString(body, "directness").has_value() == patch.directness.has_value());
}

void CheckTokenReply(std::string_view text) {
  const qn::TokenReply reply = qn::ParseTokenReply(ExactCopy(text).view());
  FUZZ_CHECK(!reply.access_token || !reply.access_token->empty());
  FUZZ_CHECK(!reply.refresh_token || !reply.refresh_token->empty());
  const std::string body = qn::RefreshTokenBody(text);
  FUZZ_CHECK(qn::JsonGetString(body, "refresh_token") == std::string(text));
  const std::vector<std::string> parts = SplitAtNul(text, 2);
  const std::string password = parts.size() > 1 ? parts[1] : "";
  const std::string login = qn::CredentialsBody(parts[0], password);
  FUZZ_CHECK(qn::JsonGetString(login, "email") == parts[0]);
  FUZZ_CHECK(qn::JsonGetString(login, "password") == password);
  FUZZ_CHECK(qn::JsonGetString(login, "device_label") == std::string("windows-client"));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  CheckCatalogue(text);
  CheckCatalogueRoundTrip(text);
  CheckMemoryRecord(text);
  CheckPatchBody(text);
  CheckTokenReply(text);
  return 0;
}
