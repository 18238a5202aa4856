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

// The crop, (100, 600)-(901, 900) of 1000x900, folds into the first pass, and the composite
// reads the same crop of the frame for the unblurred share, with the strength kept in 0..1.
TEST(BlurPlan, FirstPassAndCompositeReadOnlyTheCrop) {
  const std::pair<float, float> cases[] = {
      {0.4f, 0.4f}, {-0.5f, 0.0f}, {3.0f, 1.0f}, {std::numeric_limits<float>::quiet_NaN(), 0.0f}};
  for (const auto& [blur, used] : cases) {
    BlurParams params;
    params.blur = blur;
    const auto passes =
        PlanPasses({1000, 900}, {100, 600, 901, 900}, {801, 300}, params, CompositeEncode::kAsIs);
    const BlurCB& composite = passes.back().constants;
    EXPECT_EQ(composite.blur, used) << blur;
    EXPECT_FLOAT_EQ(composite.texel_size[0], 1.0f / 801);
    for (const BlurCB* cb : {&passes[0].constants, &composite}) {
      EXPECT_FLOAT_EQ(cb->uv_scale[0], 0.801f);
      EXPECT_FLOAT_EQ(cb->uv_scale[1], 300.0f / 900.0f);
      EXPECT_FLOAT_EQ(cb->uv_offset[0], 0.1f);
      EXPECT_FLOAT_EQ(cb->uv_offset[1], 600.0f / 900.0f);
    }
  }
}

}  // namespace
}  // namespace qn
