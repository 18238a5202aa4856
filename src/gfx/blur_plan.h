#pragma once
// The backdrop renderer's decisions, kept free of Direct3D so that they can be checked
// natively: which part of the frame is blurred, the sizes of the blur chain, what each
// pass reads, writes and finds in its constant buffer, and when cached objects go stale.
#include <array>
#include <cstdint>
#include <optional>

namespace qn {

constexpr uint32_t kBlurLevelCount = 3;
// DXGI_FORMAT_R16G16B16A16_FLOAT: the format of scRGB frames and of the chain.
constexpr uint32_t kFormatRgba16Float = 10;

// Given to each frame by the caller.
struct BlurParams {
  float tint[4] = {0, 0, 0, 0};  // red, green, blue, tint weight
  float opacity = 1.0f;
  uint8_t hdr = 0;  // the display under the game runs in HDR
  // How much of the blur shows, 0..1: at 0 the game is only dimmed by the tint.
  float blur = 1.0f;
};

// What the composite pass does to the blurred colour before the tint. Captured frames are
// FP16 scRGB, which is linear light, while the drawer's 8-bit swap chain is shown as sRGB:
// written unencoded, mid-tones would come out about half as bright as the game's.
enum class CompositeEncode : uint8_t {
  kAsIs,        // an 8-bit frame, already sRGB-encoded
  kSrgb,        // scRGB on an SDR display: clipped at SDR white, then encoded
  kToneMapSrgb  // scRGB on an HDR display: highlights above SDR white tone-mapped first
};

// The pixel shaders' constant buffer, byte for byte.
struct BlurCB {
  float texel_size[2] = {0, 0};
  // The first downsample and the composite's unblurred sample read only the crop of the frame.
  float uv_scale[2] = {1, 1};
  float uv_offset[2] = {0, 0};
  float encode = 0;  // CompositeEncode as a number
  float opacity = 1;
  float tint_color[4] = {0, 0, 0, 0};
  float blur = 1;         // the composite's share of the blurred level against the frame
  float padding[3] = {};  // constant buffers come in 16-byte rows
};
static_assert(sizeof(BlurCB) == 64);

struct PixelSize {
  uint32_t width = 0;
  uint32_t height = 0;
  bool operator==(const PixelSize&) const = default;
};

struct PixelRect {
  int32_t left = 0;
  int32_t top = 0;
  int32_t right = 0;
  int32_t bottom = 0;
  bool operator==(const PixelRect&) const = default;
};

// The crop limited to the frame; nothing when no pixel of it is left.
std::optional<PixelRect> ClampCrop(const PixelRect& crop, PixelSize frame);

// Level 0 is the crop itself; each further level halves, rounding up, never below 1x1.
std::array<PixelSize, kBlurLevelCount> ChainSizes(PixelSize crop);

// Only an scRGB frame is linear, and only on an HDR display can it hold more than SDR white.
CompositeEncode CompositeEncodeFor(const BlurParams& params, uint32_t frame_format);

enum class BlurShader : uint8_t { kDown, kUp, kComposite };

// Where a pass reads or writes: a level of the chain, the frame, or the caller's target.
constexpr int kFrameSlot = -1;
constexpr int kTargetSlot = -2;

struct BlurPass {
  BlurShader shader = BlurShader::kDown;
  int source = kFrameSlot;
  int target = 0;
  PixelSize viewport;
  BlurCB constants;
};

// Down into every level, up again to level 0, and the composite into the target. The
// composite also reads the frame itself, for the unblurred share of a partial blur.
constexpr uint32_t kBlurPassCount = 2 * kBlurLevelCount;
std::array<BlurPass, kBlurPassCount> PlanPasses(PixelSize frame, const PixelRect& crop,
                                                PixelSize target, const BlurParams& params,
                                                CompositeEncode encode);

// What a cached object was made for.
struct TextureShape {
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t format = 0;
  bool operator==(const TextureShape&) const = default;
};

bool ChainIsStale(bool built, PixelSize built_for, PixelSize crop);
bool SourceCopyIsStale(bool built, const TextureShape& built_for, const TextureShape& frame);

}  // namespace qn
