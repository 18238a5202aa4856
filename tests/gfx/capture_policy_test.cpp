#include "gfx/capture_policy.h"

#include <gtest/gtest.h>

#include <optional>
#include <utility>

namespace qn {
namespace {

TEST(CapturePolicyTest, PoolIsRecreatedOnlyWhenContentNeedsAnotherSize) {
  const std::pair<FrameSize, std::optional<FrameSize>> cases[] = {
      {{1280, 720}, std::nullopt},
      {{800, 720}, FrameSize{800, 720}},  // narrower only
      {{1280, 0}, std::nullopt},          // minimised: the old pool serves the restored window
  };
  for (const auto& [content, recreate] : cases) {
    EXPECT_EQ(PoolSizeToRecreate(content, {1280, 720}, 1), recreate) << content.width;
  }
  // The system refuses an empty pool, so even a window of no size gets a pixel.
  EXPECT_EQ(FramePoolSize({0, 0}, 1), (FrameSize{1, 1}));
}

}  // namespace
}  // namespace qn
