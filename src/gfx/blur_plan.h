#pragma once
// The backdrop renderer's decisions, kept free of Direct3D so that they can be checked
// natively: which part of the frame is blurred, the sizes of the blur chain, what each
// pass reads, writes and finds in its constant buffer, when cached objects go stale, and
// which graphics adapter the device belongs on.
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace qn {

// The chain at full blur; a smaller blur uses fewer of its levels.
constexpr uint32_t kBlurLevelCount = 3;
// DXGI_FORMAT_R16G16B16A16_FLOAT: the format of scRGB frames and of the chain.
constexpr uint32_t kFormatRgba16Float = 10;

// Given to each frame by the caller.
struct BlurParams {
  float tint[4] = {0, 0, 0, 0};  // red, green, blue, tint weight
  float opacity = 1.0f;
  uint8_t hdr = 0;  // the display under the game runs in HDR
  // The blur's radius as a share of the largest, 0..1: at 0 the game is only dimmed by the tint.
  float blur = 1.0f;
  // How bright an HDR display shows SDR content: where the game's white sits in its frames.
  float sdr_white_nits = 80.0f;
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
  // How far apart a pass's taps lie, in the source's uv units: a texel at the widest spread.
  float tap_step[2] = {0, 0};
  // Whatever reads the frame itself reads only the crop of it.
  float uv_scale[2] = {1, 1};
  float uv_offset[2] = {0, 0};
  float encode = 0;  // CompositeEncode as a number
  float opacity = 1;
  float tint_color[4] = {0, 0, 0, 0};
  // SDR white in the frame's units (scRGB 1.0 is 80 nits), brought to 1.0 before a tone map.
  float sdr_white = 1;
  float cross_fade = 1;   // the cross-fading composite's share of the blurred level
  float padding[2] = {};  // constant buffers come in 16-byte rows
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

// An HDR display shows SDR content at a white level of the player's choosing, so an SDR game
// arrives with its white well above 1.0; left so, the tone map would lift its mid-tones.
float SdrWhiteInFrame(const BlurParams& params, CompositeEncode encode);

// How a blur radius is made: each level of the chain doubles the reach of the one before,
// and the spread of the taps (0..1) covers the radii in between. No levels: no blur at all.
struct BlurReach {
  uint32_t levels = 0;
  float spread = 0;
  bool operator==(const BlurReach&) const = default;
};
BlurReach ReachFor(float blur);

// kCrossFade is the former composite, which mixed the whole chain's blur with the sharp
// frame by the setting; benches still measure against it.
enum class BlurShader : uint8_t { kDown, kUp, kComposite, kCrossFade };

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

constexpr uint32_t kMaxBlurPasses = 2 * kBlurLevelCount;

struct BlurPlan {
  std::array<BlurPass, kMaxBlurPasses> passes;
  uint32_t pass_count = 0;
  uint32_t levels = 0;  // of the chain the passes use
  const BlurPass* begin() const { return passes.data(); }
  const BlurPass* end() const { return passes.data() + pass_count; }
};

// Down into as many levels as the radius needs, up again to level 0, and the composite into
// the target; without blur, the composite alone, straight from the crop of the frame.
BlurPlan PlanPasses(PixelSize frame, const PixelRect& crop, PixelSize target,
                    const BlurParams& params, CompositeEncode encode);
// The former way, for comparison: the whole chain at every setting, cross-faded with the frame.
BlurPlan PlanCrossFadePasses(PixelSize frame, const PixelRect& crop, PixelSize target,
                             const BlurParams& params, CompositeEncode encode);

// What a cached object was made for.
struct TextureShape {
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t format = 0;
  bool operator==(const TextureShape&) const = default;
};

bool ChainIsStale(bool built, PixelSize built_for, PixelSize crop);
bool SourceCopyIsStale(bool built, const TextureShape& built_for, const TextureShape& frame);

// A graphics adapter as DXGI lists it, with the monitors of its outputs.
struct AdapterOutputs {
  uint64_t luid = 0;
  bool software = false;
  std::vector<uintptr_t> monitors;
};
struct OutputIndex {
  size_t adapter = 0;
  size_t output = 0;
  bool operator==(const OutputIndex&) const = default;
};

// The output that shows `monitor`, on the first hardware adapter that lists it: the device
// belongs on that adapter, or every frame of the backdrop would cross between two of them.
// Nothing when no adapter lists it; the default adapter serves then.
std::optional<OutputIndex> OutputShowing(const std::vector<AdapterOutputs>& adapters,
                                         uintptr_t monitor);
// A device on one adapter while the game's monitor hangs on another: rebuilt where it belongs.
// An unknown adapter (0) on either side gives no reason to rebuild.
bool DeviceOnOtherAdapter(uint64_t device_adapter, uint64_t monitor_adapter);

}  // namespace qn
