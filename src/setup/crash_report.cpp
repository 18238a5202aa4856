#include "setup/crash_report.h"

#include <iterator>

namespace qn {
namespace {

template <size_t N>
void AppendPadded(FixedText<N>& text, unsigned value, size_t width) {
  wchar_t digits[12] = {};
  size_t count = 0;
  do {
    digits[count++] = static_cast<wchar_t>(L'0' + value % 10);
    value /= 10;
  } while (value != 0 && count < std::size(digits));
  for (size_t i = count; i < width; ++i) text += L"0";
  while (count > 0) text += std::wstring_view(&digits[--count], 1);
}

}  // namespace

const wchar_t* CrashCause(uint32_t code) {
  switch (code) {
    case kAbortCrashCode:
      return L"abort()";
    case kTerminateCrashCode:
      return L"std::terminate";
    case kPureCallCrashCode:
      return L"pure virtual call";
    default:
      return L"unhandled exception";
  }
}

FixedText<kCrashDumpPathLimit> CrashDumpPath(std::wstring_view data_dir, const CrashTime& time) {
  FixedText<kCrashDumpPathLimit> path;
  path += data_dir;
  path += L"\\crash-";
  AppendPadded(path, time.year, 4);
  AppendPadded(path, time.month, 2);
  AppendPadded(path, time.day, 2);
  path += L"-";
  AppendPadded(path, time.hour, 2);
  AppendPadded(path, time.minute, 2);
  AppendPadded(path, time.second, 2);
  path += L".dmp";
  return path;
}

FixedText<kCrashMessageLimit> CrashMessage(std::wstring_view dump_path) {
  FixedText<kCrashMessageLimit> message;
  message += L"Hintwick hit a bug and has to close.\n\nA diagnostic file was saved to:\n";
  message += dump_path;
  message += L"\n\nIt contains no game footage and nothing was sent anywhere. Sending it along "
             L"with what you were doing would genuinely help.";
  return message;
}

}  // namespace qn
