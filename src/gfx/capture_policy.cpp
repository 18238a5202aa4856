#include "gfx/capture_policy.h"

#include <algorithm>

namespace qn {

int64_t MinFrameIntervalMs(int throttle_hz) { return throttle_hz >= 1 ? 1000 / throttle_hz : 0; }

bool ShouldAcceptFrame(int64_t min_interval_ms, uint64_t last_accepted_tick, uint64_t now) {
  if (min_interval_ms < 1 || last_accepted_tick == 0) return true;
  return now - last_accepted_tick >= static_cast<uint64_t>(min_interval_ms);
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
