#pragma once
// The texts of a crash report, kept apart from the exception filter so that they can be
// checked without crashing anything. Each lives in a buffer of its own: the report is made
// while the crashing thread may hold the heap's lock.
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

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

// Text that is cut, never refused, at N - 1 characters: the report has nobody to tell of a
// failure.
template <size_t N>
class FixedText {
 public:
  FixedText& operator+=(std::wstring_view more) {
    for (const wchar_t c : more) {
      if (size_ + 1 >= N) break;
      chars_[size_++] = c;
    }
    chars_[size_] = L'\0';
    return *this;
  }
  const wchar_t* c_str() const { return chars_.data(); }
  std::wstring_view view() const { return {chars_.data(), size_}; }

 private:
  std::array<wchar_t, N> chars_{};
  size_t size_ = 0;
};

// Buffer sizes, terminator included.
constexpr size_t kCrashDumpPathLimit = 520;
constexpr size_t kCrashMessageLimit = 780;

// Exception codes for the endings that raise none of their own, so that the dump's
// exception stream and the log tell them apart. The customer bit is set: the system never
// uses such codes itself.
inline constexpr uint32_t kAbortCrashCode = 0xE0480001;
inline constexpr uint32_t kTerminateCrashCode = 0xE0480002;
inline constexpr uint32_t kPureCallCrashCode = 0xE0480003;

// What the log line calls the ending: "abort()", "std::terminate", "pure virtual call", or
// "unhandled exception" for any other code.
const wchar_t* CrashCause(uint32_t code);

// data_dir + "\crash-YYYYMMDD-HHMMSS.dmp". One name per second: a second crash within the
// same second replaces the first dump.
FixedText<kCrashDumpPathLimit> CrashDumpPath(std::wstring_view data_dir, const CrashTime& time);

// The message box's text, naming the dump file.
FixedText<kCrashMessageLimit> CrashMessage(std::wstring_view dump_path);

}  // namespace qn
