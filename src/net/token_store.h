#pragma once
// token.bin: the refresh token, protected for the current Windows user. It is the only
// credential kept on disk.
#include <string>

namespace qn {

class TokenStore {
 public:
  static std::wstring Path();
  // Keeps the old file when the token cannot be protected or written.
  static void Save(const std::string& refresh_token);
  // Empty on any failure: missing, empty, or protected for someone else.
  static std::string Load();
  static void Remove();
};

}  // namespace qn
