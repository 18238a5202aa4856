#pragma once
// token.bin: the refresh token, protected for the current Windows user. It is the only
// credential kept on disk.
#include <cstddef>
#include <optional>
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

// Whole-file reads and replacing writes for the small state files of the data directory.
// A reader on another thread sees the old file or the new one, never a torn mix.
std::optional<std::string> ReadStateFile(const std::wstring& path, size_t max_bytes);
bool ReplaceStateFile(const std::wstring& path, const std::string& bytes);

}  // namespace qn
