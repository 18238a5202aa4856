#include "gfx/blur_plan.h"

#include <gtest/gtest.h>

#include <limits>
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

// The composite reads the same crop of the frame for the unblurred share, with the strength
// kept inside 0..1.
TEST(BlurPlan, CompositeMixesTheCropByTheClampedStrength) {
  const std::pair<float, float> cases[] = {
      {0.4f, 0.4f}, {-0.5f, 0.0f}, {3.0f, 1.0f}, {std::numeric_limits<float>::quiet_NaN(), 0.0f}};
  for (const auto& [blur, used] : cases) {
    BlurParams params;
    params.blur = blur;
    const auto passes =
        PlanPasses({1000, 900}, {100, 600, 901, 900}, {801, 300}, params, CompositeEncode::kAsIs);
    const BlurCB& composite = passes.back().constants;
    EXPECT_EQ(composite.blur, used) << blur;
    EXPECT_FLOAT_EQ(composite.uv_offset[1], passes[0].constants.uv_offset[1]);
    EXPECT_FLOAT_EQ(composite.uv_scale[0], passes[0].constants.uv_scale[0]);
    EXPECT_FLOAT_EQ(composite.texel_size[0], 1.0f / 801);
  }
}

}  // namespace
}  // namespace qn
