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

// Takes frames at a steady `throttle_hz` (0: every frame) from a game that presents faster.
// Frames are due on a fixed schedule rather than an interval after the last one taken, and one
// arriving up to a quarter interval early counts as on time: a game's frames never land exactly
// on the schedule, and a coarse clock (15.6 ms steps) would otherwise make a 60 fps game wait
// for every third frame, about 20 a second instead of 30.
class FrameThrottle {
 public:
  explicit FrameThrottle(int throttle_hz);
  // `now_us`: microseconds of a monotonic clock.
  bool Accept(int64_t now_us);

 private:
  int64_t interval_us_ = 0;
  std::optional<int64_t> due_us_;
};

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
  void CountAccepted() { accepted_.fetch_add(1, std::memory_order_release); }
  void CountConsumed() { consumed_.fetch_add(1, std::memory_order_relaxed); }
  FrameCounts Read() const;
  int64_t Accepted() const { return accepted_.load(std::memory_order_acquire); }

 private:
  std::atomic<int64_t> arrived_{0};
  std::atomic<int64_t> accepted_{0};
  std::atomic<int64_t> consumed_{0};
};

}  // namespace qn
