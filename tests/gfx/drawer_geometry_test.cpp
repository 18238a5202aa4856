#include "gfx/drawer_geometry.h"

#include <gtest/gtest.h>

#include <limits>

namespace qn {
namespace {

TEST(DrawerRect, RestsCentredOnTheGameBottom) {
  const struct {
    const char* name;
    ScreenRect game;
    uint32_t dpi;
    double fraction;
    ScreenRect drawer;
  } cases[] = {
      {"full hd, a third: 356.4 truncates", {0, 0, 1920, 1080}, 96, 0.33, {160, 724, 1760, 1080}},
      {"small window: the minimum beats 120", {0, 0, 800, 600}, 96, 0.20, {0, 380, 800, 600}},
      {"29% of 800 is 232, not 231", {0, 0, 1000, 800}, 96, 0.29, {0, 568, 1000, 800}},
      {"monitor above-left", {-1920, -200, 0, 880}, 96, 0.5, {-1760, 340, -160, 880}},
      {"odd spare pixel goes right", {-101, 0, 1700, 900}, 96, 0.5, {-1, 450, 1599, 900}},
      {"150%: both limits scale", {0, 0, 2560, 1440}, 144, 0.20, {80, 1110, 2480, 1440}},
      {"110 dpi: scaled limits truncate", {0, 0, 2000, 1000}, 110, 0.20, {83, 748, 1916, 1000}},
      {"no area: none either", {50, 60, 50, 60}, 96, 0.33, {50, 60, 50, 60}},
      {"low window: all of it", {10, 10, 650, 210}, 96, 0.33, {10, 10, 650, 210}},
  };
  for (const auto& c : cases) EXPECT_EQ(DrawerRect(c.game, c.dpi, c.fraction), c.drawer) << c.name;
}

TEST(CoversMonitor, EdgesWithinTwoPixelsOrBeyond) {
  const ScreenRect monitor = {-1920, 0, 0, 1080};
  const struct {
    ScreenRect window;
    bool covers;
  } cases[] = {
      {{-1918, 2, -2, 1078}, true}, {{-1928, -8, 8, 1088}, true},  // overhanging frame
      {{-1917, 0, 0, 1080}, false}, {{-1920, 0, 0, 1077}, false},
      {{0, 0, 1920, 1080}, false},  // the neighbouring monitor
  };
  for (const auto& c : cases) EXPECT_EQ(CoversMonitor(c.window, monitor), c.covers) << &c - cases;
}

TEST(Slide, LinearAndClampedBothWays) {
  const struct {
    int64_t elapsed;
    float opening;
    float closing;
  } cases[] = {
      {-50, 0.0f, 1.0f},       {0, 0.0f, 1.0f},      {40, 0.25f, 1.0f - 40 / 110.0f},
      {55, 55 / 160.0f, 0.5f}, {110, 0.6875f, 0.0f}, {160, 1.0f, 0.0f},
  };
  for (const auto& c : cases) {
    EXPECT_FLOAT_EQ(SlideOpening(c.elapsed), c.opening) << c.elapsed;
    EXPECT_FLOAT_EQ(SlideClosing(c.elapsed), c.closing) << c.elapsed;
  }
}

TEST(Slide, OffsetKeepsContentBetweenHiddenAndInPlace) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const struct {
    float t;
    float offset;
  } cases[] = {{-0.5f, 356}, {0, 356}, {0.25f, 267}, {1, 0}, {1.7f, 0}, {nan, 356}};
  for (const auto& c : cases) EXPECT_FLOAT_EQ(SlideOffset(356, c.t), c.offset) << c.t;
}

TEST(PlanSurface, ResizesOnlyForANewNonZeroSize) {
  const struct {
    bool has_swap_chain;
    uint32_t width, height, new_width, new_height;
    SurfaceChange change;
  } cases[] = {
      {true, 100, 50, 100, 0, SurfaceChange::kRefuse},
      {false, 100, 50, 100, 50, SurfaceChange::kCreate},  // released, size remembered
      {true, 100, 50, 100, 50, SurfaceChange::kKeep},
      {true, 100, 50, 101, 50, SurfaceChange::kResize},
      {true, 100, 50, 100, 49, SurfaceChange::kResize},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(PlanSurface(c.has_swap_chain, c.width, c.height, c.new_width, c.new_height), c.change)
        << &c - cases;
  }
}

}  // namespace
}  // namespace qn
