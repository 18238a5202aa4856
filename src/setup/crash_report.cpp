#include "setup/crash_report.h"

namespace qn {
namespace {

std::wstring Padded(unsigned value, size_t width) {
  std::wstring digits = std::to_wstring(value);
  if (digits.size() < width) digits.insert(0, width - digits.size(), L'0');
  return digits;
}

std::wstring CutToLimit(std::wstring text, size_t limit) {
  if (text.size() >= limit) text.resize(limit - 1);
  return text;
}

}  // namespace

std::wstring CrashDumpPath(const std::wstring& data_dir, const CrashTime& time) {
  const std::wstring name = L"crash-" + Padded(time.year, 4) + Padded(time.month, 2) +
                            Padded(time.day, 2) + L"-" + Padded(time.hour, 2) +
                            Padded(time.minute, 2) + Padded(time.second, 2) + L".dmp";
  return CutToLimit(data_dir + L"\\" + name, kCrashDumpPathLimit);
}

std::wstring CrashMessage(const std::wstring& dump_path) {
  return CutToLimit(L"Hintwick hit a bug and has to close.\n\nA diagnostic file was saved to:\n" +
                        dump_path +
                        L"\n\nIt contains no game footage and nothing was sent anywhere. Sending "
                        L"it along with what you were doing would genuinely help.",
                    kCrashMessageLimit);
}

}  // namespace qn
