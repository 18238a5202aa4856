#include "setup/crash_report.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace qn {
namespace {

TEST(CrashReport, DumpNameIsTheLocalTimeZeroPaddedOnA24HourClock) {
  const std::pair<CrashTime, const wchar_t*> cases[] = {
      {{2026, 3, 2, 9, 5, 7}, L"crash-20260302-090507.dmp"},
      {{2026, 11, 14, 17, 18, 5}, L"crash-20261114-171805.dmp"},
      {{999, 1, 1, 0, 0, 0}, L"crash-09990101-000000.dmp"},
  };
  for (const auto& [time, name] : cases) {
    EXPECT_EQ(CrashDumpPath(L"C:\\Users\\p\\AppData\\Local\\Hintwick", time).view(),
              std::wstring(L"C:\\Users\\p\\AppData\\Local\\Hintwick\\") + name);
  }
}

// A path too long for the buffer is cut rather than dropped: the box still shows where the
// dump was meant to go, and the create call fails on its own.
TEST(CrashReport, LongPathsAndMessagesAreCutAtTheirBuffers) {
  const CrashTime time{2026, 3, 2, 9, 5, 7};
  const std::wstring fits(kCrashDumpPathLimit - 1 - 26, L'd');
  EXPECT_EQ(CrashDumpPath(fits, time).view(), fits + L"\\crash-20260302-090507.dmp");
  const std::wstring too_long(kCrashDumpPathLimit + 50, L'd');
  EXPECT_EQ(CrashDumpPath(too_long, time).view(), too_long.substr(0, kCrashDumpPathLimit - 1));

  const std::wstring message(CrashMessage(too_long + too_long).view());
  EXPECT_EQ(message.size(), kCrashMessageLimit - 1);
  EXPECT_EQ(message.rfind(L"A diagnostic file was saved to:\n" + too_long.substr(0, 600), 38), 38u);
}

}  // namespace
}  // namespace qn
