#include "gfx/capture_policy.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <tuple>
#include <utility>

namespace qn {
namespace {

TEST(CapturePolicyTest, PoolIsRecreatedOnlyWhenContentNeedsAnotherSize) {
  const std::pair<FrameSize, std::optional<FrameSize>> cases[] = {
      {{1280, 720}, std::nullopt},
      {{800, 720}, FrameSize{800, 720}},    // narrower only
      {{1280, 600}, FrameSize{1280, 600}},  // lower only
      {{1280, 0}, std::nullopt},            // minimised: the old pool serves the restored window
  };
  for (const auto& [content, recreate] : cases) {
    EXPECT_EQ(PoolSizeToRecreate(content, {1280, 720}, 1), recreate) << content.width;
  }
  // The system refuses an empty pool, so even a window of no size gets a pixel; a divisor
  // below 1 divides by 1.
  const std::tuple<FrameSize, int, FrameSize> pools[] = {
      {{0, 0}, 1, {1, 1}}, {{1281, 3}, 2, {640, 1}}, {{1280, 721}, 0, {1280, 721}}};
  for (const auto& [source, divisor, pool] : pools) EXPECT_EQ(FramePoolSize(source, divisor), pool);
}

// Frames taken in ten seconds of a game at `fps` (each frame up to 1 ms off its time), read on
// a clock that steps every `clock_step_us`.
int TakenInTenSeconds(int throttle_hz, int fps, int64_t clock_step_us, int64_t pause_at_us = -1) {
  FrameThrottle throttle(throttle_hz);
  int taken = 0;
  for (int64_t k = 0, start = 0; start < 10'000'000; ++k) {
    start = k * 1'000'000 / fps + (k * 37 % 5 - 2) * 500;
    if (pause_at_us >= 0 && start >= pause_at_us) start += 1'000'000;
    if (start < 10'000'000) taken += throttle.Accept(start / clock_step_us * clock_step_us);
  }
  return taken;
}

// Thirty a second whatever the game's rate and however coarse the clock: Windows' tick
// (15.6 ms), Wine's (1 ms) or the performance counter's.
TEST(CapturePolicyTest, ThirtyFramesASecondFromAnyGameOnAnyClock) {
  for (const int64_t step : {int64_t{15'625}, int64_t{1'000}, int64_t{1}}) {
    for (const int fps : {30, 60, 144}) {
      const int taken = TakenInTenSeconds(30, fps, step);
      EXPECT_TRUE(taken >= 290 && taken <= 301) << taken << " at " << fps << " fps, step " << step;
    }
  }
  const struct {
    int hz, fps;
    int64_t pause_at_us;
    int at_least, at_most;
  } others[] = {
      {0, 144, -1, 1440, 1441},  // no throttle: every frame
      {1, 60, -1, 10, 11},
      {30, 144, 5'000'000, 260, 271},  // after a one-second stall, no burst to catch up
  };
  for (const auto& row : others) {
    const int taken = TakenInTenSeconds(row.hz, row.fps, 15'625, row.pause_at_us);
    EXPECT_TRUE(taken >= row.at_least && taken <= row.at_most) << taken << " at " << row.hz;
  }
}

}  // namespace
}  // namespace qn
