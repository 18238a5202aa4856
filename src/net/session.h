#pragma once
// The signed-in relationship with the service: tokens, account requests, the recorded
// progress and the game catalogue. Called from the UI thread and from worker threads.
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "core/posted_message.h"
#include "core/settings.h"
#include "net/catalogue.h"
#include "net/chat_turn_id.h"
#include "net/async_request_win.h"
#include "net/http_client.h"
#include "net/service_failure.h"

namespace qn {

// The service refused the access token a request carried: it expired or was revoked.
inline bool TokenRefused(const HttpResponse& reply) { return reply.ok && reply.status == 401; }

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
  bool Start() { return Load() && RestoreSession(); }
  // Start's part that stays on this computer: config.json and the client. False when the
  // service's address cannot be used.
  bool Load();
  // Start's part that asks the service; may run on a worker.
  bool RestoreSession();
  // False also when a sign-in or sign-out replaced the refresh token while the request was out.
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

  // The service's client, for requests that need no sign-in (the update check).
  HttpClient& Client() { return client_; }
  Settings CurrentSettings() const;  // never with the legacy password
  // The player's edits; where the service is, and a password an older version left waiting
  // for its migration, stay as they are.
  void ApplySettings(const Settings& edited);

  std::vector<GameEntry> GetGames(bool ask_service, DWORD timeout_ms);
  bool IsCatalogueStale() const;
  MemoryRecord GetMemory(const std::string& slug, DWORD timeout_ms);
  bool PatchMemory(const std::string& slug, const MemoryPatch& patch);
  bool NewPlaythrough(const std::string& slug);
  // Returns at once; the result arrives as `message` to `window`. Asked while a lookup runs,
  // the latest request wins: a lookup for another game is run next and the running one's
  // result is never posted.
  void LookupGameAsync(const std::string& key, HWND window,
                       PostedMessage<GameLookupResult> message);

  // Returns at once with the turn's number, which every message of the turn carries in its
  // LPARAM. Each event of the answer arrives as `event_message` to `window`; a null payload
  // comes once, last, on every outcome. A question asked while a turn runs is dropped and 0
  // returned.
  ChatTurnId StreamChatAsync(const std::string& game, const std::string& message, HWND window,
                             PostedMessage<std::string> event_message);
  // The running turn stops at its next read and still posts its end mark.
  void CancelStream();
  // Cancels the turn and waits for both workers. The destructor runs it too, since the
  // workers use the client; a later turn or lookup may start afresh.
  void Shutdown();

 private:
  struct LookupRequest {
    std::string key;
    HWND window = nullptr;
    PostedMessage<GameLookupResult> message;
  };

  void RecordFailure(ServiceFailure failure);
  void RemovePlaintextPassword();
  bool LegacyPasswordHeld() const;
  void ForgetLegacyPasswordLocked();
  bool MigratePassword();
  ServiceFailure Refresh();
  HttpResponse PostCredentials(const char* path, const std::string& email,
                               const std::string& password);
  ServiceFailure FinishSignIn(const std::string& body, const std::string& email,
                              const wchar_t* log_format);
  bool StoreRefreshedTokens(const TokenReply& tokens, const std::string& used);
  void RejectRefreshToken(int32_t status, const std::string& refused);
  void WriteTokenFile(uint64_t generation, const std::string& refresh_token);
  std::optional<std::vector<GameEntry>> FetchGames(DWORD timeout_ms);
  std::vector<GameEntry> CachedGames(bool service_failed);
  void RunLookups() noexcept;
  std::optional<LookupRequest> TakeLookupRequest();
  bool Superseded(const LookupRequest& done);
  GameLookupResult Lookup(const std::string& key);

  struct ChatStreamJob;
  static void ChatStreamWorker(std::unique_ptr<ChatStreamJob> job) noexcept;
  void RunChatTurn(const ChatStreamJob& job);

  using AuthorizedSend = std::function<HttpResponse(const std::string& token)>;
  using ResendCheck = std::function<bool(const HttpResponse& reply)>;
  // Every request made with the access token goes through here: sent with the token, and
  // sent once more with a new one when `resend` says so of the reply. Nothing when not signed
  // in, in which case nothing was sent.
  std::optional<HttpResponse> SendAuthorized(const AuthorizedSend& send,
                                             const ResendCheck& resend = TokenRefused);
  // The access token to use instead of `refused`; empty when there is none.
  std::string NewerAccessToken(const std::string& refused);
  std::string CopyAccessToken() const;

  HttpClient client_;

  mutable std::mutex mutex_;  // never held across an exchange or a file write
  Settings settings_;
  std::string access_token_;
  std::string refresh_token_;
  uint64_t token_generation_ = 0;  // counts the stores of refresh_token_ that token.bin follows
  ServiceFailure last_failure_ = ServiceFailure::kNone;
  GameTable games_;
  std::optional<LookupRequest> lookup_wanted_;  // the latest request no worker has taken yet
  bool lookup_running_ = false;

  // Orders the writes of token.bin; taken without mutex_, so a slow disk holds up no reader.
  std::mutex token_file_mutex_;
  uint64_t token_file_generation_ = 0;  // the store that token.bin holds now

  std::thread lookup_thread_;  // touched only by the thread that calls LookupGameAsync

  std::atomic<bool> streaming_{false};
  RequestCancel chat_cancel_;
  // Both touched only by the thread that calls StreamChatAsync.
  std::thread chat_thread_;
  ChatTurnId last_turn_ = 0;
};

}  // namespace qn
