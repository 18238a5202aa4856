#pragma once
// The process-wide log: one line per call, to the debugger and to hintwick.log.
#include <cstdint>
#include <string>

namespace qn {

constexpr uint32_t kLogDebug = 0;
constexpr uint32_t kLogInfo = 1;
constexpr uint32_t kLogWarn = 2;
constexpr uint32_t kLogError = 3;

// Always five characters wide, so that messages line up in the file.
const wchar_t* LogLevelName(uint32_t level);

// Opens DataDir()\hintwick.log, replacing the previous run's file.
void OpenLog();
// Opens the log at an explicit path; the installer's own runs and tests use it.
void OpenLogAt(const std::wstring& path);
// The program never closes its log (the runtime does at exit); tests close it to let go
// of the file.
void CloseLog();

// Wide printf format with Microsoft semantics: %ls for wide text, %hs for UTF-8.
// Callable from any thread, before or after the log is opened.
void Log(uint32_t level, const wchar_t* format, ...);

// One finished line, for a crash: no allocation, and the log's lock only if it comes free
// within a second, since the crashing thread may hold it. Without the lock the line still
// goes to the debugger.
void LogWithoutWaiting(uint32_t level, const wchar_t* text) noexcept;

}  // namespace qn
