#pragma once
// The line rules of a server-sent-event stream, kept free of Windows headers so that the
// native build can run them under sanitizers and the fuzzer.
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace qn {

// Fed the stream's bytes in whatever chunks the network hands over; calls back with each
// "data:" payload as soon as its line feed arrives. Each data line is its own payload: the
// service writes one JSON object per line, so lines are never joined and no blank line is
// awaited.
class SseLineReader {
 public:
  using PayloadCallback = std::function<void(const std::string& payload)>;

  // A stream without line feeds would otherwise grow the pending line without bound.
  static constexpr size_t kMaxLineBytes = size_t{1} << 20;

  explicit SseLineReader(PayloadCallback on_payload, size_t max_line_bytes = kMaxLineBytes);

  void Feed(std::string_view bytes);

  // Bytes held back waiting for their line feed.
  size_t pending_size() const { return pending_.size(); }

 private:
  void FeedLine(std::string_view piece);
  void FeedPartial(std::string_view piece);
  void TakeLine(std::string_view line) const;

  PayloadCallback on_payload_;
  size_t max_line_bytes_;
  std::string pending_;
  // A line that outgrew the cap is thrown away up to its line feed, so that its tail is not
  // mistaken for a line of its own.
  bool discarding_ = false;
};

}  // namespace qn
