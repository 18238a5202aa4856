#include "gfx/blur_plan.h"

#include <algorithm>

namespace qn {
namespace {

// Taps one texel apart at full spread, closer together below it.
BlurCB SampleConstants(PixelSize source, float spread) {
  BlurCB cb;
  cb.tap_step[0] = spread / static_cast<float>(source.width);
  cb.tap_step[1] = spread / static_cast<float>(source.height);
  return cb;
}

// What reads the frame itself reads only the crop of it.
BlurCB FrameConstants(PixelSize frame, const PixelRect& crop, float spread) {
  BlurCB cb = SampleConstants(frame, spread);
  const auto fw = static_cast<float>(frame.width);
  const auto fh = static_cast<float>(frame.height);
  cb.uv_scale[0] = static_cast<float>(crop.right - crop.left) / fw;
  cb.uv_scale[1] = static_cast<float>(crop.bottom - crop.top) / fh;
  cb.uv_offset[0] = static_cast<float>(crop.left) / fw;
  cb.uv_offset[1] = static_cast<float>(crop.top) / fh;
  return cb;
}

// Outside 0..1 the nearer end holds; NaN, which has no nearer end, gives no blur.
float ClampBlur(float blur) { return blur > 0 ? std::min(blur, 1.0f) : 0.0f; }

BlurCB WithLook(BlurCB cb, const BlurParams& params, CompositeEncode encode) {
  cb.encode = static_cast<float>(encode);
  cb.sdr_white = SdrWhiteInFrame(params, encode);
  cb.opacity = params.opacity;
  std::copy(std::begin(params.tint), std::end(params.tint), cb.tint_color);
  return cb;
}

// The chain's passes for `reach`, then `composite` from level 0, or from the crop of the frame
// when no level is used.
BlurPlan PlanChain(PixelSize frame, const PixelRect& crop, PixelSize target, BlurReach reach,
                   BlurPass composite) {
  const auto levels = ChainSizes({static_cast<uint32_t>(crop.right - crop.left),
                                  static_cast<uint32_t>(crop.bottom - crop.top)});
  const int last = static_cast<int>(reach.levels) - 1;
  BlurPlan plan;
  plan.levels = reach.levels;
  auto& passes = plan.passes;
  uint32_t& n = plan.pass_count;
  if (last >= 0) {
    passes[n++] = {BlurShader::kDown, kFrameSlot, 0, levels[0],
                   FrameConstants(frame, crop, reach.spread)};
  }
  for (int i = 1; i <= last; ++i) {
    passes[n++] = {BlurShader::kDown, i - 1, i, levels[i],
                   SampleConstants(levels[i - 1], reach.spread)};
  }
  for (int j = last; j >= 1; --j) {
    passes[n++] = {BlurShader::kUp, j, j - 1, levels[j - 1],
                   SampleConstants(levels[j], reach.spread)};
  }
  composite.source = last >= 0 ? 0 : kFrameSlot;
  composite.target = kTargetSlot;
  composite.viewport = target;
  passes[n++] = composite;
  return plan;
}

}  // namespace

std::optional<PixelRect> ClampCrop(const PixelRect& crop, PixelSize frame) {
  PixelRect r = crop;
  r.left = std::max(r.left, 0);
  r.top = std::max(r.top, 0);
  r.right = static_cast<int32_t>(std::min<int64_t>(r.right, frame.width));
  r.bottom = static_cast<int32_t>(std::min<int64_t>(r.bottom, frame.height));
  if (r.right <= r.left || r.bottom <= r.top) return std::nullopt;
  return r;
}

std::array<PixelSize, kBlurLevelCount> ChainSizes(PixelSize crop) {
  std::array<PixelSize, kBlurLevelCount> sizes;
  uint32_t w = crop.width;
  uint32_t h = crop.height;
  for (PixelSize& size : sizes) {
    size = {std::max(w, 1u), std::max(h, 1u)};
    // Halving in 64 bits: a width near the 32-bit limit must not wrap to 0.
    w = static_cast<uint32_t>((uint64_t{w} + 1) / 2);
    h = static_cast<uint32_t>((uint64_t{h} + 1) / 2);
  }
  return sizes;
}

CompositeEncode CompositeEncodeFor(const BlurParams& params, uint32_t frame_format) {
  if (frame_format != kFormatRgba16Float) return CompositeEncode::kAsIs;
  return params.hdr != 0 ? CompositeEncode::kToneMapSrgb : CompositeEncode::kSrgb;
}

float SdrWhiteInFrame(const BlurParams& params, CompositeEncode encode) {
  constexpr float kScRgbOneNits = 80.0f;
  const float white = params.sdr_white_nits / kScRgbOneNits;
  // A level the display could not tell (0, or garbage) leaves the frame as it is.
  const bool known = white > 0 && white <= 1e4f;
  return encode == CompositeEncode::kToneMapSrgb && known ? white : 1.0f;
}

BlurReach ReachFor(float blur) {
  // The radius in units of the first level's reach, which doubles with each further level.
  const float radius = ClampBlur(blur) * static_cast<float>(1u << kBlurLevelCount);
  if (radius <= 0) return {};
  uint32_t levels = 1;
  while (levels < kBlurLevelCount && radius > static_cast<float>(1u << levels)) ++levels;
  return {levels, radius / static_cast<float>(1u << levels)};
}

BlurPlan PlanPasses(PixelSize frame, const PixelRect& crop, PixelSize target,
                    const BlurParams& params, CompositeEncode encode) {
  const BlurReach reach = ReachFor(params.blur);
  const auto level0 = ChainSizes({static_cast<uint32_t>(crop.right - crop.left),
                                  static_cast<uint32_t>(crop.bottom - crop.top)})[0];
  // One sample per pixel: straight from the level, or from the crop of the frame.
  const BlurCB sample =
      reach.levels > 0 ? SampleConstants(level0, 1) : FrameConstants(frame, crop, 1);
  return PlanChain(frame, crop, target, reach,
                   {BlurShader::kComposite, 0, 0, {}, WithLook(sample, params, encode)});
}

BlurPlan PlanCrossFadePasses(PixelSize frame, const PixelRect& crop, PixelSize target,
                             const BlurParams& params, CompositeEncode encode) {
  BlurCB mix = WithLook(FrameConstants(frame, crop, 1), params, encode);
  mix.cross_fade = ClampBlur(params.blur);
  return PlanChain(frame, crop, target, {kBlurLevelCount, 1.0f},
                   {BlurShader::kCrossFade, 0, 0, {}, mix});
}

bool ChainIsStale(bool built, PixelSize built_for, PixelSize crop) {
  return !built || built_for != crop;
}

bool SourceCopyIsStale(bool built, const TextureShape& built_for, const TextureShape& frame) {
  return !built || built_for != frame;
}

std::optional<OutputIndex> OutputShowing(const std::vector<AdapterOutputs>& adapters,
                                         uintptr_t monitor) {
  for (size_t a = 0; a < adapters.size(); ++a) {
    const auto& monitors = adapters[a].monitors;
    const auto found = std::find(monitors.begin(), monitors.end(), monitor);
    if (!adapters[a].software && found != monitors.end()) {
      return OutputIndex{a, static_cast<size_t>(found - monitors.begin())};
    }
  }
  return std::nullopt;
}

bool DeviceOnOtherAdapter(uint64_t device_adapter, uint64_t monitor_adapter) {
  return device_adapter != 0 && monitor_adapter != 0 && device_adapter != monitor_adapter;
}

}  // namespace qn
