#include "auth/tokens.h"

#include <sodium.h>

namespace hintwick {

std::string NewToken() {
  unsigned char bytes[32];
  randombytes_buf(bytes, sizeof bytes);
  constexpr int kVariant = sodium_base64_VARIANT_URLSAFE_NO_PADDING;
  char text[sodium_base64_ENCODED_LEN(sizeof bytes, kVariant)];
  sodium_bin2base64(text, sizeof text, bytes, sizeof bytes, kVariant);
  return text;
}

std::string Sha256Hex(std::string_view bytes) {
  unsigned char digest[crypto_hash_sha256_BYTES];
  crypto_hash_sha256(digest, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
  char hex[sizeof digest * 2 + 1];
  sodium_bin2hex(hex, sizeof hex, digest, sizeof digest);
  return hex;
}

std::string TokenHash(std::string_view token) { return Sha256Hex(token); }

}  // namespace hintwick
