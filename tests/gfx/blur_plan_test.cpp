#include "gfx/blur_plan.h"

#include <gtest/gtest.h>

#include <optional>

namespace qn {
namespace {

TEST(BlurPlan, ClampCrop) {
  const struct {
    PixelRect crop;
    std::optional<PixelRect> expected;
  } cases[] = {
      {{0, 400, 800, 600}, PixelRect{0, 400, 800, 600}},
      {{-50, 450, 900, 700}, PixelRect{0, 450, 800, 600}},  // drawer wider than a shrunk frame
      {{0, 600, 800, 800}, std::nullopt},                   // wholly below the frame
      {{-300, 0, -1, 600}, std::nullopt},                   // wholly left of it
      {{300, 300, 200, 400}, std::nullopt},
  };
  for (const auto& c : cases) EXPECT_EQ(ClampCrop(c.crop, {800, 600}), c.expected) << &c - cases;
}

TEST(BlurPlan, ChainHalvesRoundingUp) {
  const struct {
    PixelSize crop, level1, level2;
  } cases[] = {
      {{1001, 601}, {501, 301}, {251, 151}},
      {{1, 1}, {1, 1}, {1, 1}},
      {{0xFFFFFFFFu, 5}, {0x80000000u, 3}, {0x40000000u, 2}},
  };
  for (const auto& c : cases) {
    const auto sizes = ChainSizes(c.crop);
    EXPECT_EQ(sizes[0], c.crop);
    EXPECT_EQ(sizes[1], c.level1) << c.crop.width;
    EXPECT_EQ(sizes[2], c.level2) << c.crop.width;
  }
}

// The whole chain for a drawer over the bottom third of a 1000x900 frame.
TEST(BlurPlan, PassesWalkDownAndUpTheChain) {
  const auto passes = PlanPasses({1000, 900}, {100, 600, 901, 900}, {801, 300}, BlurParams{},
                                 CompositeEncode::kAsIs);
  const struct {
    BlurShader shader;
    int source, target;
    PixelSize viewport;
    PixelSize texels;  // the source the texel size refers to
  } expected[] = {
      {BlurShader::kDown, kFrameSlot, 0, {801, 300}, {1000, 900}},
      {BlurShader::kDown, 0, 1, {401, 150}, {801, 300}},
      {BlurShader::kDown, 1, 2, {201, 75}, {401, 150}},
      {BlurShader::kUp, 2, 1, {401, 150}, {201, 75}},
      {BlurShader::kUp, 1, 0, {801, 300}, {401, 150}},
      {BlurShader::kComposite, 0, kTargetSlot, {801, 300}, {801, 300}},
  };
  for (size_t i = 0; i < passes.size(); ++i) {
    const BlurPass& p = passes[i];
    EXPECT_EQ(p.shader, expected[i].shader) << i;
    EXPECT_EQ(p.source, expected[i].source) << i;
    EXPECT_EQ(p.target, expected[i].target) << i;
    EXPECT_EQ(p.viewport, expected[i].viewport) << i;
    EXPECT_FLOAT_EQ(p.constants.texel_size[0], 1.0f / expected[i].texels.width) << i;
    EXPECT_FLOAT_EQ(p.constants.texel_size[1], 1.0f / expected[i].texels.height) << i;
  }
  // Only the first pass crops: (100, 600)-(901, 900) of 1000x900.
  EXPECT_FLOAT_EQ(passes[0].constants.uv_scale[0], 0.801f);
  EXPECT_FLOAT_EQ(passes[0].constants.uv_offset[1], 600.0f / 900.0f);
  EXPECT_EQ(passes[1].constants.uv_offset[1], 0.0f);
}

// Captured frames are linear scRGB; an 8-bit frame is already encoded for the display.
TEST(BlurPlan, CompositeEncodesScRgbAndToneMapsOnlyOnHdr) {
  const struct {
    uint32_t format;
    uint8_t hdr;
    CompositeEncode encode;
  } cases[] = {
      {kFormatRgba16Float, 0, CompositeEncode::kSrgb},
      {kFormatRgba16Float, 1, CompositeEncode::kToneMapSrgb},
      {87, 0, CompositeEncode::kAsIs},
      {87, 1, CompositeEncode::kAsIs},
  };
  for (const auto& c : cases) {
    const BlurParams params = {{0.06f, 0.06f, 0.08f, 0.55f}, 0.5f, c.hdr};
    EXPECT_EQ(CompositeEncodeFor(params, c.format), c.encode) << &c - cases;
    const auto passes = PlanPasses({64, 64}, {0, 0, 64, 64}, {64, 64}, params, c.encode);
    const BlurCB& composite = passes.back().constants;
    EXPECT_EQ(composite.encode, static_cast<float>(c.encode));
    EXPECT_EQ(composite.opacity, 0.5f);
    EXPECT_EQ(composite.tint_color[3], 0.55f);
    // The blur passes must not encode, tint or fade what the next pass reads.
    EXPECT_EQ(passes[0].constants.encode, 0.0f);
    EXPECT_EQ(passes[0].constants.tint_color[3], 0.0f);
  }
}

}  // namespace
}  // namespace qn
