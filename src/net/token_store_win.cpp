#include <windows.h>

#include <dpapi.h>

#include <string>

#include "core/data_dir.h"
#include "core/failure_log.h"
#include "core/handles.h"
#include "core/log.h"
#include "core/module_proc.h"
#include "core/state_file.h"
#include "net/token_store.h"

namespace qn {
namespace {

// A protected token is a few hundred bytes; anything far larger was not written by us.
constexpr size_t kMaxTokenFileBytes = 64 * 1024;

DATA_BLOB BlobOf(const std::string& bytes) {
  DATA_BLOB blob{};
  blob.cbData = static_cast<DWORD>(bytes.size());
  blob.pbData = reinterpret_cast<BYTE*>(const_cast<char*>(bytes.data()));
  return blob;
}

}  // namespace

std::wstring TokenStore::Path() {
  const std::wstring dir = DataDir();
  return dir.empty() ? std::wstring() : dir + L"\\token.bin";
}

void TokenStore::Save(const std::string& refresh_token) {
  DATA_BLOB plain = BlobOf(refresh_token);
  DATA_BLOB protected_blob{};
  static const SystemFunction<decltype(&::CryptProtectData)> protect(L"crypt32.dll",
                                                                     "CryptProtectData");
  if (!protect || !protect.get()(&plain, L"Hintwick refresh token", nullptr, nullptr, nullptr,
                                 CRYPTPROTECT_UI_FORBIDDEN, &protected_blob)) {
    LogLastError(L"CryptProtectData", kLogWarn);
    return;
  }
  const UniqueLocalMemory owner(protected_blob.pbData);
  const std::wstring path = Path();
  if (path.empty()) return;
  ReplaceStateFile(path, std::string(reinterpret_cast<const char*>(protected_blob.pbData),
                                     protected_blob.cbData));
}

std::string TokenStore::Load() {
  const std::wstring path = Path();
  const std::optional<std::string> stored =
      path.empty() ? std::nullopt : ReadStateFile(path, kMaxTokenFileBytes);
  if (!stored || stored->empty()) return {};
  DATA_BLOB sealed = BlobOf(*stored);
  DATA_BLOB plain{};
  static const SystemFunction<decltype(&::CryptUnprotectData)> unprotect(L"crypt32.dll",
                                                                         "CryptUnprotectData");
  if (!unprotect || !unprotect.get()(&sealed, nullptr, nullptr, nullptr, nullptr,
                                     CRYPTPROTECT_UI_FORBIDDEN, &plain)) {
    Log(kLogWarn, L"CryptUnprotectData failed: %lu (stale or copied from another profile)",
        GetLastError());
    return {};
  }
  const UniqueLocalMemory owner(plain.pbData);
  return std::string(reinterpret_cast<const char*>(plain.pbData), plain.cbData);
}

void TokenStore::Remove() {
  const std::wstring path = Path();
  if (path.empty() || DeleteFileW(path.c_str())) return;
  const DWORD error = GetLastError();
  if (error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND) {
    LogLastError(L"DeleteFileW", kLogWarn);
  }
}

}  // namespace qn
