#include "gfx/blur_plan.h"

#include <gtest/gtest.h>

#include <optional>

namespace qn {
namespace {

TEST(BlurPlan, ClampCrop) {
  struct Case {
    PixelRect crop;
    std::optional<PixelRect> expected;
  };
  const PixelSize frame = {800, 600};
  const Case cases[] = {
      {{0, 400, 800, 600}, PixelRect{0, 400, 800, 600}},
      {{-50, 450, 900, 700}, PixelRect{0, 450, 800, 600}},  // drawer wider than a shrunk frame
      {{100, 599, 101, 600}, PixelRect{100, 599, 101, 600}},
      {{0, 600, 800, 800}, std::nullopt},  // wholly below the frame
      {{-300, 0, -1, 600}, std::nullopt},  // wholly left of it
      {{200, 300, 200, 400}, std::nullopt},
      {{300, 300, 200, 400}, std::nullopt},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ClampCrop(c.crop, frame), c.expected)
        << c.crop.left << "," << c.crop.top << "," << c.crop.right << "," << c.crop.bottom;
  }
}

TEST(BlurPlan, ChainHalvesRoundingUp) {
  struct Case {
    PixelSize crop;
    PixelSize level1;
    PixelSize level2;
  };
  const Case cases[] = {
      {{1001, 601}, {501, 301}, {251, 151}},
      {{1920, 360}, {960, 180}, {480, 90}},
      {{1, 1}, {1, 1}, {1, 1}},
      {{3, 2}, {2, 1}, {1, 1}},
      {{0xFFFFFFFFu, 5}, {0x80000000u, 3}, {0x40000000u, 2}},
  };
  for (const Case& c : cases) {
    const auto sizes = ChainSizes(c.crop);
    EXPECT_EQ(sizes[0], c.crop);
    EXPECT_EQ(sizes[1], c.level1) << c.crop.width << "x" << c.crop.height;
    EXPECT_EQ(sizes[2], c.level2) << c.crop.width << "x" << c.crop.height;
  }
}

// The whole chain for a drawer over the bottom third of a 1000x900 frame.
TEST(BlurPlan, PassesWalkDownAndUpTheChain) {
  BlurParams params;
  params.tint[0] = 0.06f;
  params.tint[3] = 0.55f;
  params.opacity = 0.5f;
  const auto passes = PlanPasses({1000, 900}, {100, 600, 901, 900}, {801, 300}, params, true);
  struct Expected {
    BlurShader shader;
    int source;
    int target;
    PixelSize viewport;
    PixelSize texels;  // the source the texel size refers to
  };
  const Expected expected[] = {
      {BlurShader::kDown, kFrameSlot, 0, {801, 300}, {1000, 900}},
      {BlurShader::kDown, 0, 1, {401, 150}, {801, 300}},
      {BlurShader::kDown, 1, 2, {201, 75}, {401, 150}},
      {BlurShader::kUp, 2, 1, {401, 150}, {201, 75}},
      {BlurShader::kUp, 1, 0, {801, 300}, {401, 150}},
      {BlurShader::kComposite, 0, kTargetSlot, {801, 300}, {801, 300}},
  };
  for (size_t i = 0; i < passes.size(); ++i) {
    SCOPED_TRACE(i);
    const BlurPass& p = passes[i];
    EXPECT_EQ(p.shader, expected[i].shader);
    EXPECT_EQ(p.source, expected[i].source);
    EXPECT_EQ(p.target, expected[i].target);
    EXPECT_EQ(p.viewport, expected[i].viewport);
    EXPECT_FLOAT_EQ(p.constants.texel_size[0], 1.0f / expected[i].texels.width);
    EXPECT_FLOAT_EQ(p.constants.texel_size[1], 1.0f / expected[i].texels.height);
    const bool composite = p.shader == BlurShader::kComposite;
    EXPECT_EQ(p.constants.hdr, composite ? 1.0f : 0.0f);
    EXPECT_EQ(p.constants.opacity, composite ? 0.5f : 1.0f);
    EXPECT_EQ(p.constants.tint_color[3], composite ? 0.55f : 0.0f);
    if (i > 0) {
      EXPECT_EQ(p.constants.uv_scale[0], 1.0f);
      EXPECT_EQ(p.constants.uv_offset[1], 0.0f);
    }
  }
  // Only the first pass crops: (100, 600)-(901, 900) of 1000x900.
  EXPECT_FLOAT_EQ(passes[0].constants.uv_scale[0], 0.801f);
  EXPECT_FLOAT_EQ(passes[0].constants.uv_scale[1], 300.0f / 900.0f);
  EXPECT_FLOAT_EQ(passes[0].constants.uv_offset[0], 0.1f);
  EXPECT_FLOAT_EQ(passes[0].constants.uv_offset[1], 600.0f / 900.0f);
}

TEST(BlurPlan, CachedObjectsGoStaleOnShapeChange) {
  EXPECT_TRUE(ChainIsStale(false, {800, 200}, {800, 200}));
  EXPECT_FALSE(ChainIsStale(true, {800, 200}, {800, 200}));
  EXPECT_TRUE(ChainIsStale(true, {800, 200}, {800, 201}));
  const TextureShape copy = {1280, 720, 87};
  EXPECT_FALSE(SourceCopyIsStale(true, copy, copy));
  EXPECT_TRUE(SourceCopyIsStale(false, copy, copy));
  EXPECT_TRUE(SourceCopyIsStale(true, copy, {1280, 720, kFormatRgba16Float}));
  EXPECT_TRUE(SourceCopyIsStale(true, copy, {1280, 721, 87}));
}

}  // namespace
}  // namespace qn
