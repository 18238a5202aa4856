#include <windows.h>

#include <exception>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include "core/data_dir.h"
#include "core/log.h"
#include "core/state_file.h"
#include "net/session.h"

namespace qn {
namespace {

// Short enough that a lookup started by a game switch reports before the player asks.
constexpr DWORD kLookupTimeoutMs = 4000;
// Far above any real catalogue; a larger file is not ours and is not read.
constexpr size_t kMaxCatalogueBytes = 16 * 1024 * 1024;

std::wstring GamesPath() {
  const std::wstring dir = DataDir();
  return dir.empty() ? std::wstring() : dir + L"\\games.json";
}

void TakeProgress(const MemoryRecord& memory, GameLookupResult& result) {
  result.memory_loaded = memory.loaded;
  result.stage = memory.stage;
  result.stage_ordinal = memory.stage_ordinal;
  result.directness = memory.directness;
  result.spoilers_ok = memory.spoilers_ok;
}

// Signed out, nothing was sent and nothing failed that the log should tell.
bool ChangeDone(const std::optional<HttpResponse>& reply, const wchar_t* done_format,
                const wchar_t* failed_format, const std::string& slug) {
  if (!reply) return false;
  if (reply->ok && reply->status == 200) {
    Log(kLogInfo, done_format, slug.c_str());
    return true;
  }
  Log(kLogWarn, failed_format, reply->status);
  return false;
}

}  // namespace

std::vector<GameEntry> Session::GetGames(bool ask_service, DWORD timeout_ms) {
  if (ask_service) {
    if (std::optional<std::vector<GameEntry>> live = FetchGames(timeout_ms)) return *live;
    Log(kLogWarn, L"games lookup unavailable; falling back to the cached table");
  }
  return CachedGames(ask_service);
}

std::optional<std::vector<GameEntry>> Session::FetchGames(DWORD timeout_ms) {
  const std::optional<HttpResponse> reply = SendAuthorized(
      [&](const std::string& token) { return client_.Get("/v1/games", token, timeout_ms); });
  if (!reply || !reply->ok || reply->status != 200) return std::nullopt;
  std::vector<GameEntry> games = ParseCatalogue(reply->body);
  if (games.empty()) return std::nullopt;
  {
    std::lock_guard lock(mutex_);
    games_.StoreLive(games);
  }
  if (const std::wstring path = GamesPath(); !path.empty()) ReplaceStateFile(path, reply->body);
  return games;
}

// A table already in memory is at least as new as games.json, which only ever holds what
// a live fetch also put in memory. The file is read without the lock.
std::vector<GameEntry> Session::CachedGames(bool service_failed) {
  {
    std::lock_guard lock(mutex_);
    if (std::optional<std::vector<GameEntry>> held = games_.Held(service_failed)) return *held;
  }
  const std::wstring path = GamesPath();
  const std::optional<std::string> text =
      path.empty() ? std::nullopt : ReadStateFile(path, kMaxCatalogueBytes);
  std::vector<GameEntry> cached = ParseCatalogue(text.value_or(std::string()));
  std::lock_guard lock(mutex_);
  return games_.FillFromCache(std::move(cached));
}

bool Session::IsCatalogueStale() const {
  std::lock_guard lock(mutex_);
  return games_.stale();
}

MemoryRecord Session::GetMemory(const std::string& slug, DWORD timeout_ms) {
  const std::optional<HttpResponse> reply = SendAuthorized(
      [&](const std::string& token) { return client_.Get(MemoryPath(slug), token, timeout_ms); });
  if (!reply || !reply->ok || reply->status != 200) return {};
  return ParseMemoryRecord(reply->body);
}

// A patch with no fields succeeds without a request: the settings window sends whatever
// changed, and nothing changed is not a failure.
bool Session::PatchMemory(const std::string& slug, const MemoryPatch& patch) {
  if (patch.empty()) return !AccessToken().empty();
  return ChangeDone(SendAuthorized([&](const std::string& token) {
                      return client_.Patch(MemoryPath(slug), MemoryPatchBody(patch), token);
                    }),
                    L"memory patched for %hs", L"memory patch failed (%d)", slug);
}

bool Session::NewPlaythrough(const std::string& slug) {
  return ChangeDone(SendAuthorized([&](const std::string& token) {
                      return client_.Post(NewPlaythroughPath(slug), "{}", token);
                    }),
                    L"progress reset for %hs", L"new playthrough failed (%d)", slug);
}

void Session::LookupGameAsync(const std::string& key, HWND window,
                              PostedMessage<GameLookupResult> message) {
  {
    std::lock_guard lock(mutex_);
    lookup_wanted_ = LookupRequest{key, window, message};
    if (lookup_running_) return;  // the running worker takes it next
    lookup_running_ = true;
  }
  if (lookup_thread_.joinable()) lookup_thread_.join();
  try {
    lookup_thread_ = std::thread(&Session::RunLookups, this);
  } catch (const std::exception& e) {
    {
      std::lock_guard lock(mutex_);
      lookup_running_ = false;
    }
    Log(kLogWarn, L"game lookup thread failed: %hs", e.what());
  }
}

// Runs requests until none is left. A result is posted only when no other game was asked
// for meanwhile: the player has left that game, and its result would only hold the status
// line on the wrong game while the right one waits.
void Session::RunLookups() noexcept {
  while (std::optional<LookupRequest> request = TakeLookupRequest()) {
    try {
      auto result = std::make_unique<GameLookupResult>(Lookup(request->key));
      if (!Superseded(*request)) PostOwned(request->window, request->message, std::move(result));
    } catch (const std::exception& e) {
      Log(kLogWarn, L"game lookup failed: %hs", e.what());
    } catch (...) {
      Log(kLogWarn, L"game lookup failed: %hs", "unknown exception");
    }
  }
}

// Nothing: the worker has stopped, and the next request starts a new one.
std::optional<Session::LookupRequest> Session::TakeLookupRequest() {
  std::lock_guard lock(mutex_);
  std::optional<LookupRequest> request = std::move(lookup_wanted_);
  lookup_wanted_.reset();
  lookup_running_ = request.has_value();
  return request;
}

// A request for the same game asked again meanwhile is answered by this result.
bool Session::Superseded(const LookupRequest& done) {
  std::lock_guard lock(mutex_);
  if (!lookup_wanted_) return false;
  if (lookup_wanted_->key != done.key) return true;
  lookup_wanted_.reset();
  return false;
}

// A stale table means the service just failed to answer the catalogue request; asking it for
// the record as well would only hold the result back for another time-out.
GameLookupResult Session::Lookup(const std::string& key) {
  GameLookupResult result;
  result.key = key;
  result.signed_in = IsSignedIn();
  if (!result.signed_in) return result;
  for (const GameEntry& game : GetGames(true, kLookupTimeoutMs)) {
    if (game.slug != key) continue;
    result.known = true;
    result.display_name = game.display_name;
    result.has_index = game.has_index;
    break;
  }
  result.catalogue_stale = IsCatalogueStale();
  if (result.has_index && !result.catalogue_stale) {
    TakeProgress(GetMemory(key, kLookupTimeoutMs), result);
  }
  return result;
}

}  // namespace qn
