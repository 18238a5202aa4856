#pragma once
// Accounts and their tokens on top of the store: registration, sign-in, refresh with rotation,
// sign-out and the bearer check. Every call blocks (hashing, the database) and runs on a pool.
#include <functional>
#include <string>
#include <variant>

#include "auth/password.h"
#include "ops/log.h"
#include "store/store.h"

namespace hintwick {

enum class AuthFailure {
  kBadEmail,
  kShortPassword,
  kLongPassword,
  kTaken,
  kWrongCredentials,  // also an unknown e-mail, which must read the same
  kRefused,           // an unknown, expired, revoked or reused token
  kUnavailable,       // the database or the hash's memory failed; logged where it happened
};

template <typename T>
using AuthResult = std::variant<T, AuthFailure>;

struct IssuedTokens {
  std::string access;
  std::string refresh;  // empty when the client keeps the refresh token it has
};

class Accounts {
 public:
  static constexpr std::size_t kMinPassword = 10;
  static constexpr std::size_t kMaxPassword = 1024;  // bounds what one hash is asked to read

  Accounts(Store& store, const PasswordHasher& hasher, TokenLifetimes lifetimes,
           std::function<TimePoint()> now = Clock::now);

  AuthResult<IssuedTokens> Register(const std::string& email, const std::string& password,
                                    const std::string& device_label);
  AuthResult<IssuedTokens> Login(const std::string& email, const std::string& password,
                                 const std::string& device_label);
  AuthResult<IssuedTokens> Refresh(const std::string& refresh_token);
  // Revokes the token's family; unknown tokens are no failure, there is nothing to revoke.
  AuthResult<bool> Logout(const std::string& refresh_token);
  AuthResult<UserId> Authenticate(const std::string& access_token);

  // Lower-cased, or nullopt when it does not look like an address mail could reach.
  static std::optional<std::string> NormalEmail(const std::string& email);

  // The answer of a store call, or nullptr after logging its failure (the text names the call).
  template <typename T>
  static const T* Succeeded(const StoreResult<T>& result);

 private:
  AuthResult<IssuedTokens> StartFamily(UserId user, const std::string& device_label);
  void RehashIfDue(const User& user, const std::string& password);

  Store& store_;
  const PasswordHasher& hasher_;
  TokenLifetimes lifetimes_;
  std::function<TimePoint()> now_;
};

template <typename T>
const T* Accounts::Succeeded(const StoreResult<T>& result) {
  if (const auto* error = std::get_if<StoreError>(&result)) {
    LogLine("store failed: " + error->text);
    return nullptr;
  }
  return &std::get<T>(result);
}

}  // namespace hintwick
