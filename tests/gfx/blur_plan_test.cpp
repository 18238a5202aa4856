#include "gfx/blur_plan.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <tuple>
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

// "shader source>target viewport /step", the tap step as the pixels it divides into.
std::string Describe(const BlurPass& pass) {
  const char* shaders[] = {"down", "up", "composite", "cross-fade"};
  const auto pixels = [&](int i) { return std::lround(1 / pass.constants.tap_step[i]); };
  return std::string(shaders[static_cast<int>(pass.shader)]) + " " + std::to_string(pass.source) +
         ">" + std::to_string(pass.target) + " " + std::to_string(pass.viewport.width) + "x" +
         std::to_string(pass.viewport.height) + " /" + std::to_string(pixels(0)) + "x" +
         std::to_string(pixels(1));
}

using Passes = std::vector<std::string>;

// The crop, (100, 600)-(901, 900) of 1000x900, folds into the first pass, or into the
// composite when nothing is blurred. The radius follows the setting: each level halves the
// one above, rounding up, and reaches twice as far; the spread of the taps covers the radii
// between two depths. The former cross-fade ran the whole chain at any setting.
TEST(BlurPlan, PassesFollowTheRadiusAndReadOnlyTheCrop) {
  EXPECT_EQ(ChainSizes({3, UINT32_MAX})[1], (PixelSize{2, 2147483648u}));  // halved in 64 bits
  const Passes full = {"down -1>0 801x300 /1000x900", "down 0>1 401x150 /801x300",
                       "down 1>2 201x75 /401x150",    "up 2>1 401x150 /201x75",
                       "up 1>0 801x300 /401x150",     "composite 0>-2 1602x600 /801x300"};
  const Passes none = {"composite -1>-2 1602x600 /1000x900"};
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const std::tuple<float, bool, Passes> cases[] = {
      {1.0f, false, full},
      {3.0f, false, full},
      {0.75f,
       false,
       {"down -1>0 801x300 /1333x1200", "down 0>1 401x150 /1068x400", "down 1>2 201x75 /535x200",
        "up 2>1 401x150 /268x100", "up 1>0 801x300 /535x200", "composite 0>-2 1602x600 /801x300"}},
      {0.5f,
       false,
       {"down -1>0 801x300 /1000x900", "down 0>1 401x150 /801x300", "up 1>0 801x300 /401x150",
        "composite 0>-2 1602x600 /801x300"}},
      {0.125f, false, {"down -1>0 801x300 /2000x1800", "composite 0>-2 1602x600 /801x300"}},
      {0.0f, false, none},
      {-0.5f, false, none},
      {nan, false, none},
      {0.5f,
       true,
       {full[0], full[1], full[2], full[3], full[4], "cross-fade 0>-2 1602x600 /1000x900"}},
  };
  for (const auto& [blur, old, expected] : cases) {
    BlurParams params;
    params.blur = blur;
    const auto plan = (old ? PlanCrossFadePasses : PlanPasses)(
        {1000, 900}, {100, 600, 901, 900}, {1602, 600}, params, CompositeEncode::kAsIs);
    Passes described;
    for (const BlurPass& pass : plan) described.push_back(Describe(pass));
    EXPECT_EQ(described, expected) << blur;
    EXPECT_EQ(plan.passes[plan.pass_count - 1].constants.cross_fade, old ? 0.5f : 1.0f);
    // What reads the frame reads the crop of it; what reads a level reads all of it.
    for (const BlurPass& pass : plan) {
      const bool frame = pass.source == kFrameSlot || pass.shader == BlurShader::kCrossFade;
      const BlurCB& cb = pass.constants;
      EXPECT_FLOAT_EQ(cb.uv_scale[0], frame ? 0.801f : 1) << Describe(pass);
      EXPECT_FLOAT_EQ(cb.uv_scale[1], frame ? 300.0f / 900.0f : 1);
      EXPECT_FLOAT_EQ(cb.uv_offset[0], frame ? 0.1f : 0);
      EXPECT_FLOAT_EQ(cb.uv_offset[1], frame ? 600.0f / 900.0f : 0);
    }
  }
}

// SDR white arrives at the display's SDR level only in the frames of an HDR display.
TEST(BlurPlan, SdrWhiteInFrame) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const std::tuple<uint8_t, uint32_t, float, float> cases[] = {
      {1, kFormatRgba16Float, 80, 1},  {1, kFormatRgba16Float, 240, 3},
      {1, kFormatRgba16Float, 0, 1},   {1, kFormatRgba16Float, nan, 1},  // the level is unknown
      {0, kFormatRgba16Float, 240, 1}, {1, 87, 240, 1},  // an SDR display, an 8-bit frame
  };
  for (const auto& [hdr, format, nits, white] : cases) {
    BlurParams params;
    params.hdr = hdr;
    params.sdr_white_nits = nits;
    EXPECT_EQ(SdrWhiteInFrame(params, CompositeEncodeFor(params, format)), white) << nits;
  }
}

// A hybrid laptop: the basic render driver, the integrated adapter with the panel and a
// monitor that the discrete one lists as well, and the discrete adapter.
TEST(BlurPlan, DeviceGoesOnTheAdapterShowingTheGame) {
  const std::vector<AdapterOutputs> adapters = {
      {0x1, true, {10}}, {0x11, false, {20, 10}}, {0x22, false, {30, 10}}};
  const std::pair<uintptr_t, std::optional<OutputIndex>> cases[] = {
      {10, OutputIndex{1, 1}}, {30, OutputIndex{2, 0}}, {99, std::nullopt}};
  for (const auto& [monitor, shown] : cases) EXPECT_EQ(OutputShowing(adapters, monitor), shown);
  EXPECT_TRUE(DeviceOnOtherAdapter(0x11, 0x22));
  EXPECT_FALSE(DeviceOnOtherAdapter(0x11, 0x11));
  EXPECT_FALSE(DeviceOnOtherAdapter(0, 0x22));  // no device yet: made where it belongs anyway
  EXPECT_FALSE(DeviceOnOtherAdapter(0x11, 0));  // the game's adapter is unknown
}

}  // namespace
}  // namespace qn
