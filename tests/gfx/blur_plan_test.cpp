#include "gfx/blur_plan.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace qn {
namespace {

TEST(BlurPlan, ClampCrop) {
  const std::pair<PixelRect, std::optional<PixelRect>> cases[] = {
      {{-50, -10, 900, 700}, PixelRect{0, 0, 800, 600}},  // drawer larger than a shrunk frame
      {{0, 600, 800, 800}, std::nullopt},                 // wholly below the frame
      {{300, 300, 300, 400}, std::nullopt},               // no width left
  };
  for (const auto& [crop, clamped] : cases) EXPECT_EQ(ClampCrop(crop, {800, 600}), clamped);
}

// "shader source>target viewport /texel", the texel size as the pixels it divides into.
std::string Describe(const BlurPass& pass) {
  const char* shaders[] = {"down", "up", "composite"};
  const auto pixels = [&](int i) { return std::lround(1 / pass.constants.texel_size[i]); };
  return std::string(shaders[static_cast<int>(pass.shader)]) + " " + std::to_string(pass.source) +
         ">" + std::to_string(pass.target) + " " + std::to_string(pass.viewport.width) + "x" +
         std::to_string(pass.viewport.height) + " /" + std::to_string(pixels(0)) + "x" +
         std::to_string(pixels(1));
}

// The crop, (100, 600)-(901, 900) of 1000x900, folds into the first pass, and the composite
// reads the same crop of the frame for the unblurred share, with the strength kept in 0..1.
// Each level halves the one above, rounding up, and each pass reads the level before it at
// that level's texel size.
TEST(BlurPlan, FirstPassAndCompositeReadOnlyTheCrop) {
  EXPECT_EQ(ChainSizes({3, UINT32_MAX})[1], (PixelSize{2, 2147483648u}));  // halved in 64 bits
  const std::pair<float, float> cases[] = {
      {0.4f, 0.4f}, {-0.5f, 0.0f}, {3.0f, 1.0f}, {std::numeric_limits<float>::quiet_NaN(), 0.0f}};
  for (const auto& [blur, used] : cases) {
    BlurParams params;
    params.blur = blur;
    const auto passes =
        PlanPasses({1000, 900}, {100, 600, 901, 900}, {1602, 600}, params, CompositeEncode::kAsIs);
    const BlurCB& composite = passes.back().constants;
    EXPECT_EQ(composite.blur, used) << blur;
    std::vector<std::string> described;
    for (const BlurPass& pass : passes) described.push_back(Describe(pass));
    EXPECT_EQ(described, (std::vector<std::string>{
                             "down -1>0 801x300 /1000x900", "down 0>1 401x150 /801x300",
                             "down 1>2 201x75 /401x150", "up 2>1 401x150 /201x75",
                             "up 1>0 801x300 /401x150", "composite 0>-2 1602x600 /801x300"}));
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
