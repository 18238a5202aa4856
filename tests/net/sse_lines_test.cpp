#include "net/sse_lines.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

namespace qn {
namespace {

// sse_fuzz holds the reader to the rules on any bytes; these are the lines and cuts it must get
// right on every build. The cap counts the whole line, CR included, across chunks, and what
// follows an overlong line up to its line feed is still that line.
TEST(SseLines, EachDataLineIsOnePayloadHoweverTheStreamIsCut) {
  using Payloads = std::vector<std::string>;
  const std::tuple<std::string, size_t, size_t, Payloads> cases[] = {
      {"data: a\r\n\r\n: c\nevent: e\ndata:b\r\ndataz: y\ndata:\ndata: \r\ndata:  x\ndata: cut",
       64,
       3,
       {"a", "b", " x"}},
      {"data: 123\r\ndata: 4\n", 10, 10, {"123", "4"}},
      {"data: 1234\r\ndata: 5\n", 10, 10, {"5"}},
      {"data: 1234XYdata: 2\ndata: 3\n", 10, 6, {"3"}},
  };
  for (const auto& [stream, cap, chunk, payloads] : cases) {
    Payloads got;
    SseLineReader reader([&got](const std::string& payload) { got.push_back(payload); }, cap);
    for (size_t at = 0; at < stream.size(); at += chunk) reader.Feed(stream.substr(at, chunk));
    EXPECT_EQ(got, payloads) << stream;
  }
}

}  // namespace
}  // namespace qn
