#include "net/sse_lines.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace qn {
namespace {

using Payloads = std::vector<std::string>;

// Feeds `stream` cut at the given offsets (ascending) and returns what came out.
Payloads FeedCut(std::string_view stream, const std::vector<size_t>& cuts, size_t cap) {
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

// The payloads must not depend on where the network splits the stream: whole, and cut into
// three pieces at every pair of offsets.
TEST(SseLineReaderTest, DataLinesGiveTheirPayloadsWhereverTheStreamIsSplit) {
  using namespace std::string_literals;
  constexpr size_t kReal = SseLineReader::kMaxLineBytes;
  const struct {
    const char* what;
    std::string stream;
    Payloads expected;
    size_t cap = kReal;
  } cases[] = {
      {"two events in one chunk", "data: a\n\ndata: b\n", {"a", "b"}},
      {"one leading space is dropped", "data:x\ndata: x\ndata:  x\n", {"x", "x", " x"}},
      {"empty data lines", "data:\ndata: \n", {}},
      {"crlf endings", "data: a\r\n\r\ndata: b\r\n", {"a", "b"}},
      {"only one carriage return is dropped", "data: a\r\r\n", {"a\r"}},
      {"comments and other fields", ": ping\nevent: x\nid: 7\nretry: 10\nData: y\ndata: a\n", {"a"}},
      {"the field must start the line", " data: a\nxdata: b\ndata\n", {}},
      {"the unfinished last line is held", "data: a\ndata: b", {"a"}},
      {"nul and high bytes pass through", "data: \0\xff\xfe\n"s, {"\0\xff\xfe"s}},
      {"exactly the cap", "data: ab\n", {"ab"}, 8},
      {"over the cap, up to its line feed", "data: abcdefghijdata: k\ndata: m\n", {"m"}, 8},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(FeedCut(c.stream, {}, c.cap), c.expected);
    for (size_t a = 0; a <= c.stream.size(); ++a) {
      for (size_t b = a; b <= c.stream.size(); ++b) {
        ASSERT_EQ(FeedCut(c.stream, {a, b}, c.cap), c.expected) << "cut at " << a << ", " << b;
      }
    }
  }
}

}  // namespace
}  // namespace qn
