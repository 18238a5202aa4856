#pragma once
// Argon2id password hashes in libsodium's encoded form, which carries its own parameters, so
// a hash made under older settings still verifies and is recognised as due for a rehash.
#include <cstddef>
#include <optional>
#include <string>

namespace hintwick {

struct HashCost {
  unsigned long long passes = 2;
  std::size_t memory_bytes = 19u << 20;
};

class PasswordHasher {
 public:
  explicit PasswordHasher(HashCost cost);
  // nullopt only when the hash's memory cannot be had.
  std::optional<std::string> Hash(const std::string& password) const;
  bool Verify(const std::string& encoded, const std::string& password) const;
  bool NeedsRehash(const std::string& encoded) const;
  // Spends the time a real verification takes, for an e-mail with no account, so that the
  // answer's timing does not tell which e-mails have one.
  void VerifyNobody(const std::string& password) const;

 private:
  HashCost cost_;
  std::string nobody_;  // the hash of a random password nobody knows
};

}  // namespace hintwick
