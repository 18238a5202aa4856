#include "core/utf.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>

namespace qn {
namespace {

using namespace std::string_literals;

// Wide text spelled as UTF-16 units, so that expectations mean the same where wchar_t is
// 32 bits wide (a L"\U0001F600" literal would be one unit there and two on Windows).
std::wstring Units(std::initializer_list<uint32_t> units) {
  std::wstring text;
  for (const uint32_t unit : units) text.push_back(static_cast<wchar_t>(unit));
  return text;
}

constexpr wchar_t kBad = 0xFFFD;

TEST(Utf, ConvertsBothWaysAndReplacesWhatIsIllFormed) {
  const std::pair<std::string, std::wstring> cases[] = {
      {"a\0\x7F"s, Units({0x61, 0, 0x7F})},
      {"\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF", Units({0x80, 0x7FF, 0x800, 0xFFFF})},
      {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", Units({0xD800, 0xDC00, 0xDBFF, 0xDFFF})},
  };
  for (const auto& [utf8, wide] : cases) {
    EXPECT_EQ(Utf8ToWide(utf8), wide);
    EXPECT_EQ(WideToUtf8(wide), utf8);
  }
  // Ill-formed: one U+FFFD per maximal subpart, a sequence being abandoned at the first byte
  // that cannot continue it, and that byte then read afresh.
  const std::pair<std::string, std::wstring> ill_formed[] = {
      {"\xC0\xAF\xE0\x9F\xBF\xF0\x8F\xBF\xBF", std::wstring(9, kBad)},  // overlong
      {"\xED\xA0\x80", Units({kBad, kBad, kBad})},                      // encoded surrogate
      {"\xF4\x90\x80\x80", Units({kBad, kBad, kBad, kBad})},            // above U+10FFFF
      {"\xF0\x9F\x98", Units({kBad})},                                  // cut at the end
      {"\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64",
       Units({0x61, kBad, kBad, kBad, 0x62, kBad, 0x63, kBad, kBad, 0x64})},
  };
  for (const auto& [utf8, wide] : ill_formed) EXPECT_EQ(Utf8ToWide(utf8), wide);
  // Lone surrogates in either order become U+FFFD; a pair after them still pairs.
  EXPECT_EQ(WideToUtf8(Units({0xDE00, 0xD83D, 0xD83D, 0xDE00, 0x41})),
            "\xEF\xBF\xBD\xEF\xBF\xBD\xF0\x9F\x98\x80\x41");
  // Where wchar_t is wider, a unit past UTF-16 is no character of its own either.
  if constexpr (sizeof(wchar_t) > 2) {
    EXPECT_EQ(WideToUtf8(Units({0x1F600})), "\xEF\xBF\xBD");
  }
}

}  // namespace
}  // namespace qn
