#include "gfx/capture_policy.h"

#include <gtest/gtest.h>

#include <optional>

namespace qn {
namespace {

TEST(CapturePolicyTest, ThrottleAcceptsAFrameOnceTheWholeIntervalHasPassed) {
  const struct {
    int hz;
    uint64_t last, now;
    bool accepted;
  } cases[] = {
      {0, 5000, 5000, true},    {-5, 5000, 5000, true},  // unthrottled
      {30, 0, 1, true},                                  // the first frame after start
      {30, 5000, 5032, false},  {30, 5000, 5033, true},  // 33 ms
      {60, 5000, 5015, false},  {60, 5000, 5016, true},  // 16 ms
      {1001, 5000, 5000, true},                          // below a millisecond: every frame
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ShouldAcceptFrame(MinFrameIntervalMs(c.hz), c.last, c.now), c.accepted)
        << c.hz << " Hz, " << c.now - c.last << " ms";
  }
}

TEST(CapturePolicyTest, PoolSizeDividesDownwardAndNeverBelowOnePixel) {
  const struct {
    FrameSize source;
    int divisor;
    FrameSize pool;
  } cases[] = {
      {{1920, 1080}, 1, {1920, 1080}},
      {{1920, 1080}, -4, {1920, 1080}},
      {{1001, 601}, 2, {500, 300}},
      {{3, 2}, 4, {1, 1}},
      {{0, 0}, 1, {1, 1}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(FramePoolSize(c.source, c.divisor), c.pool) << c.source.width << " / " << c.divisor;
  }
}

TEST(CapturePolicyTest, PoolIsRecreatedOnlyWhenContentNeedsAnotherSize) {
  const struct {
    FrameSize content;
    FrameSize pool;
    int divisor;
    std::optional<FrameSize> recreate;
  } cases[] = {
      {{1280, 720}, {1280, 720}, 1, std::nullopt},
      {{1920, 1080}, {1280, 720}, 1, FrameSize{1920, 1080}},  // window grew
      {{800, 720}, {1280, 720}, 1, FrameSize{800, 720}},      // narrower only
      {{1280, 0}, {1280, 720}, 1, std::nullopt},              // minimised
      {{1921, 1083}, {480, 270}, 4, std::nullopt},            // same size once divided
      {{1924, 1080}, {480, 270}, 4, FrameSize{481, 270}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(PoolSizeToRecreate(c.content, c.pool, c.divisor), c.recreate)
        << c.content.width << "x" << c.content.height << " / " << c.divisor;
  }
}

}  // namespace
}  // namespace qn
