#include <windows.h>

#include <gtest/gtest.h>

#include "core/handles.h"
#include "core/os.h"

namespace qn {
namespace {

// The bench's prefix is set to report Windows 10.
TEST(GetOsVersion, ReportsTheRealVersion) {
  const OsVersion version = GetOsVersion();
  EXPECT_EQ(version.major, 10u);
  EXPECT_EQ(version.minor, 0u);
  EXPECT_GE(version.build, 10240u);
  EXPECT_EQ(IsOsSupported(), version.build >= kMinimumOsBuild);
}

TEST(ErrorText, GivesTheCodeAndTheSystemTextWithoutLineBreaks) {
  const std::wstring denied = ErrorText(static_cast<uint32_t>(E_ACCESSDENIED));
  EXPECT_EQ(denied.rfind(L"0x80070005 (", 0), 0u) << denied;
  EXPECT_EQ(denied.back(), L')');
  EXPECT_EQ(denied.find_first_of(L"\r\n"), std::wstring::npos);

  EXPECT_EQ(ErrorText(ERROR_FILE_NOT_FOUND).rfind(L"0x00000002 (", 0), 0u);
  EXPECT_EQ(ErrorText(0x2000BEEF), L"0x2000BEEF");  // customer code: no system text
}

TEST(GetWindowDpi, FallsBackTo96WhenTheSystemGivesNothing) {
  EXPECT_EQ(GetWindowDpi(nullptr), 96u);  // GetDpiForWindow answers 0 for no window
  const UniqueHwnd window(CreateWindowExW(0, L"STATIC", L"dpi", WS_POPUP, 0, 0, 10, 10, nullptr,
                                          nullptr, nullptr, nullptr));
  ASSERT_TRUE(window);
  EXPECT_GE(GetWindowDpi(window.get()), 96u);
}

}  // namespace
}  // namespace qn
