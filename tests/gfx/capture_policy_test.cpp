#include "gfx/capture_policy.h"

#include <gtest/gtest.h>

#include <optional>

namespace qn {
namespace {

TEST(CapturePolicyTest, ThrottleRateBecomesWholeMillisecondInterval) {
  const struct {
    int hz;
    int64_t interval_ms;
  } cases[] = {{-5, 0}, {0, 0}, {1, 1000}, {30, 33}, {60, 16}, {1000, 1}, {1001, 0}};
  for (const auto& c : cases) EXPECT_EQ(MinFrameIntervalMs(c.hz), c.interval_ms) << c.hz;
}

TEST(CapturePolicyTest, ThrottleAcceptsAtTheIntervalAndNotBefore) {
  const struct {
    int64_t interval_ms;
    uint64_t last;
    uint64_t now;
    bool accepted;
  } cases[] = {
      {0, 5000, 5000, true},    // unthrottled
      {33, 0, 1, true},         // first frame after start
      {33, 5000, 5000, false},  // same tick
      {33, 5000, 5032, false},  // one short
      {33, 5000, 5033, true},   // exactly the interval
      {33, 5000, 9000, true},   // long silence
      {1, 5000, 5001, true},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ShouldAcceptFrame(c.interval_ms, c.last, c.now), c.accepted)
        << c.interval_ms << " " << c.last << " " << c.now;
  }
}

TEST(CapturePolicyTest, PoolSizeDividesDownwardAndNeverBelowOnePixel) {
  const struct {
    FrameSize source;
    int divisor;
    FrameSize pool;
  } cases[] = {
      {{1920, 1080}, 1, {1920, 1080}},  {{1920, 1080}, 0, {1920, 1080}},
      {{1920, 1080}, -4, {1920, 1080}}, {{1920, 1080}, 4, {480, 270}},
      {{1001, 601}, 2, {500, 300}},     {{3, 2}, 4, {1, 1}},
      {{1, 1000}, 4, {1, 250}},         {{0, 0}, 1, {1, 1}},
  };
  for (const auto& c : cases) {
    const FrameSize pool = FramePoolSize(c.source, c.divisor);
    EXPECT_EQ(pool, c.pool) << c.source.width << "x" << c.source.height << " / " << c.divisor;
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
      {{0, 0}, {1280, 720}, 1, std::nullopt},                 // minimised
      {{1280, 0}, {1280, 720}, 1, std::nullopt},
      {{1921, 1083}, {480, 270}, 4, std::nullopt},  // same size once divided
      {{1924, 1080}, {480, 270}, 4, FrameSize{481, 270}},
      {{1, 1}, {1, 1}, 4, std::nullopt},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(PoolSizeToRecreate(c.content, c.pool, c.divisor), c.recreate)
        << c.content.width << "x" << c.content.height << " into " << c.pool.width << "x"
        << c.pool.height << " / " << c.divisor;
  }
}

}  // namespace
}  // namespace qn
