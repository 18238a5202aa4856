#pragma once
// The texts of a crash report, kept apart from the exception filter so that they can be
// checked without crashing anything.
#include <string>

namespace qn {

// Local wall-clock time of the crash, as the system clock reports it.
struct CrashTime {
  unsigned year = 0;
  unsigned month = 0;
  unsigned day = 0;
  unsigned hour = 0;
  unsigned minute = 0;
  unsigned second = 0;
};

// Buffer sizes, terminator included: what does not fit is cut, never refused, because the
// filter has nobody to report a failure to.
constexpr size_t kCrashDumpPathLimit = 520;
constexpr size_t kCrashMessageLimit = 780;

// data_dir + "\crash-YYYYMMDD-HHMMSS.dmp". One name per second: a second crash within the
// same second replaces the first dump.
std::wstring CrashDumpPath(const std::wstring& data_dir, const CrashTime& time);

// The message box's text, naming the dump file.
std::wstring CrashMessage(const std::wstring& dump_path);

}  // namespace qn
