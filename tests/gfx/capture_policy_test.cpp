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

// At 1 Hz and more a frame waits for the interval since the last one taken; the first is
// always taken.
TEST(CapturePolicyTest, FramesAreTakenAtMostOncePerInterval) {
  const std::tuple<int, uint64_t, uint64_t, bool> cases[] = {
      {30, 0, 1, true},      {30, 100, 132, false}, {30, 100, 133, true},
      {1, 100, 1099, false}, {0, 100, 100, true},
  };
  for (const auto& [hz, last, now, taken] : cases) {
    EXPECT_EQ(ShouldAcceptFrame(MinFrameIntervalMs(hz), last, now), taken) << hz << " " << now;
  }
}

}  // namespace
}  // namespace qn
