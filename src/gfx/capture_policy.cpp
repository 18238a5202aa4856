#include "gfx/capture_policy.h"

#include <algorithm>

namespace qn {

FrameThrottle::FrameThrottle(int throttle_hz)
    : interval_us_(throttle_hz >= 1 ? 1'000'000 / throttle_hz : 0) {}

// A frame after a pause (or the first) starts the schedule afresh, so a game that stalled is
// not then sent a burst to catch up.
bool FrameThrottle::Accept(int64_t now_us) {
  if (interval_us_ == 0) return true;
  if (due_us_ && now_us < *due_us_ - interval_us_ / 4) return false;
  const bool behind = !due_us_ || now_us - *due_us_ >= interval_us_;
  due_us_ = (behind ? now_us : *due_us_) + interval_us_;
  return true;
}

FrameSize FramePoolSize(FrameSize source, int divisor) {
  const int32_t d = std::max(divisor, 1);
  return {std::max(source.width / d, 1), std::max(source.height / d, 1)};
}

std::optional<FrameSize> PoolSizeToRecreate(FrameSize content, FrameSize pool, int divisor) {
  // A minimised window reports an empty content size; keeping the old pool lets the
  // backdrop come back at once when the window is restored to its previous size.
  if (content.width < 1 || content.height < 1) return std::nullopt;
  const FrameSize wanted = FramePoolSize(content, divisor);
  if (wanted == pool) return std::nullopt;
  return wanted;
}

void FrameCounters::Reset() {
  arrived_.store(0);
  accepted_.store(0);
  consumed_.store(0);
}

FrameCounts FrameCounters::Read() const {
  return {arrived_.load(std::memory_order_relaxed), accepted_.load(std::memory_order_relaxed),
          consumed_.load(std::memory_order_relaxed)};
}

}  // namespace qn
