#include "gfx/blur_plan.h"

#include <algorithm>

namespace qn {
namespace {

BlurCB SampleConstants(PixelSize source) {
  BlurCB cb;
  cb.texel_size[0] = 1.0f / static_cast<float>(source.width);
  cb.texel_size[1] = 1.0f / static_cast<float>(source.height);
  return cb;
}

BlurCB FirstDownConstants(PixelSize frame, const PixelRect& crop) {
  BlurCB cb = SampleConstants(frame);
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

BlurCB CompositeConstants(PixelSize frame, const PixelRect& crop, PixelSize level0,
                          const BlurParams& params, CompositeEncode encode) {
  BlurCB cb = FirstDownConstants(frame, crop);
  const BlurCB level = SampleConstants(level0);
  std::copy(std::begin(level.texel_size), std::end(level.texel_size), cb.texel_size);
  cb.blur = ClampBlur(params.blur);
  cb.encode = static_cast<float>(encode);
  cb.opacity = params.opacity;
  std::copy(std::begin(params.tint), std::end(params.tint), cb.tint_color);
  return cb;
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

std::array<BlurPass, kBlurPassCount> PlanPasses(PixelSize frame, const PixelRect& crop,
                                                PixelSize target, const BlurParams& params,
                                                CompositeEncode encode) {
  const auto levels = ChainSizes({static_cast<uint32_t>(crop.right - crop.left),
                                  static_cast<uint32_t>(crop.bottom - crop.top)});
  constexpr int kLast = static_cast<int>(kBlurLevelCount) - 1;
  std::array<BlurPass, kBlurPassCount> passes;
  size_t n = 0;
  passes[n++] = {BlurShader::kDown, kFrameSlot, 0, levels[0], FirstDownConstants(frame, crop)};
  for (int i = 1; i <= kLast; ++i) {
    passes[n++] = {BlurShader::kDown, i - 1, i, levels[i], SampleConstants(levels[i - 1])};
  }
  for (int j = kLast; j >= 1; --j) {
    passes[n++] = {BlurShader::kUp, j, j - 1, levels[j - 1], SampleConstants(levels[j])};
  }
  passes[n] = {BlurShader::kComposite, 0, kTargetSlot, target,
               CompositeConstants(frame, crop, levels[0], params, encode)};
  return passes;
}

bool ChainIsStale(bool built, PixelSize built_for, PixelSize crop) {
  return !built || built_for != crop;
}

bool SourceCopyIsStale(bool built, const TextureShape& built_for, const TextureShape& frame) {
  return !built || built_for != frame;
}

}  // namespace qn
