#include <windows.h>

#include <share.h>

#include <cstdarg>
#include <cstdio>
#include <iterator>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "core/data_dir.h"
#include "core/log.h"
#include "core/log_format.h"
#include "core/os.h"

namespace qn {
namespace {

constexpr size_t kLineChars = 1200;

constexpr size_t kMaxEarlyLines = 64;

std::mutex g_log_mutex;
FILE* g_log_file = nullptr;
// What the start-up says before the log is open (removing an update's leftover comes first),
// written after the banner once it is.
std::vector<std::wstring> g_early_lines;
bool g_opened_once = false;

void WriteLocked(const wchar_t* text) {
  if (!g_log_file) {
    if (!g_opened_once && g_early_lines.size() < kMaxEarlyLines) g_early_lines.emplace_back(text);
    return;
  }
  fputws(text, g_log_file);
  // Flushed per line so that the last words before a crash reach the disk.
  fflush(g_log_file);
}

}  // namespace

void OpenLog() {
  const std::wstring dir = DataDir();
  if (dir.empty()) return;
  OpenLogAt(dir + L"\\hintwick.log");
}

void OpenLogAt(const std::wstring& path) {
  const OsVersion os = GetOsVersion();
  wchar_t banner[kLineChars];
  _snwprintf_s(banner, std::size(banner), _TRUNCATE,
               L"=== Hintwick start (Windows %lu.%lu build %lu) ===\n", os.major, os.minor,
               os.build);
  std::lock_guard lock(g_log_mutex);
  if (g_log_file) fclose(g_log_file);
  // "w" replaces the previous run's file; other processes may read it while we run.
  g_log_file = _wfsopen(path.c_str(), L"w, ccs=UTF-8", _SH_DENYNO);
  WriteLocked(banner);
  g_opened_once = true;
  for (const std::wstring& line : std::exchange(g_early_lines, {})) WriteLocked(line.c_str());
}

void CloseLog() {
  std::lock_guard lock(g_log_mutex);
  if (g_log_file) fclose(g_log_file);
  g_log_file = nullptr;
}

void Log(uint32_t level, const wchar_t* format, ...) {
  va_list args;
  va_start(args, format);
  const std::wstring message = FormatLogMessage(format, &args);
  va_end(args);

  SYSTEMTIME now{};
  GetLocalTime(&now);
  wchar_t line[kLineChars];
  _snwprintf_s(line, std::size(line), _TRUNCATE, L"%02u:%02u:%02u.%03u %ls %ls\n",
               unsigned{now.wHour}, unsigned{now.wMinute}, unsigned{now.wSecond},
               unsigned{now.wMilliseconds}, LogLevelName(level), message.c_str());

  OutputDebugStringW(line);
  std::lock_guard lock(g_log_mutex);
  WriteLocked(line);
}

void LogWithoutWaiting(uint32_t level, const wchar_t* text) noexcept {
  SYSTEMTIME now{};
  GetLocalTime(&now);
  wchar_t line[kLineChars];
  _snwprintf_s(line, std::size(line), _TRUNCATE, L"%02u:%02u:%02u.%03u %ls %ls\n",
               unsigned{now.wHour}, unsigned{now.wMinute}, unsigned{now.wSecond},
               unsigned{now.wMilliseconds}, LogLevelName(level), text);
  OutputDebugStringW(line);
  for (int tries = 0; tries < 100; ++tries, Sleep(10)) {
    if (!g_log_mutex.try_lock()) continue;
    if (g_log_file) {
      fputws(line, g_log_file);
      fflush(g_log_file);
    }
    g_log_mutex.unlock();
    return;
  }
}

}  // namespace qn
