#pragma once
// The signed-in relationship with the service: tokens, account requests, the recorded
// progress and the game catalogue. Called from the UI thread and from worker threads.
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "core/posted_message.h"
#include "core/settings.h"
#include "net/catalogue.h"
#include "net/http_client.h"
#include "net/service_failure.h"

namespace qn {

// Posted by the game lookup as WPARAM; the receiving window owns it and deletes it.
struct GameLookupResult {
  std::string key;
  bool signed_in = false;
  bool known = false;
  std::string display_name;
  bool has_index = false;
  bool catalogue_stale = false;
  bool memory_loaded = false;
  std::string stage;
  int32_t stage_ordinal = 0;
  std::string directness;
  bool spoilers_ok = false;
};

class Session {
 public:
  Session() = default;
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Once, on the UI thread: loads config.json, readies the client, restores the session.
  bool Start();
  bool RestoreSession();
  bool RefreshAccessToken();
  // Refreshes first when no access token is held; empty when that fails.
  std::string AccessToken();
  bool IsSignedIn() const;
  ServiceFailure LastFailure() const;
  // kNone on success.
  ServiceFailure SignIn(const std::string& email, const std::string& password);
  ServiceFailure Register(const std::string& email, const std::string& password);
  void SignOut();
  void ClearTokens();
  bool ApplyTokenReply(const std::string& body);

  Settings CurrentSettings() const;  // never with the legacy password

  std::vector<GameEntry> GetGames(bool ask_service, DWORD timeout_ms);
  bool IsCatalogueStale() const;
  MemoryRecord GetMemory(const std::string& slug, DWORD timeout_ms);
  bool PatchMemory(const std::string& slug, const MemoryPatch& patch);
  bool NewPlaythrough(const std::string& slug);
  // Returns at once; the result arrives as `message` to `window`. Dropped, not queued, while
  // a lookup is running.
  void LookupGameAsync(const std::string& key, HWND window, PostedMessage<GameLookupResult> message);

  // Returns at once. Each event of the answer arrives as `event_message` to `window`; a null
  // payload comes once, last, on every outcome. A question asked while a turn runs is dropped
  // and false returned.
  bool StreamChatAsync(const std::string& game, const std::string& message, HWND window,
                       PostedMessage<std::string> event_message);
  // The running turn stops at its next read and still posts its end mark.
  void CancelStream();
  // Cancels the turn and waits for both workers. The destructor runs it too, since the
  // workers use the client; a later turn or lookup may start afresh.
  void Shutdown();

 private:
  void RecordFailure(ServiceFailure failure);
  void RemovePlaintextPassword();
  bool MigratePassword();
  ServiceFailure FinishSignIn(const std::string& body, const std::string& email,
                              const wchar_t* log_format);
  void StoreRefreshedTokens(const TokenReply& tokens);
  void RejectRefreshToken(int32_t status, const std::string& refused);
  std::optional<std::vector<GameEntry>> FetchGames(DWORD timeout_ms);
  std::vector<GameEntry> CachedGames(bool service_was_asked);
  void RunLookup(const std::string& key, HWND window,
                 PostedMessage<GameLookupResult> message) noexcept;
  GameLookupResult Lookup(const std::string& key);

  struct ChatStreamJob;
  static void ChatStreamWorker(std::unique_ptr<ChatStreamJob> job) noexcept;
  void RunChatTurn(const ChatStreamJob& job);
  std::string CopyAccessToken() const;

  HttpClient client_;

  mutable std::mutex mutex_;  // never held across an exchange or a file write
  Settings settings_;
  std::string access_token_;
  std::string refresh_token_;
  ServiceFailure last_failure_ = ServiceFailure::kNone;
  std::vector<GameEntry> games_;
  bool games_stale_ = false;

  std::atomic<bool> lookup_running_{false};
  std::thread lookup_thread_;  // touched only by the thread that calls LookupGameAsync

  std::atomic<bool> streaming_{false};
  std::atomic<bool> cancel_requested_{false};
  std::thread chat_thread_;  // touched only by the thread that calls StreamChatAsync
};

}  // namespace qn
