#include "net/sse_lines.h"

#include <utility>

namespace qn {

SseLineReader::SseLineReader(PayloadCallback on_payload, size_t max_line_bytes)
    : on_payload_(std::move(on_payload)), max_line_bytes_(max_line_bytes) {}

void SseLineReader::Feed(std::string_view bytes) {
  size_t start = 0;
  for (size_t feed = bytes.find('\n'); feed != std::string_view::npos;
       feed = bytes.find('\n', start)) {
    FeedLine(bytes.substr(start, feed - start));
    start = feed + 1;
  }
  FeedPartial(bytes.substr(start));
}

// The cap counts the whole line, whatever chunks it came in, so that the payloads never
// depend on how the network happened to split the stream.
void SseLineReader::FeedLine(std::string_view piece) {
  const bool too_long = discarding_ || pending_.size() + piece.size() > max_line_bytes_;
  discarding_ = false;
  if (too_long) {
    pending_.clear();
  } else if (pending_.empty()) {
    TakeLine(piece);
  } else {
    pending_.append(piece);
    const std::string line = std::move(pending_);
    pending_.clear();
    TakeLine(line);
  }
}

void SseLineReader::FeedPartial(std::string_view piece) {
  if (discarding_ || piece.empty()) return;
  if (pending_.size() + piece.size() > max_line_bytes_) {
    pending_.clear();
    pending_.shrink_to_fit();
    discarding_ = true;
    return;
  }
  pending_.append(piece);
}

void SseLineReader::TakeLine(std::string_view line) const {
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  constexpr std::string_view kField = "data:";
  if (line.substr(0, kField.size()) != kField) return;
  line.remove_prefix(kField.size());
  if (!line.empty() && line.front() == ' ') line.remove_prefix(1);
  if (!line.empty()) on_payload_(std::string(line));
}

}  // namespace qn
