#include "gfx/drawer_geometry.h"

#include <gtest/gtest.h>

#include <limits>
#include <tuple>
#include <utility>

namespace qn {
namespace {

TEST(DrawerRect, RestsCentredOnTheGameBottom) {
  const std::tuple<const char*, ScreenRect, uint32_t, double, ScreenRect> cases[] = {
      {"small window: the minimum beats 120", {0, 0, 800, 600}, 96, 0.20, {0, 380, 800, 600}},
      {"29% of 800 is 232, not 231", {0, 0, 1000, 800}, 96, 0.29, {0, 568, 1000, 800}},
      {"odd spare pixel goes right", {-101, 0, 1700, 900}, 96, 0.5, {-1, 450, 1599, 900}},
      {"110 dpi: scaled limits truncate", {0, 0, 2000, 1000}, 110, 0.20, {83, 748, 1916, 1000}},
      {"low window: all of it", {10, 10, 650, 210}, 96, 0.33, {10, 10, 650, 210}},
      {"turned inside out: no area", {10, 10, 5, 5}, 96, 0.33, {10, 5, 10, 5}},
  };
  for (const auto& [name, game, dpi, fraction, drawer] : cases) {
    EXPECT_EQ(DrawerRect(game, dpi, fraction), drawer) << name;
  }
}

TEST(CoversMonitor, EdgesWithinTwoPixelsOrBeyond) {
  const ScreenRect monitor = {-1920, 0, 0, 1080};
  const std::pair<ScreenRect, bool> cases[] = {
      {{-1918, 2, -2, 1078}, true}, {{-1928, -8, 8, 1088}, true},  // overhanging frame
      {{-1917, 0, 0, 1080}, false}, {{-1920, 0, 0, 1077}, false},
      {{0, 0, 1920, 1080}, false},  // the neighbouring monitor
  };
  for (const auto& [window, covers] : cases) EXPECT_EQ(CoversMonitor(window, monitor), covers);
}

// Opening takes 160 ms and closing 110, both linear; the offset is clamped, NaN included.
TEST(Slide, LinearClampedAndNeverOutOfPlace) {
  const std::tuple<int64_t, float, float> cases[] = {
      {-50, 0.0f, 1.0f}, {33, 33 / 160.0f, 0.7f}, {110, 0.6875f, 0.0f}, {160, 1.0f, 0.0f}};
  for (const auto& [elapsed, opening, closing] : cases) {
    EXPECT_FLOAT_EQ(SlideOpening(elapsed), opening) << elapsed;
    EXPECT_FLOAT_EQ(SlideClosing(elapsed), closing) << elapsed;
  }
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const std::pair<float, float> offsets[] = {{-0.5f, 356}, {0.25f, 267}, {1.7f, 0}, {nan, 356}};
  for (const auto& [t, offset] : offsets) EXPECT_FLOAT_EQ(SlideOffset(356, t), offset) << t;
}

TEST(PlanSurface, ResizesOnlyForANewNonZeroSize) {
  // Swap chain present, its size, the new size, and what has to happen.
  const std::tuple<bool, uint32_t, uint32_t, uint32_t, uint32_t, SurfaceChange> cases[] = {
      {true, 100, 50, 100, 0, SurfaceChange::kRefuse},
      {false, 100, 50, 100, 50, SurfaceChange::kCreate},  // released, size remembered
      {true, 100, 50, 100, 50, SurfaceChange::kKeep},
      {true, 100, 50, 100, 49, SurfaceChange::kResize},
  };
  for (const auto& [exists, width, height, new_width, new_height, change] : cases) {
    EXPECT_EQ(PlanSurface(exists, width, height, new_width, new_height), change) << new_height;
  }
}

// A tick redoes only what changed; a blink alone waits for the frame that is about to come.
TEST(PlanFrame, RedoesOnlyWhatChanged) {
  constexpr FrameWork kNothing{}, kAll{true, true, true}, kBackdrop{true, false, true},
      kChat{false, true, true}, kPresent{false, false, true};
  const std::tuple<const char*, FrameChanges, FrameWork> cases[] = {
      {"nothing new", {}, kNothing},
      {"first", {.first = true}, kAll},
      {"blur or size", {.look = true}, kAll},
      {"new frame", {.new_frame = true}, kBackdrop},
      {"moved", {.moved = true}, kBackdrop},
      {"token", {.chat = true}, kChat},
      {"slide", {.slide = true}, kPresent},
      {"blink right after a present", {.caret = true, .since_present_ms = 16}, kNothing},
      {"blink alone", {.caret = true, .since_present_ms = 34}, kChat},
      {"blink with a frame", {.new_frame = true, .caret = true}, kAll},
  };
  for (const auto& [name, changes, work] : cases) EXPECT_EQ(PlanFrame(changes), work) << name;
}

// A lost device is rebuilt at once, but not on every tick when it stays lost.
TEST(AfterFrameResult, ALostDeviceIsRebuiltUnlessItWasJustRebuilt) {
  constexpr int32_t kOccluded = 0x087A0001, kFail = static_cast<int32_t>(0x80004005u);
  const std::tuple<int32_t, uint64_t, AfterFrame> cases[] = {
      {0, 0, AfterFrame::kGoOn},
      {kOccluded, 0, AfterFrame::kGoOn},
      {kFail, 9000, AfterFrame::kGoOn},
      {kDxgiDeviceRemoved, 0, AfterFrame::kRebuild},
      {kDxgiDeviceReset, 7000, AfterFrame::kRebuild},
      {kDdiDeviceRemoved, 0, AfterFrame::kRebuild},
      {kD2dRecreateTarget, 0, AfterFrame::kRebuild},
      {kDxgiDeviceRemoved, 8001, AfterFrame::kClose},
  };
  for (const auto& [hr, last_rebuild, after] : cases) {
    EXPECT_EQ(AfterFrameResult(hr, 10000, last_rebuild), after) << hr << " " << last_rebuild;
  }
}

}  // namespace
}  // namespace qn
