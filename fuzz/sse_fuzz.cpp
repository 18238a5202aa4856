// The server-sent-event line reader against a one-line-at-a-time oracle. The property: the
// payloads depend only on the bytes, never on how the network cut them into chunks, and the
// reader never holds more than its cap.
// Input layout: byte 0 picks the line cap (1 to 255 bytes, or the real cap when it is 0),
// byte 1 the count k of the next bytes, which are chunk lengths used in turn; the rest is
// the stream.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz_support.h"
#include "net/sse_lines.h"

namespace {

using Payloads = std::vector<std::string>;

// The rules stated plainly over the whole stream at once.
Payloads Oracle(std::string_view stream, size_t cap) {
  Payloads out;
  size_t start = 0;
  for (size_t feed = stream.find('\n'); feed != std::string_view::npos;
       feed = stream.find('\n', start)) {
    std::string_view line = stream.substr(start, feed - start);
    start = feed + 1;
    if (line.size() > cap) continue;
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (line.size() < 5 || line.substr(0, 5) != "data:") continue;
    line.remove_prefix(5);
    if (!line.empty() && line.front() == ' ') line.remove_prefix(1);
    if (!line.empty()) out.emplace_back(line);
  }
  return out;
}

// Feeds chunks of the given lengths in turn (a zero length feeds an empty chunk).
Payloads Feed(std::string_view stream, size_t cap, const std::vector<size_t>& lengths) {
  Payloads out;
  qn::SseLineReader reader([&out](const std::string& payload) { out.push_back(payload); }, cap);
  size_t at = 0;
  for (size_t turn = 0; at < stream.size(); ++turn) {
    const size_t length = lengths.empty() ? stream.size() : lengths[turn % lengths.size()];
    const size_t take = std::min(length, stream.size() - at);
    reader.Feed(ExactCopy(stream.substr(at, take)).view());
    FUZZ_CHECK(reader.pending_size() <= cap);
    at += take;
  }
  return out;
}

void CheckEverySplit(std::string_view stream, size_t cap, const Payloads& expected) {
  FUZZ_CHECK(Feed(stream, cap, {}) == expected);
  FUZZ_CHECK(Feed(stream, cap, {1}) == expected);
  if (stream.size() > 512) return;  // quadratic; long inputs get the chosen splits only
  for (size_t cut = 1; cut < stream.size(); ++cut) {
    FUZZ_CHECK(Feed(stream, cap, {cut, stream.size()}) == expected);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const size_t cap = data[0] == 0 ? qn::SseLineReader::kMaxLineBytes : size_t{data[0]};
  const size_t count = std::min<size_t>(data[1] % 16, size - 2);
  const std::vector<size_t> lengths(data + 2, data + 2 + count);
  const std::string_view stream(reinterpret_cast<const char*>(data) + 2 + count, size - 2 - count);

  const Payloads expected = Oracle(stream, cap);
  CheckEverySplit(stream, cap, expected);
  // Zero lengths feed empty chunks; all zero would never get anywhere.
  if (std::any_of(lengths.begin(), lengths.end(), [](size_t n) { return n != 0; }))
    FUZZ_CHECK(Feed(stream, cap, lengths) == expected);
  return 0;
}
