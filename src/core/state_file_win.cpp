#include <windows.h>

#include <string>

#include "core/handles.h"
#include "core/log.h"
#include "core/state_file.h"

namespace qn {
namespace {

bool WriteAll(HANDLE file, const std::string& bytes) {
  DWORD written = 0;
  return WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) &&
         written == bytes.size();
}

// One temporary name per thread: two threads saving at once (two refreshes racing) each
// write a whole file, and the later rename wins.
std::wstring TemporaryPathFor(const std::wstring& path) {
  return path + L"." + std::to_wstring(GetCurrentThreadId()) + L".tmp";
}

bool WriteNewFile(const std::wstring& path, const std::string& bytes) {
  UniqueFileHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) {
    Log(kLogWarn, L"could not write %ls (%lu)", path.c_str(), GetLastError());
    return false;
  }
  // Flushed before the rename: otherwise a power cut can leave the renamed file with no data
  // in it, losing the old contents as well as the new.
  if (!WriteAll(file.get(), bytes) || !FlushFileBuffers(file.get())) {
    Log(kLogWarn, L"could not write %ls (%lu)", path.c_str(), GetLastError());
    file.reset();
    DeleteFileW(path.c_str());
    return false;
  }
  return true;
}

}  // namespace

std::optional<std::string> ReadStateFile(const std::wstring& path, size_t max_bytes) {
  // Sharing delete as well, so that a replacing rename on another thread is never refused.
  const UniqueFileHandle file(CreateFileW(path.c_str(), GENERIC_READ,
                                          FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                          nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  LARGE_INTEGER size{};
  if (!file || !GetFileSizeEx(file.get(), &size)) return std::nullopt;
  if (size.QuadPart < 0 || static_cast<unsigned long long>(size.QuadPart) > max_bytes) {
    return std::nullopt;
  }
  std::string bytes(static_cast<size_t>(size.QuadPart), '\0');
  DWORD read = 0;
  if (!bytes.empty() &&
      (!ReadFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr) ||
       read != bytes.size())) {
    return std::nullopt;
  }
  return bytes;
}

bool ReplaceStateFile(const std::wstring& path, const std::string& bytes) {
  const std::wstring temporary = TemporaryPathFor(path);
  if (!WriteNewFile(temporary, bytes)) return false;
  if (!MoveFileExW(temporary.c_str(), path.c_str(),
                   MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
    Log(kLogWarn, L"could not replace %ls (%lu)", path.c_str(), GetLastError());
    DeleteFileW(temporary.c_str());
    return false;
  }
  return true;
}

}  // namespace qn
