#include <gtest/gtest.h>

#include <cstdarg>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "core/log.h"
#include "core/log_format.h"
#include "support/test_files.h"

namespace qn {
namespace {

constexpr char kBom[] = "\xEF\xBB\xBF";

// The log is process-wide: each test gets its own file and lets go of it at the end.
class LogTest : public ::testing::Test {
 protected:
  void SetUp() override { OpenLogAt(path_); }
  void TearDown() override { CloseLog(); }

  std::string Bytes() const { return test::ReadFileBytes(path_).value_or(""); }

  // The lines after the banner, without their CR LF endings.
  std::vector<std::string> Lines() const {
    const std::string bytes = Bytes();
    std::vector<std::string> lines;
    size_t start = bytes.find("\r\n");
    while (start != std::string::npos && start + 2 < bytes.size()) {
      const size_t end = bytes.find("\r\n", start + 2);
      lines.push_back(bytes.substr(start + 2, end - start - 2));
      start = end;
    }
    return lines;
  }

  test::TempDir dir_;
  std::wstring path_ = dir_.File(L"hintwick.log");
};

TEST_F(LogTest, FileOpensWithBomAndBannerAndLinesFollowTheLayout) {
  Log(kLogInfo, L"hello %ls %hs %d%%", L"wide", "narrow", 42);
  const std::string bytes = Bytes();
  EXPECT_TRUE(std::regex_search(
      bytes, std::regex(std::string("^") + kBom +
                        R"(=== Hintwick start \(Windows 10\.0 build [1-9][0-9]*\) ===\r\n)")))
      << bytes;
  ASSERT_EQ(Lines().size(), 1u);
  EXPECT_TRUE(std::regex_match(Lines()[0],
                               std::regex(R"(\d\d:\d\d:\d\d\.\d\d\d INFO  hello wide narrow 42%)")))
      << Lines()[0];
}

TEST_F(LogTest, EveryLevelHasAFiveCharacterName) {
  const struct {
    uint32_t level;
    const char* name;
  } cases[] = {{0, "DEBUG"}, {1, "INFO "}, {2, "WARN "}, {3, "ERROR"},
               {4, "?????"}, {7, "?????"}, {0xFFFFFFFF, "?????"}};
  for (const auto& c : cases) Log(c.level, L"level");
  const std::vector<std::string> lines = Lines();
  ASSERT_EQ(lines.size(), std::size(cases));
  for (size_t i = 0; i < lines.size(); ++i) {
    EXPECT_EQ(lines[i].substr(13), std::string(cases[i].name) + " level") << cases[i].level;
  }
}

TEST_F(LogTest, LongMessagesAreCutAt1023CharactersAndKeepTheirLineEnd) {
  const std::wstring exact(1023, L'a');
  const std::wstring longer(5000, L'b');
  Log(kLogWarn, L"%ls", exact.c_str());
  Log(kLogWarn, L"%ls", longer.c_str());
  Log(kLogWarn, L"after");
  const std::vector<std::string> lines = Lines();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0].substr(19), std::string(1023, 'a'));
  EXPECT_EQ(lines[1].substr(19), std::string(1023, 'b'));
  EXPECT_EQ(lines[2].substr(19), "after");
}

TEST_F(LogTest, WideTextIsWrittenAsUtf8) {
  Log(kLogInfo, L"caf\u00e9 \u65e5\u672c %hs", "\xF0\x9F\x98\x80");
  ASSERT_EQ(Lines().size(), 1u);
  EXPECT_EQ(Lines()[0].substr(19), "caf\xC3\xA9 \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80");
}

TEST_F(LogTest, OpeningReplacesThePreviousRunsFile) {
  Log(kLogInfo, L"from the first run");
  OpenLogAt(path_);
  Log(kLogInfo, L"from the second run");
  const std::string bytes = Bytes();
  EXPECT_EQ(bytes.find("first run"), std::string::npos);
  EXPECT_EQ(bytes.rfind(kBom, 0), 0u);
  ASSERT_EQ(Lines().size(), 1u);
}

TEST_F(LogTest, LinesFromEightThreadsAreNeverInterleaved) {
  constexpr int kThreads = 8;
  constexpr int kLinesEach = 250;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kLinesEach; ++i) {
        Log(kLogDebug, L"thread %d line %04d %ls", t, i, std::wstring(40, L'a' + t).c_str());
      }
    });
  }
  for (std::thread& thread : threads) thread.join();

  const std::regex layout(R"(\d\d:\d\d:\d\d\.\d\d\d DEBUG thread (\d) line (\d{4}) ([a-h]{40}))");
  std::vector<int> next(kThreads, 0);
  const std::vector<std::string> lines = Lines();
  ASSERT_EQ(lines.size(), static_cast<size_t>(kThreads * kLinesEach));
  for (const std::string& line : lines) {
    std::smatch match;
    ASSERT_TRUE(std::regex_match(line, match, layout)) << line;
    const int thread = std::stoi(match[1]);
    EXPECT_EQ(std::stoi(match[2]), next[thread]++);
    EXPECT_EQ(match[3].str(), std::string(40, static_cast<char>('a' + thread)));
  }
}

std::wstring Format(const wchar_t* format, ...) {
  va_list args;
  va_start(args, format);
  std::wstring text = FormatLogMessage(format, &args);
  va_end(args);
  return text;
}

TEST(FormatLogMessage, FollowsTheCrtExceptThatNarrowTextIsUtf8) {
  const struct {
    std::wstring got, want;
  } cases[] = {
      {Format(L"%d|%5d|%-5d|%05d|%+d", -42, 7, 7, 7, 7), L"-42|    7|7    |00007|+7"},
      {Format(L"%u %lu %08X %x %llu", 4000000000u, 4000000000ul, 0x80070005u, 255u,
              18446744073709551615ull),
       L"4000000000 4000000000 80070005 ff 18446744073709551615"},
      {Format(L"%I64d %zu %hd %hhu", -9000000000ll, size_t{12}, 70000, 300), L"-9000000000 12 4464 44"},
      {Format(L"%ls|%s|%hs|%S", L"w\u00e9", L"x", "caf\xC3\xA9", "\xE2\x80\x94"),
       L"w\u00e9|x|caf\u00e9|\u2014"},
      {Format(L"[%6ls][%-4hs][%.2hs]", L"ab", "cd", "\xC3\xA9xyz"), L"[    ab][cd  ][\u00e9x]"},
      {Format(L"%*d|%.*f|%c|%%|%.1f%%", 4, 5, 2, 3.14159, L'z', 99.95), L"   5|3.14|z|%|100.0%"},
      {Format(L"%hs %ls", static_cast<const char*>(nullptr), static_cast<const wchar_t*>(nullptr)),
       L"(null) (null)"},
      {Format(L"odd %q and a dangling %"), L"odd %q and a dangling %"},
  };
  for (const auto& c : cases) EXPECT_EQ(c.got, c.want);
}

TEST(FormatLogMessage, CutsAt1023Characters) {
  const std::wstring wide(3000, L'w');
  EXPECT_EQ(Format(L"%ls", wide.c_str()).size(), kLogMessageMaxChars);
  EXPECT_EQ(Format(L"%hs%ls", std::string(1000, 'a').c_str(), wide.c_str()),
            std::wstring(1000, L'a') + std::wstring(23, L'w'));
}

}  // namespace
}  // namespace qn
