#include <windows.h>

#include "core/log.h"
#include "core/secret.h"
#include "net/session.h"
#include "net/token_store.h"

namespace qn {
namespace {

constexpr size_t kMinPasswordBytes = 10;

}  // namespace

Session::~Session() { Shutdown(); }

void Session::Shutdown() {
  CancelStream();
  if (chat_thread_.joinable()) chat_thread_.join();
  if (lookup_thread_.joinable()) lookup_thread_.join();
}

bool Session::Load() {
  Settings loaded = LoadSettings();
  const std::wstring base_url = loaded.base_url;
  const bool migrate = loaded.password_migration_pending;
  {
    std::lock_guard lock(mutex_);
    settings_ = std::move(loaded);
  }
  Wipe(loaded.legacy_password);  // a short password stays behind in the moved-from string
  if (!client_.Init(base_url)) return false;
  if (migrate) RemovePlaintextPassword();
  return true;
}

void Session::RemovePlaintextPassword() {
  if (SaveSettings(CurrentSettings())) {
    Log(kLogInfo, L"plaintext password removed from config.json");
  } else {
    Log(kLogError, L"could not rewrite config.json; the password is STILL on disk");
  }
}

bool Session::RestoreSession() {
  std::string stored = TokenStore::Load();
  {
    std::lock_guard lock(mutex_);
    refresh_token_ = std::move(stored);
  }
  const ServiceFailure refresh = Refresh();
  if (refresh == ServiceFailure::kNone) return true;
  if (LegacyPasswordHeld()) return MigratePassword();
  // Offline, the stored token is kept for the next try, and the player is told that the
  // service cannot be reached rather than sent to sign in again.
  RecordFailure(refresh == ServiceFailure::kUnreachable ? refresh : ServiceFailure::kNotSignedIn);
  Log(kLogInfo, L"no stored session; waiting for sign-in from the tray window");
  return false;
}

bool Session::LegacyPasswordHeld() const {
  std::lock_guard lock(mutex_);
  return settings_.password_migration_pending;
}

// Once the session is back, by whatever path, the password an older version left in
// config.json has nothing more to do and must not linger in memory.
void Session::ForgetLegacyPasswordLocked() {
  settings_.password_migration_pending = false;
  Wipe(settings_.legacy_password);
}

// Tried once whatever the outcome: a password the service refuses now will not improve by
// being kept, and it must not outlive this attempt in memory.
bool Session::MigratePassword() {
  std::string email;
  std::string password;
  {
    std::lock_guard lock(mutex_);
    email = settings_.email;
    password = settings_.legacy_password;
  }
  const ServiceFailure failure = SignIn(email, password);
  const bool signed_in = failure == ServiceFailure::kNone;
  Wipe(password);
  {
    std::lock_guard lock(mutex_);
    ForgetLegacyPasswordLocked();
  }
  if (!signed_in) Log(kLogWarn, L"migration sign-in failed: %hs", ServiceFailureText(failure));
  return signed_in;
}

bool Session::RefreshAccessToken() { return Refresh() == ServiceFailure::kNone; }

ServiceFailure Session::Refresh() {
  std::string used;
  {
    std::lock_guard lock(mutex_);
    used = refresh_token_;
  }
  if (used.empty()) return ServiceFailure::kNotSignedIn;
  const HttpResponse reply = client_.Post("/v1/auth/refresh", RefreshTokenBody(used), {});
  if (!reply.ok) {
    std::lock_guard lock(mutex_);
    // After a sign-out meanwhile, "not signed in" stays the truer word.
    if (refresh_token_ == used) last_failure_ = ServiceFailure::kUnreachable;
    return ServiceFailure::kUnreachable;
  }
  if (reply.status != 200) {
    RejectRefreshToken(reply.status, used);
    return ServiceFailure::kNotSignedIn;
  }
  const TokenReply tokens = ParseTokenReply(reply.body);
  if (!tokens.access_token) return ServiceFailure::kBadReply;
  if (!StoreRefreshedTokens(tokens, used)) return ServiceFailure::kNotSignedIn;
  Log(kLogInfo, L"access token refreshed");
  return ServiceFailure::kNone;
}

// A sign-out or a sign-in while the request was out replaced the token it used: the reply
// belongs to a session that has ended, and storing it would sign the player back in or mix
// two accounts' tokens.
bool Session::StoreRefreshedTokens(const TokenReply& tokens, const std::string& used) {
  uint64_t generation = 0;
  {
    std::lock_guard lock(mutex_);
    if (refresh_token_ != used) return false;
    access_token_ = *tokens.access_token;
    last_failure_ = ServiceFailure::kNone;
    ForgetLegacyPasswordLocked();
    if (tokens.refresh_token) {
      refresh_token_ = *tokens.refresh_token;
      generation = ++token_generation_;
    }
  }
  if (generation != 0) WriteTokenFile(generation, *tokens.refresh_token);
  return true;
}

// token.bin follows the stores in the order they were made: a write that a later store has
// overtaken is skipped, so a slow save cannot put back a token that a sign-in or a sign-out
// has replaced. An empty token removes the file.
void Session::WriteTokenFile(uint64_t generation, const std::string& refresh_token) {
  std::lock_guard lock(token_file_mutex_);
  if (generation <= token_file_generation_) return;
  token_file_generation_ = generation;
  if (refresh_token.empty()) {
    TokenStore::Remove();
  } else {
    TokenStore::Save(refresh_token);
  }
}

// The player is signed out: the access token goes too, since the service revokes it with
// the refresh token, and keeping it would answer every later request with a 401 instead of
// asking the player to sign in. token.bin stays: the next start tries it again, and a spent
// token is harmless on disk. Only the token that was refused is dropped, not one a sign-in
// stored in the meantime.
void Session::RejectRefreshToken(int32_t status, const std::string& refused) {
  Log(kLogWarn, L"refresh rejected (%d); stored token is spent or revoked", status);
  std::lock_guard lock(mutex_);
  if (refresh_token_ != refused) return;
  refresh_token_.clear();
  access_token_.clear();
  last_failure_ = ServiceFailure::kNotSignedIn;
}

std::string Session::AccessToken() { return NewerAccessToken(std::string()); }

// A token other than the refused one is taken as it is: another thread has refreshed
// meanwhile, or signed the player out. When two refresh at once, the one whose reply is
// stored second finds its refresh token rotated and its reply dropped, and still goes on
// with the token the other stored.
std::string Session::NewerAccessToken(const std::string& refused) {
  if (std::string held = CopyAccessToken(); held != refused) return held;
  Refresh();
  std::string fresh = CopyAccessToken();
  return fresh == refused ? std::string() : fresh;
}

// One refresh at most per request: a token fetched for it just now has spent it already,
// and a new token the service refuses too will not be mended by another.
std::optional<HttpResponse> Session::SendAuthorized(const AuthorizedSend& send,
                                                    const ResendCheck& resend) {
  std::string token = CopyAccessToken();
  const bool fetched = token.empty();
  if (fetched) token = AccessToken();
  if (token.empty()) return std::nullopt;
  HttpResponse reply = send(token);
  if (fetched || !resend(reply)) return reply;
  token = NewerAccessToken(token);
  return token.empty() ? reply : send(token);
}

std::string Session::CopyAccessToken() const {
  std::lock_guard lock(mutex_);
  return access_token_;
}

bool Session::IsSignedIn() const {
  std::lock_guard lock(mutex_);
  return !access_token_.empty();
}

ServiceFailure Session::LastFailure() const {
  std::lock_guard lock(mutex_);
  return last_failure_;
}

void Session::RecordFailure(ServiceFailure failure) {
  std::lock_guard lock(mutex_);
  last_failure_ = failure;
}

Settings Session::CurrentSettings() const {
  Settings copy;
  {
    std::lock_guard lock(mutex_);
    copy = settings_;
  }
  copy.password_migration_pending = false;
  Wipe(copy.legacy_password);
  return copy;
}

void Session::ApplySettings(const Settings& edited) {
  std::lock_guard lock(mutex_);
  Settings kept = edited;
  kept.base_url = settings_.base_url;
  kept.password_migration_pending = settings_.password_migration_pending;
  kept.legacy_password.swap(settings_.legacy_password);
  settings_ = std::move(kept);
}

// The body holding the password is wiped as soon as it has been sent.
HttpResponse Session::PostCredentials(const char* path, const std::string& email,
                                      const std::string& password) {
  std::string body = CredentialsBody(email, password);
  HttpResponse reply = client_.Post(path, body, std::string());
  Wipe(body);
  return reply;
}

ServiceFailure Session::SignIn(const std::string& email, const std::string& password) {
  if (email.empty() || password.empty()) return ServiceFailure::kMissingCredentials;
  const HttpResponse reply = PostCredentials("/v1/auth/login", email, password);
  if (reply.ok && reply.status == 200) {
    return FinishSignIn(reply.body, email, L"signed in as %hs");
  }
  ServiceFailure failure = ServiceFailure::kUnreachable;
  if (reply.ok) {
    failure =
        reply.status == 401 ? ServiceFailure::kWrongCredentials : ServiceFailure::kSignInRefused;
    Log(kLogWarn, L"login returned %d", reply.status);
  }
  RecordFailure(failure);
  return failure;
}

// The same wording for an empty address on purpose: the form shows one hint, not two.
ServiceFailure Session::Register(const std::string& email, const std::string& password) {
  if (email.empty() || password.size() < kMinPasswordBytes) {
    return ServiceFailure::kPasswordTooShort;
  }
  const HttpResponse reply = PostCredentials("/v1/auth/register", email, password);
  if (reply.ok && reply.status == 200) {
    return FinishSignIn(reply.body, email, L"registered and signed in as %hs");
  }
  if (!reply.ok) return ServiceFailure::kUnreachable;
  if (reply.status == 409) return ServiceFailure::kAccountExists;
  Log(kLogWarn, L"register returned %d", reply.status);
  return ServiceFailure::kRegisterRefused;
}

ServiceFailure Session::FinishSignIn(const std::string& body, const std::string& email,
                                     const wchar_t* log_format) {
  if (!ApplyTokenReply(body)) return LastFailure();
  {
    std::lock_guard lock(mutex_);
    settings_.email = email;
  }
  SaveSettings(CurrentSettings());
  Log(kLogInfo, log_format, email.c_str());
  return ServiceFailure::kNone;
}

bool Session::ApplyTokenReply(const std::string& body) {
  const TokenReply tokens = ParseTokenReply(body);
  if (!tokens.access_token || !tokens.refresh_token) {
    RecordFailure(ServiceFailure::kBadReply);
    return false;
  }
  uint64_t generation = 0;
  {
    std::lock_guard lock(mutex_);
    access_token_ = *tokens.access_token;
    refresh_token_ = *tokens.refresh_token;
    last_failure_ = ServiceFailure::kNone;
    ForgetLegacyPasswordLocked();
    generation = ++token_generation_;
  }
  WriteTokenFile(generation, *tokens.refresh_token);
  return true;
}

void Session::SignOut() {
  const std::string access_token = AccessToken();
  std::string refresh_token;
  {
    std::lock_guard lock(mutex_);
    refresh_token = refresh_token_;
  }
  if (!refresh_token.empty()) {
    client_.Post("/v1/auth/logout", RefreshTokenBody(refresh_token), access_token);
  }
  ClearTokens();
  RecordFailure(ServiceFailure::kNotSignedIn);
  Log(kLogInfo, L"signed out");
}

void Session::ClearTokens() {
  uint64_t generation = 0;
  {
    std::lock_guard lock(mutex_);
    access_token_.clear();
    refresh_token_.clear();
    generation = ++token_generation_;
  }
  WriteTokenFile(generation, std::string());
}

}  // namespace qn
