#include "core/utf.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <string>

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

constexpr uint32_t kBad = 0xFFFD;

// Well-formed text at every length boundary, both ways.
TEST(Utf, WellFormedConvertsBothWays) {
  struct Case {
    std::string utf8;
    std::wstring wide;
  };
  const Case cases[] = {
      {"", Units({})},
      {"A~", Units({0x41, 0x7E})},
      {"a\0b"s, Units({0x61, 0, 0x62})},
      {"\x7F", Units({0x7F})},
      {"\xC2\x80", Units({0x80})},
      {"\xC3\xA9", Units({0xE9})},
      {"\xDF\xBF", Units({0x7FF})},
      {"\xE0\xA0\x80", Units({0x800})},
      {"\xE2\x82\xAC", Units({0x20AC})},
      {"\xED\x9F\xBF", Units({0xD7FF})},
      {"\xEE\x80\x80", Units({0xE000})},
      {"\xEF\xBF\xBD", Units({0xFFFD})},
      {"\xEF\xBF\xBF", Units({0xFFFF})},
      {"\xF0\x90\x80\x80", Units({0xD800, 0xDC00})},
      {"\xF0\x9F\x98\x80", Units({0xD83D, 0xDE00})},
      {"\xF4\x8F\xBF\xBF", Units({0xDBFF, 0xDFFF})},
      {"caf\xC3\xA9 \xE6\x97\xA5\xF0\x9F\x8E\xAE!",
       Units({0x63, 0x61, 0x66, 0xE9, 0x20, 0x65E5, 0xD83C, 0xDFAE, 0x21})},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.utf8));
    EXPECT_EQ(Utf8ToWide(c.utf8), c.wide);
    EXPECT_EQ(WideToUtf8(c.wide), c.utf8);
  }
}

// One U+FFFD per maximal subpart: a sequence is abandoned at the first byte that cannot
// continue it, and that byte is then read afresh.
TEST(Utf, IllFormedUtf8BecomesReplacementCharacters) {
  struct Case {
    const char* name;
    std::string utf8;
    std::wstring wide;
  };
  const Case cases[] = {
      {"lone continuation", "\x80", Units({kBad})},
      {"two continuations", "\x80\xBF", Units({kBad, kBad})},
      {"C0 overlong", "\xC0\xAF", Units({kBad, kBad})},
      {"C1 overlong", "\xC1\xBF", Units({kBad, kBad})},
      {"three-byte overlong", "\xE0\x80\xAF", Units({kBad, kBad, kBad})},
      {"four-byte overlong", "\xF0\x8F\xBF\xBF", Units({kBad, kBad, kBad, kBad})},
      {"encoded high surrogate", "\xED\xA0\x80", Units({kBad, kBad, kBad})},
      {"encoded low surrogate", "\xED\xBF\xBF", Units({kBad, kBad, kBad})},
      {"above U+10FFFF", "\xF4\x90\x80\x80", Units({kBad, kBad, kBad, kBad})},
      {"F5 lead", "\xF5\x80\x80\x80", Units({kBad, kBad, kBad, kBad})},
      {"FE and FF", "\xFE\xFF", Units({kBad, kBad})},
      {"cut two-byte at end", "\xC3", Units({kBad})},
      {"cut three-byte at end", "\xE2\x82", Units({kBad})},
      {"cut four-byte at end", "\xF0\x9F\x98", Units({kBad})},
      {"cut three-byte before ASCII",
       "\xE2\x82"
       "A",
       Units({kBad, 0x41})},
      {"cut four-byte before ASCII",
       "\xF0\x9F\x98"
       "A",
       Units({kBad, 0x41})},
      {"cut sequence before a new lead", "\xC3\xC3\xA9", Units({kBad, 0xE9})},
      {"stray byte between good ones",
       "A\xC3\xA9\x80"
       "B",
       Units({0x41, 0xE9, kBad, 0x42})},
      {"six-byte lead", "\xFC\x80\x80\x80\x80\x80", Units({kBad, kBad, kBad, kBad, kBad, kBad})},
      // The Unicode Standard's own example for maximal subparts.
      {"mixed", "\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64",
       Units({0x61, kBad, kBad, kBad, 0x62, kBad, 0x63, kBad, kBad, 0x64})},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(Utf8ToWide(c.utf8), c.wide);
  }
}

TEST(Utf, UnpairedSurrogatesBecomeReplacementCharacters) {
  const std::string bad = "\xEF\xBF\xBD";
  const std::string grin = "\xF0\x9F\x98\x80";
  struct Case {
    const char* name;
    std::wstring wide;
    std::string utf8;
  };
  const Case cases[] = {
      {"high at end", Units({0xD83D}), bad},
      {"high before ASCII", Units({0xD83D, 0x41}), bad + "A"},
      {"lone low", Units({0xDE00}), bad},
      {"low then high", Units({0xDE00, 0xD83D}), bad + bad},
      {"two highs then low", Units({0xD83D, 0xD83D, 0xDE00}), bad + grin},
      {"pair then lone low", Units({0xD83D, 0xDE00, 0xDE00}), grin + bad},
      {"high before NUL", Units({0xDBFF, 0}), bad + "\0"s},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(WideToUtf8(c.wide), c.utf8);
  }
}

TEST(Utf, EveryCodePointRoundTrips) {
  for (uint32_t code = 0; code <= 0x10FFFF; ++code) {
    if (code >= 0xD800 && code <= 0xDFFF) continue;
    std::wstring wide;
    if (code < 0x10000) {
      wide = Units({code});
    } else {
      wide = Units({0xD800 + ((code - 0x10000) >> 10), 0xDC00 + (code & 0x3FF)});
    }
    const std::string utf8 = WideToUtf8(wide);
    const size_t length = code < 0x80 ? 1 : code < 0x800 ? 2 : code < 0x10000 ? 3 : 4;
    ASSERT_EQ(utf8.size(), length) << code;
    ASSERT_EQ(Utf8ToWide(utf8), wide) << code;
  }
}

}  // namespace
}  // namespace qn
