#pragma once
// Decisions of the game window capture that depend only on values, so that they are
// built and tested without Windows.
#include <atomic>
#include <cstdint>
#include <optional>

namespace qn {

struct FrameSize {
  int32_t width = 0;
  int32_t height = 0;
  bool operator==(const FrameSize&) const = default;
};

// 0 means every frame is accepted.
int64_t MinFrameIntervalMs(int throttle_hz);

// last_accepted_tick 0 means no frame has been accepted since the start.
bool ShouldAcceptFrame(int64_t min_interval_ms, uint64_t last_accepted_tick, uint64_t now);

// What the drawer passes as the divisor. The system clips, it does not scale, a frame pool
// smaller than the window: a pool of a quarter would show the game's top-left corner under
// the drawer. The renderer's first blur pass does the downscaling instead.
constexpr int kDrawerCaptureDivisor = 1;

// Never smaller than 1x1, because the system refuses an empty frame pool.
FrameSize FramePoolSize(FrameSize source, int divisor);

// The pool size to recreate with when a frame's content size no longer matches the
// pool; empty when the pool stays.
std::optional<FrameSize> PoolSizeToRecreate(FrameSize content, FrameSize pool, int divisor);

struct FrameCounts {
  int64_t arrived = 0;
  int64_t accepted = 0;
  int64_t consumed = 0;
};

// Written by the capture thread and the tick, read by anyone without a lock.
class FrameCounters {
 public:
  void Reset();
  void CountArrived() { arrived_.fetch_add(1, std::memory_order_relaxed); }
  void CountAccepted() { accepted_.fetch_add(1, std::memory_order_relaxed); }
  void CountConsumed() { consumed_.fetch_add(1, std::memory_order_relaxed); }
  FrameCounts Read() const;

 private:
  std::atomic<int64_t> arrived_{0};
  std::atomic<int64_t> accepted_{0};
  std::atomic<int64_t> consumed_{0};
};

}  // namespace qn
