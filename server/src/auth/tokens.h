#pragma once
// Bearer tokens: 32 random bytes as URL-safe base64 for the client, and only their SHA-256 in
// hex for the store, so a copy of the database grants nothing.
#include <string>
#include <string_view>

namespace hintwick {

std::string NewToken();
std::string TokenHash(std::string_view token);
std::string Sha256Hex(std::string_view bytes);

}  // namespace hintwick
