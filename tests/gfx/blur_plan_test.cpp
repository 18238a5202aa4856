#include "gfx/blur_plan.h"

#include <gtest/gtest.h>

#include <optional>
#include <utility>

namespace qn {
namespace {

TEST(BlurPlan, ClampCrop) {
  const std::pair<PixelRect, std::optional<PixelRect>> cases[] = {
      {{-50, 450, 900, 700}, PixelRect{0, 450, 800, 600}},  // drawer wider than a shrunk frame
      {{0, 600, 800, 800}, std::nullopt},                   // wholly below the frame
      {{300, 300, 200, 400}, std::nullopt},
  };
  for (const auto& [crop, clamped] : cases) EXPECT_EQ(ClampCrop(crop, {800, 600}), clamped);
}

// The crop folds into the first pass: (100, 600)-(901, 900) of 1000x900.
TEST(BlurPlan, FirstPassReadsOnlyTheCrop) {
  const BlurCB first = PlanPasses({1000, 900}, {100, 600, 901, 900}, {801, 300}, BlurParams{},
                                  CompositeEncode::kAsIs)[0]
                           .constants;
  EXPECT_FLOAT_EQ(first.uv_scale[0], 0.801f);
  EXPECT_FLOAT_EQ(first.uv_scale[1], 300.0f / 900.0f);
  EXPECT_FLOAT_EQ(first.uv_offset[0], 0.1f);
  EXPECT_FLOAT_EQ(first.uv_offset[1], 600.0f / 900.0f);
}

}  // namespace
}  // namespace qn
