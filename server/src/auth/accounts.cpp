#include "auth/accounts.h"

#include <algorithm>

#include "auth/tokens.h"
#include "ops/log.h"

namespace hintwick {
namespace {

bool IsEmailByte(unsigned char ch) {
  return ch > 0x20 && ch != 0x7f && ch != '<' && ch != '>' && ch != ',' && ch != ';' &&
         ch != '"' && ch != '\\' && ch != '(' && ch != ')' && ch != '[' && ch != ']';
}

}  // namespace

Accounts::Accounts(Store& store, const PasswordHasher& hasher, TokenLifetimes lifetimes,
                   std::function<TimePoint()> now)
    : store_(store), hasher_(hasher), lifetimes_(lifetimes), now_(std::move(now)) {}

std::optional<std::string> Accounts::NormalEmail(const std::string& email) {
  auto at = email.find('@');
  if (email.size() > 254 || at == 0 || at == std::string::npos) return std::nullopt;
  if (email.find('@', at + 1) != std::string::npos) return std::nullopt;
  std::string domain = email.substr(at + 1);
  auto dot = domain.find('.');
  if (dot == 0 || dot == std::string::npos || domain.back() == '.') return std::nullopt;
  if (!std::all_of(email.begin(), email.end(),
                   [](char ch) { return ch == '@' || IsEmailByte(static_cast<unsigned char>(ch)); }))
    return std::nullopt;
  std::string lower = email;
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char ch) {
    return static_cast<char>(ch < 0x80 ? std::tolower(ch) : ch);
  });
  return lower;
}

AuthResult<IssuedTokens> Accounts::StartFamily(UserId user, const std::string& device_label) {
  IssuedTokens issued{NewToken(), NewToken()};
  TokenHashes hashes{TokenHash(issued.refresh), TokenHash(issued.access)};
  auto started = store_.StartFamily(user, hashes, device_label, now_(), lifetimes_);
  if (!Succeeded(started)) return AuthFailure::kUnavailable;
  return issued;
}

AuthResult<IssuedTokens> Accounts::Register(const std::string& email, const std::string& password,
                                            const std::string& device_label) {
  auto normal = NormalEmail(email);
  if (!normal) return AuthFailure::kBadEmail;
  if (password.size() < kMinPassword) return AuthFailure::kShortPassword;
  if (password.size() > kMaxPassword) return AuthFailure::kLongPassword;
  auto hash = hasher_.Hash(password);
  if (!hash) {
    LogLine("crypto_pwhash_str failed: out of memory for the hash");
    return AuthFailure::kUnavailable;
  }
  auto created = store_.CreateUser(*normal, *hash);
  const auto* user = Succeeded(created);
  if (!user) return AuthFailure::kUnavailable;
  if (!*user) return AuthFailure::kTaken;
  return StartFamily((*user)->id, device_label);
}

void Accounts::RehashIfDue(const User& user, const std::string& password) {
  if (!hasher_.NeedsRehash(user.password_hash)) return;
  auto hash = hasher_.Hash(password);
  // A failed rehash costs nothing now: the old hash still verifies, and the next sign-in tries.
  if (hash) Succeeded(store_.SetPasswordHash(user.id, *hash));
}

AuthResult<IssuedTokens> Accounts::Login(const std::string& email, const std::string& password,
                                         const std::string& device_label) {
  auto normal = NormalEmail(email);
  if (!normal || password.empty() || password.size() > kMaxPassword) {
    hasher_.VerifyNobody(password.substr(0, kMaxPassword));
    return AuthFailure::kWrongCredentials;
  }
  auto found = store_.FindUser(*normal);
  const auto* user = Succeeded(found);
  if (!user) return AuthFailure::kUnavailable;
  if (!*user) {
    hasher_.VerifyNobody(password);
    return AuthFailure::kWrongCredentials;
  }
  if (!hasher_.Verify((*user)->password_hash, password)) return AuthFailure::kWrongCredentials;
  RehashIfDue(**user, password);
  return StartFamily((*user)->id, device_label);
}

AuthResult<IssuedTokens> Accounts::Refresh(const std::string& refresh_token) {
  IssuedTokens issued{NewToken(), NewToken()};
  TokenHashes fresh{TokenHash(issued.refresh), TokenHash(issued.access)};
  auto rotated = store_.Rotate(TokenHash(refresh_token), fresh, now_(), lifetimes_);
  const auto* rotation = Succeeded(rotated);
  if (!rotation) return AuthFailure::kUnavailable;
  switch (rotation->outcome) {
    case RotateOutcome::kRotated:
      return issued;
    case RotateOutcome::kGraceReissued:
      issued.refresh.clear();
      return issued;
    case RotateOutcome::kReuseRevoked:
      LogLine("audit: a rotated refresh token was presented again; family " +
              std::to_string(rotation->family) + " of user " + std::to_string(rotation->user) +
              " revoked");
      return AuthFailure::kRefused;
    case RotateOutcome::kUnknown:
      break;
  }
  return AuthFailure::kRefused;
}

AuthResult<bool> Accounts::Logout(const std::string& refresh_token) {
  auto revoked = store_.RevokeFamilyOf(TokenHash(refresh_token));
  const auto* found = Succeeded(revoked);
  if (!found) return AuthFailure::kUnavailable;
  return *found;
}

AuthResult<UserId> Accounts::Authenticate(const std::string& access_token) {
  if (access_token.empty()) return AuthFailure::kRefused;
  auto authenticated = store_.Authenticate(TokenHash(access_token), now_());
  const auto* user = Succeeded(authenticated);
  if (!user) return AuthFailure::kUnavailable;
  if (!*user) return AuthFailure::kRefused;
  return **user;
}

}  // namespace hintwick
