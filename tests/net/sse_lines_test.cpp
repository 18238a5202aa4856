#include "net/sse_lines.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace qn {
namespace {

using Payloads = std::vector<std::string>;

// Feeds `stream` cut at the given offsets (ascending) and returns what came out.
Payloads FeedCut(std::string_view stream, const std::vector<size_t>& cuts,
                 size_t cap = SseLineReader::kMaxLineBytes) {
  Payloads out;
  SseLineReader reader([&out](const std::string& payload) { out.push_back(payload); }, cap);
  size_t start = 0;
  for (const size_t cut : cuts) {
    reader.Feed(stream.substr(start, cut - start));
    start = cut;
  }
  reader.Feed(stream.substr(start));
  return out;
}

// The payloads must not depend on where the network splits the stream: whole, one byte at a
// time, and cut into three pieces at every pair of offsets.
void ExpectSameUnderEverySplit(std::string_view stream, const Payloads& expected,
                               size_t cap = SseLineReader::kMaxLineBytes) {
  SCOPED_TRACE(::testing::PrintToString(std::string(stream)));
  EXPECT_EQ(FeedCut(stream, {}, cap), expected);
  std::vector<size_t> every;
  for (size_t i = 1; i < stream.size(); ++i) every.push_back(i);
  EXPECT_EQ(FeedCut(stream, every, cap), expected) << "byte by byte";
  for (size_t a = 0; a <= stream.size(); ++a) {
    for (size_t b = a; b <= stream.size(); ++b) {
      ASSERT_EQ(FeedCut(stream, {a, b}, cap), expected) << "cut at " << a << " and " << b;
    }
  }
}

struct Case {
  const char* what;
  std::string stream;
  Payloads expected;
};

TEST(SseLineReaderTest, DataLinesGiveTheirPayloadsWhereverTheStreamIsSplit) {
  using namespace std::string_literals;
  const Case cases[] = {
      {"two events in one chunk", "data: a\n\ndata: b\n", {"a", "b"}},
      {"no space after the colon", "data:x\n", {"x"}},
      {"one space is dropped", "data: x\n", {"x"}},
      {"only one space is dropped", "data:  x\n", {" x"}},
      {"a tab is kept", "data:\tx\n", {"\tx"}},
      {"colons in the payload", "data: {\"a\":\"b:c\"}\n", {"{\"a\":\"b:c\"}"}},
      {"empty data lines", "data:\ndata: \n", {}},
      {"two spaces alone", "data:  \n", {" "}},
      {"crlf endings", "data: a\r\n\r\ndata: b\r\n", {"a", "b"}},
      {"only one carriage return is dropped", "data: a\r\r\n", {"a\r"}},
      {"a lone carriage return ends nothing", "data: a\rdata: b\n", {"a\rdata: b"}},
      {"comments and other fields", ": ping\nevent: delta\nid: 7\nretry: 10\ndata: a\n", {"a"}},
      {"field names are case-sensitive", "Data: a\nDATA: b\n", {}},
      {"the field must start the line", " data: a\nxdata: b\n", {}},
      {"no colon", "data\ndata a\n", {}},
      {"lines are never joined", "data: a\ndata: b\n\n", {"a", "b"}},
      {"the unfinished last line is held", "data: a\ndata: b", {"a"}},
      {"blank lines only", "\n\r\n\n", {}},
      {"empty stream", "", {}},
      {"nul and high bytes pass through", "data: \0\xff\xfe\n"s, {"\0\xff\xfe"s}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    ExpectSameUnderEverySplit(c.stream, c.expected);
  }
}

TEST(SseLineReaderTest, LinesOverTheCapAreDroppedUpToTheirLineFeed) {
  constexpr size_t kCap = 8;
  const Case cases[] = {
      {"exactly the cap", "data: ab\n", {"ab"}},
      {"one over the cap", "data: abc\ndata: d\n", {"d"}},
      {"the tail of a long line is no line",
       "data: abcdefghij"
       "data: k\ndata: m\n",
       {"m"}},
      {"long lines between short ones", "data: a\n0123456789abcdef\ndata: b\n", {"a", "b"}},
      {"long unfinished last line", "data: a\n0123456789abcdef", {"a"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    ExpectSameUnderEverySplit(c.stream, c.expected, kCap);
  }
}

TEST(SseLineReaderTest, PayloadArrivesWithItsLineFeedAndNotBefore) {
  Payloads out;
  SseLineReader reader([&out](const std::string& payload) { out.push_back(payload); });
  reader.Feed("data: {\"par");
  reader.Feed("t\":1}");
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(reader.pending_size(), 16u);
  reader.Feed("\ndata: n");
  EXPECT_EQ(out, Payloads{"{\"part\":1}"});
  EXPECT_EQ(reader.pending_size(), 7u);
}

TEST(SseLineReaderTest, StreamWithoutLineFeedsHoldsNoMoreThanTheCap) {
  Payloads out;
  SseLineReader reader([&out](const std::string& payload) { out.push_back(payload); });
  const std::string block(64 * 1024, 'x');
  reader.Feed("data: ");
  for (int i = 0; i < 48; ++i) {  // 3 MiB
    reader.Feed(block);
    ASSERT_LE(reader.pending_size(), SseLineReader::kMaxLineBytes);
  }
  EXPECT_EQ(reader.pending_size(), 0u);
  reader.Feed(block + "\ndata: after\n");
  EXPECT_EQ(out, Payloads{"after"});
}

}  // namespace
}  // namespace qn
