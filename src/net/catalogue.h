#pragma once
// The service's game catalogue and progress records as plain values, and the request bodies
// of the account and progress endpoints. No platform code: the parsers also run natively
// under sanitizers and the fuzzer.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qn {

struct GameEntry {
  std::string slug;  // never empty in a parsed catalogue
  std::string display_name;
  bool has_index = false;  // only indexed games have a progress record worth fetching

  bool operator==(const GameEntry&) const = default;
};

struct MemoryRecord {
  bool loaded = false;
  std::string stage;
  int32_t stage_ordinal = 0;
  std::string directness;
  bool spoilers_ok = false;
  int64_t revision = 0;

  bool operator==(const MemoryRecord&) const = default;
};

// The fields a progress change sends; absent ones are left as the service has them.
struct MemoryPatch {
  std::optional<std::string> stage = std::nullopt;
  std::optional<int32_t> stage_ordinal = std::nullopt;
  std::optional<std::string> directness = std::nullopt;
  std::optional<bool> spoilers_ok = std::nullopt;

  bool empty() const { return !stage && !stage_ordinal && !directness && !spoilers_ok; }
};

struct TokenReply {
  std::optional<std::string> access_token;   // absent also when empty
  std::optional<std::string> refresh_token;  // absent also when empty
};

// The catalogue the session holds, and whether it may be out of date (read from games.json,
// or kept after the service failed to answer). Plain values: the session locks around it,
// and reads games.json between two locked calls, with the lock released.
class GameTable {
 public:
  // A live reply replaces the table and makes it fresh.
  void StoreLive(std::vector<GameEntry> games);
  // The table, when one is held; a request to the service that just failed marks it stale.
  std::optional<std::vector<GameEntry>> Held(bool service_failed);
  // Fills only a table still empty: one stored while the file was being read came from the
  // service and is newer than the file.
  std::vector<GameEntry> FillFromCache(std::vector<GameEntry> cached);
  bool stale() const { return stale_; }

 private:
  std::vector<GameEntry> games_;
  bool stale_ = false;
};

// Every flat object of the text in order, wherever it sits, without validating the text
// around it. A reply wrapped in an outer object therefore reads as one entry without a slug
// and yields nothing: the service sends a bare array.
std::vector<GameEntry> ParseCatalogue(std::string_view text);

// A 200 reply of the memory endpoint; absent or mistyped keys keep their defaults.
MemoryRecord ParseMemoryRecord(std::string_view text);

// {"stage":..,"stage_ordinal":..,"directness":..,"spoilers_ok":..} with only the given fields,
// always in that order, no white space; "{}" for an empty patch.
std::string MemoryPatchBody(const MemoryPatch& patch);

// Slugs go into the path exactly as the service spelled them: it matches them unencoded.
std::string MemoryPath(std::string_view slug);
std::string NewPlaythroughPath(std::string_view slug);

TokenReply ParseTokenReply(std::string_view text);
std::string CredentialsBody(std::string_view email, std::string_view password);
std::string RefreshTokenBody(std::string_view refresh_token);

}  // namespace qn
