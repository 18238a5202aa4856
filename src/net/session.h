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

#include "core/settings.h"
#include "net/catalogue.h"
#include "net/http_client.h"

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
  std::string LastError() const;
  bool SignIn(const std::string& email, const std::string& password, std::string& error);
  bool Register(const std::string& email, const std::string& password, std::string& error);
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
  void LookupGameAsync(const std::string& key, HWND window, UINT message);

  // Returns at once. Each event of the answer arrives as `message_id` to `window` with a heap
  // std::string (the receiver deletes it) in WPARAM; WPARAM 0 comes once, last, on every
  // outcome. A question asked while a turn runs is dropped.
  void StreamChatAsync(const std::string& game, const std::string& message, HWND window,
                       unsigned message_id);
  // The running turn stops at its next read and still posts its end mark.
  void CancelStream();
  // Cancels the turn and waits for both workers. The destructor runs it too, since the
  // workers use the client; a later turn or lookup may start afresh.
  void Shutdown();

 private:
  void RecordError(const std::string& text);
  void RemovePlaintextPassword();
  bool MigratePassword();
  bool FinishSignIn(const std::string& body, const std::string& email, const wchar_t* log_format,
                    std::string& error);
  void StoreRefreshedTokens(const TokenReply& tokens);
  void RejectRefreshToken(int32_t status, const std::string& refused);
  std::optional<std::vector<GameEntry>> FetchGames(DWORD timeout_ms);
  std::vector<GameEntry> CachedGames(bool service_was_asked);
  void RunLookup(const std::string& key, HWND window, UINT message) noexcept;
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
  std::string last_error_;
  std::vector<GameEntry> games_;
  bool games_stale_ = false;

  std::atomic<bool> lookup_running_{false};
  std::thread lookup_thread_;  // touched only by the thread that calls LookupGameAsync

  std::atomic<bool> streaming_{false};
  std::atomic<bool> cancel_requested_{false};
  std::thread chat_thread_;  // touched only by the thread that calls StreamChatAsync
};

}  // namespace qn
