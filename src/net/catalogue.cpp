#include "net/catalogue.h"

#include <limits>
#include <utility>

#include "core/json.h"

namespace qn {
namespace {

// Index of the "}" that closes the object opening at `open`, or npos when the text ends
// first. Braces inside strings do not count, and a backslash there hides the next byte, so
// an escaped quote cannot end a string early.
size_t MatchingBrace(std::string_view text, size_t open) {
  size_t depth = 0;
  bool in_string = false;
  for (size_t i = open; i < text.size(); ++i) {
    const char c = text[i];
    if (in_string) {
      if (c == '\\') {
        ++i;
      } else if (c == '"') {
        in_string = false;
      }
    } else if (c == '"') {
      in_string = true;
    } else if (c == '{') {
      ++depth;
    } else if (c == '}' && --depth == 0) {
      return i;
    }
  }
  return std::string_view::npos;
}

GameEntry ParseGameObject(std::string_view object) {
  GameEntry entry;
  entry.slug = JsonGetString(object, "slug").value_or("");
  entry.display_name = JsonGetString(object, "display_name").value_or("");
  if (entry.display_name.empty()) entry.display_name = JsonGetString(object, "title").value_or("");
  entry.has_index = JsonGetBool(object, "has_index").value_or(false);
  return entry;
}

// Out-of-range ordinals saturate rather than wrap, so a huge stage never reads as an early one.
int32_t ClampToInt32(int64_t value) {
  if (value > std::numeric_limits<int32_t>::max()) return std::numeric_limits<int32_t>::max();
  if (value < std::numeric_limits<int32_t>::min()) return std::numeric_limits<int32_t>::min();
  return static_cast<int32_t>(value);
}

void AppendField(std::string& body, std::string_view key, std::string_view value) {
  if (body.size() > 1) body += ',';
  body += '"';
  body += key;
  body += "\":";
  body += value;
}

std::string Quoted(std::string_view text) { return "\"" + JsonEscape(text) + "\""; }

std::optional<std::string> NonEmptyString(std::string_view text, std::string_view key) {
  std::optional<std::string> value = JsonGetString(text, key);
  if (value && value->empty()) return std::nullopt;
  return value;
}

}  // namespace

void GameTable::StoreLive(std::vector<GameEntry> games) {
  games_ = std::move(games);
  stale_ = false;
}

std::optional<std::vector<GameEntry>> GameTable::Held(bool service_failed) {
  if (games_.empty()) return std::nullopt;
  if (service_failed) stale_ = true;
  return games_;
}

std::vector<GameEntry> GameTable::FillFromCache(std::vector<GameEntry> cached) {
  if (games_.empty()) {
    games_ = std::move(cached);
    stale_ = true;
  }
  return games_;
}

std::vector<GameEntry> ParseCatalogue(std::string_view text) {
  std::vector<GameEntry> entries;
  for (size_t open = text.find('{'); open != std::string_view::npos;) {
    const size_t close = MatchingBrace(text, open);
    if (close == std::string_view::npos) break;
    GameEntry entry = ParseGameObject(text.substr(open, close - open + 1));
    if (!entry.slug.empty()) entries.push_back(std::move(entry));
    open = text.find('{', close + 1);
  }
  return entries;
}

MemoryRecord ParseMemoryRecord(std::string_view text) {
  MemoryRecord record;
  record.loaded = true;
  record.stage = JsonGetString(text, "stage").value_or("");
  record.stage_ordinal = ClampToInt32(JsonGetInt(text, "stage_ordinal").value_or(0));
  record.directness = JsonGetString(text, "directness").value_or("");
  record.spoilers_ok = JsonGetBool(text, "spoilers_ok").value_or(false);
  record.revision = JsonGetInt(text, "revision").value_or(0);
  return record;
}

std::string MemoryPatchBody(const MemoryPatch& patch) {
  std::string body = "{";
  if (patch.stage) AppendField(body, "stage", Quoted(*patch.stage));
  if (patch.stage_ordinal) AppendField(body, "stage_ordinal", std::to_string(*patch.stage_ordinal));
  if (patch.directness) AppendField(body, "directness", Quoted(*patch.directness));
  if (patch.spoilers_ok) AppendField(body, "spoilers_ok", *patch.spoilers_ok ? "true" : "false");
  body += '}';
  return body;
}

std::string MemoryPath(std::string_view slug) { return "/v1/memory/" + std::string(slug); }

std::string NewPlaythroughPath(std::string_view slug) {
  return MemoryPath(slug) + "/new-playthrough";
}

TokenReply ParseTokenReply(std::string_view text) {
  return {NonEmptyString(text, "access_token"), NonEmptyString(text, "refresh_token")};
}

// The body is the password's only copy, which the caller wipes after the request: it is
// reserved whole up front (six bytes is the widest escape of one byte), so no reallocation
// leaves a piece of the password in freed memory, and each byte is escaped on its own, in a
// temporary small enough to stay out of the heap.
std::string CredentialsBody(std::string_view email, std::string_view password) {
  constexpr size_t kWidestEscape = 6;
  std::string body;
  body.reserve(kWidestEscape * (email.size() + password.size()) + 64);
  body += R"({"email":")";
  body += JsonEscape(email);
  body += R"(","password":")";
  for (const char byte : password) body += JsonEscape(std::string_view(&byte, 1));
  body += R"(","device_label":"windows-client"})";
  return body;
}

std::string RefreshTokenBody(std::string_view refresh_token) {
  return JsonWriteFlatObject({{"refresh_token", std::string(refresh_token)}});
}

}  // namespace qn
