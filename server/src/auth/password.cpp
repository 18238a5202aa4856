#include "auth/password.h"

#include <sodium.h>

namespace hintwick {

PasswordHasher::PasswordHasher(HashCost cost) : cost_(cost) {
  if (sodium_init() < 0) return;  // Hash then fails, and every sign-in with it
  unsigned char secret[32];
  randombytes_buf(secret, sizeof secret);
  char text[sizeof secret * 2 + 1];
  sodium_bin2hex(text, sizeof text, secret, sizeof secret);
  nobody_ = Hash(text).value_or("");
  sodium_memzero(text, sizeof text);
}

std::optional<std::string> PasswordHasher::Hash(const std::string& password) const {
  char encoded[crypto_pwhash_STRBYTES];
  if (crypto_pwhash_str_alg(encoded, password.data(), password.size(), cost_.passes,
                            cost_.memory_bytes, crypto_pwhash_ALG_ARGON2ID13) != 0)
    return std::nullopt;
  return std::string(encoded);
}

bool PasswordHasher::Verify(const std::string& encoded, const std::string& password) const {
  return crypto_pwhash_str_verify(encoded.c_str(), password.data(), password.size()) == 0;
}

bool PasswordHasher::NeedsRehash(const std::string& encoded) const {
  return crypto_pwhash_str_needs_rehash(encoded.c_str(), cost_.passes, cost_.memory_bytes) != 0;
}

void PasswordHasher::VerifyNobody(const std::string& password) const {
  (void)Verify(nobody_, password);
}

}  // namespace hintwick
