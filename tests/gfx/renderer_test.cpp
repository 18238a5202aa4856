#include "gfx/renderer.h"

#include <d3d11_4.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <tuple>
#include <utility>
#include <vector>

#include "chat/offscreen_target_win.h"
#include "support/test_files.h"

namespace qn {
namespace {

constexpr BlurParams kDrawerTint = {{0.06f, 0.06f, 0.08f, 0.55f}, 1.0f, 0};

constexpr int kRed = 16, kGreen = 8, kAlpha = 24;  // shifts in a BGRA pixel

// BGRA pixels, row after row.
struct Picture {
  uint32_t width = 0;
  uint32_t height = 0;
  std::vector<uint32_t> pixels;
  int Mean(int channel) const {
    long long sum = 0;
    for (const uint32_t pixel : pixels) sum += (pixel >> channel) & 255;
    return static_cast<int>(sum / static_cast<long long>(std::max<size_t>(pixels.size(), 1)));
  }
};

// Green sky over a grey floor: a colour that must not appear in a crop of the floor.
Picture GameFrame(uint32_t width, uint32_t height) {
  Picture p{width, height, std::vector<uint32_t>(size_t{width} * height, 0xFF808080u)};
  std::fill_n(p.pixels.begin(), p.pixels.size() / 2, 0xFF20D040u);
  return p;
}

class RendererTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(renderer_.Init()) << log_.Text(); }

  ComPtr<ID3D11Texture2D> Texture(const D3D11_TEXTURE2D_DESC& desc, const void* data = nullptr,
                                  UINT pitch = 0) {
    const D3D11_SUBRESOURCE_DATA init = {data, pitch, 0};
    ComPtr<ID3D11Texture2D> texture;
    EXPECT_HRESULT_SUCCEEDED(
        renderer_.Device()->CreateTexture2D(&desc, data ? &init : nullptr, texture.put()));
    return texture;
  }

  ComPtr<ID3D11Texture2D> Frame(const Picture& p, UINT bind = D3D11_BIND_SHADER_RESOURCE) {
    return Texture(CD3D11_TEXTURE2D_DESC(DXGI_FORMAT_B8G8R8A8_UNORM, p.width, p.height, 1, 1, bind),
                   p.pixels.data(), p.width * 4);
  }

  // Renders into a cleared BGRA target of the given size and reads it back.
  Picture Draw(ID3D11Texture2D* frame, const RECT& crop, uint32_t width, uint32_t height,
               const BlurParams& params) {
    const auto target = Texture(CD3D11_TEXTURE2D_DESC(DXGI_FORMAT_B8G8R8A8_UNORM, width, height, 1,
                                                      1, D3D11_BIND_RENDER_TARGET));
    ComPtr<ID3D11RenderTargetView> view;
    EXPECT_HRESULT_SUCCEEDED(
        renderer_.Device()->CreateRenderTargetView(target.get(), nullptr, view.put()));
    const float clear[4] = {0, 0, 0, 0};
    renderer_.Context()->ClearRenderTargetView(view.get(), clear);
    renderer_.Render(frame, crop, view.get(), width, height, params);
    return {width, height,
            test::ReadTexture(renderer_.Device(), renderer_.Context(), target.get())};
  }

  ComApartment com_{COINIT_MULTITHREADED};
  test::CapturedLog log_;
  Renderer renderer_;
};

// Its last set-up step fails once, as it would when the driver runs out of memory.
class LateFailingRenderer : public Renderer {
  bool CreateStates() override { return !std::exchange(fail_, false) && Renderer::CreateStates(); }
  bool fail_ = true;
};

// A device at the lowest feature level the renderer accepts, as an old card would give.
class LowestLevelRenderer : public Renderer {
  HRESULT CreateDevice(IDXGIAdapter* adapter, const D3D_FEATURE_LEVEL*, UINT) override {
    const D3D_FEATURE_LEVEL lowest = D3D_FEATURE_LEVEL_10_1;
    return Renderer::CreateDevice(adapter, &lowest, 1);
  }
};

TEST_F(RendererTest, FailedInitKeepsNothingAndTheDeviceIsSafeForTheCaptureThread) {
  LateFailingRenderer renderer;
  EXPECT_FALSE(renderer.Init());
  EXPECT_EQ(renderer.Device(), nullptr);
  ASSERT_TRUE(renderer.Init());
  ID3D11Device* device = renderer.Device();
  EXPECT_TRUE(renderer.Init());
  EXPECT_EQ(renderer.Device(), device);
  ComPtr<ID3D11Multithread> lock;
  ASSERT_HRESULT_SUCCEEDED(renderer.Context()->QueryInterface(IID_PPV_ARGS(lock.put())));
  EXPECT_TRUE(lock->GetMultithreadProtected());
  // No display under the tests runs in HDR; the walk over adapters and outputs must end, at
  // the adapter that the device was made on. Made there by name, the device is the same.
  const DisplayFacts display = renderer.DisplayOf(GetDesktopWindow());
  EXPECT_FALSE(display.hdr);
  EXPECT_EQ(display.adapter, renderer.Adapter());
  LowestLevelRenderer lowest;
  ASSERT_TRUE(lowest.Init(display.adapter)) << log_.Text();
  EXPECT_EQ(lowest.Adapter(), display.adapter);
  EXPECT_EQ(lowest.Device()->GetFeatureLevel(), D3D_FEATURE_LEVEL_10_1);
  EXPECT_TRUE(lowest.UseOldBlurForBench(true));
}

// The floor under a drawer: 55% of the way to the tint, faded, with premultiplied alpha. The
// chain is kept while the size stays; frames that cannot be sampled go through a cached copy
// of the crop and must look the same, also after a trim, but for the sky that a frame sampled
// in place lends the crop's top row.
TEST_F(RendererTest, BackdropIsCroppedTintedPremultipliedAndCached) {
  const Picture game = GameFrame(128, 96);
  const auto sampled = Frame(game);
  const auto copied = Frame(game, D3D11_BIND_RENDER_TARGET);
  const RECT floor = {0, 48, 128, 96};
  for (const float opacity : {1.0f, 0.5f, 0.0f}) {
    BlurParams params = kDrawerTint;
    params.opacity = opacity;
    const Picture out = Draw(sampled.get(), floor, 128, 48, params);
    EXPECT_NEAR(out.Mean(kAlpha), 255 * opacity, 1.5) << opacity;
    // Half grey blended with the tint: 0.45 * 0.5 + 0.55 * 0.06 = 0.258.
    EXPECT_NEAR(out.Mean(kRed), 0.258 * 255 * opacity, 6) << opacity;
    EXPECT_NEAR(out.Mean(kGreen), out.Mean(kRed), 2) << "the sky leaked into the floor";
    EXPECT_GE(out.Mean(0), out.Mean(kRed)) << "the tint is bluish";
    for (const uint32_t px : out.pixels) {
      ASSERT_LE(std::max({px >> kRed & 255, px >> kGreen & 255, px & 255}), px >> kAlpha);
    }
  }
  const Picture reference = Draw(sampled.get(), floor, 128, 48, kDrawerTint);
  EXPECT_EQ(renderer_.ChainBuilds(), 1u);
  Draw(sampled.get(), {0, 40, 128, 96}, 128, 56, kDrawerTint);
  EXPECT_EQ(renderer_.ChainBuilds(), 2u);
  renderer_.Trim();
  const Picture copy = Draw(copied.get(), floor, 128, 48, kDrawerTint);
  for (size_t i = 0; i < copy.pixels.size(); ++i) {
    for (const int channel : {0, kGreen, kRed, kAlpha}) {
      ASSERT_NEAR(copy.pixels[i] >> channel & 255, reference.pixels[i] >> channel & 255, 3) << i;
    }
  }
  // A crop with no pixel in the frame draws nothing; which crops have none, ClampCrop's table.
  EXPECT_EQ(Draw(sampled.get(), {0, 96, 128, 140}, 32, 32, kDrawerTint).Mean(kAlpha), 0);
}

// Every level has to contribute: the down passes alone leave a one-pixel line about half as
// wide and twice as bright as the upsampling tent does.
TEST_F(RendererTest, ThinLineSpreadsThroughTheWholeChain) {
  Picture line{256, 64, std::vector<uint32_t>(256 * 64, 0xFF000000u)};
  for (uint32_t y = 0; y < 64; ++y) line.pixels[y * 256 + 128] = 0xFFFFFFFFu;
  const Picture out = Draw(Frame(line).get(), {0, 0, 256, 64}, 256, 64, BlurParams{});
  const auto row = out.pixels.begin() + 32 * 256;
  EXPECT_GE(std::count_if(row, row + 256, [](uint32_t px) { return (px & 255) > 0; }), 24);
  EXPECT_LE(*std::max_element(row, row + 256) & 255, 22u);
}

// Captured frames are linear scRGB and the drawer's swap chain is shown as sRGB: linear
// 0.214 is the sRGB mid-grey 128. 8.0 is a highlight far above SDR white.
// On an HDR display whose SDR white is 240 nits, an SDR game's white arrives as 3.0.
TEST_F(RendererTest, ScRgbIsEncodedForTheDisplayAndToneMappedOnlyOnHdr) {
  // A one-pixel frame: its format, its texel, the display's HDR flag and SDR white, the green
  // that shows.
  const std::tuple<DXGI_FORMAT, uint64_t, uint8_t, float, int> cases[] = {
      {DXGI_FORMAT_R16G16B16A16_FLOAT, 0x32D932D932D932D9u, 0, 80, 128},
      {DXGI_FORMAT_R16G16B16A16_FLOAT, 0x4800480048004800u, 0, 80, 255},
      {DXGI_FORMAT_R16G16B16A16_FLOAT, 0x4800480048004800u, 1, 80, 242},   // Reinhard 8 / 9, sRGB
      {DXGI_FORMAT_R16G16B16A16_FLOAT, 0x4200420042004200u, 1, 240, 188},  // 1 / 2, not 3 / 4
      {DXGI_FORMAT_B8G8R8A8_UNORM, 0xFF808080u, 1, 240, 128},  // already sRGB, never tone-mapped
  };
  for (const auto& [format, texel, hdr, white, expected] : cases) {
    const auto frame = Texture(CD3D11_TEXTURE2D_DESC(format, 1, 1, 1, 1), &texel, 8);
    const BlurParams params = {{0, 0, 0, 0}, 1.0f, hdr, 1.0f, white};
    const Picture out = Draw(frame.get(), {0, 0, 1, 1}, 1, 1, params);
    EXPECT_NEAR(out.Mean(kGreen), expected, 2) << std::hex << texel << " hdr " << int{hdr};
  }
}

// A black/white step over a checkerboard with thin lines: the pictures left beside the test
// show what the player sees at each setting.
Picture EdgeScene() {
  Picture p{256, 96, std::vector<uint32_t>(256 * 96)};
  for (uint32_t y = 0; y < p.height; ++y) {
    for (uint32_t x = 0; x < p.width; ++x) {
      const bool white = y < 64 ? x >= 128 : ((x / 8 + y / 8) % 2 == 0 || x % 32 == 3);
      p.pixels[y * p.width + x] = white ? 0xFFFFFFFFu : 0xFF000000u;
    }
  }
  return p;
}

// The green of a row across the step, 24 rows down the frame.
std::vector<int> EdgeProfile(const Picture& p) {
  std::vector<int> row;
  for (uint32_t x = 64; x < 192; ++x) {
    row.push_back(int(p.pixels[8 * p.width + x] >> kGreen & 255));
  }
  return row;
}

int LargestStep(const std::vector<int>& row) {
  int largest = 0;
  for (size_t i = 1; i < row.size(); ++i) {
    largest = std::max(largest, std::abs(row[i] - row[i - 1]));
  }
  return largest;
}

// Each step of the setting widens the edge; half the setting gives a softer edge than the
// full blur's and a harder one than the game's, never the sharp edge showing through the blur
// as a second one. Without blur the crop shows as it is, with no chain at all; each depth of
// blur uses the same chain.
TEST_F(RendererTest, EdgeWidensWithTheSettingAndIsNeverDoubled) {
  const Picture scene = EdgeScene();
  const auto frame = Frame(scene);
  const RECT crop = {0, 16, 256, 96};
  std::vector<std::vector<int>> profiles;
  renderer_.Trim();
  const uint32_t builds = renderer_.ChainBuilds();
  for (const int blur : {0, 25, 50, 75, 100}) {
    const Picture out = Draw(frame.get(), crop, 256, 80, {{}, 1, 0, blur / 100.0f});
    if (blur % 50 == 0) {
      const std::wstring name = L"blur_edge_" + std::to_wstring(blur) + L".png";
      EXPECT_TRUE(test::WritePng(test::NextToProgram(name), out.width, out.height, out.pixels));
    }
    EXPECT_EQ(renderer_.ChainBuilds(), builds + (blur > 0 ? 1u : 0u)) << blur;
    if (blur == 0) {
      EXPECT_TRUE(
          std::equal(out.pixels.begin(), out.pixels.end(), scene.pixels.begin() + 16 * 256));
    }
    profiles.push_back(EdgeProfile(out));
    EXPECT_TRUE(std::is_sorted(profiles.back().begin(), profiles.back().end())) << blur;
    const auto soft = [](const std::vector<int>& row) {
      return std::count_if(row.begin(), row.end(), [](int g) { return g > 8 && g < 247; });
    };
    if (blur > 0) {
      EXPECT_GT(soft(profiles.back()), soft(profiles[profiles.size() - 2])) << blur;
    }
  }
  const auto& sharp = profiles[0];
  const auto& half = profiles[2];
  const auto& full = profiles[4];
  for (size_t x = 0; x < half.size(); ++x) {
    EXPECT_LE(half[x], std::max(sharp[x], full[x]) + 1) << x;
    EXPECT_GE(half[x], std::min(sharp[x], full[x]) - 1) << x;
  }
  EXPECT_LT(LargestStep(half), 255 / 4) << "a doubled edge";
  // The former cross-fade kept half of the sharp step in its blur.
  ASSERT_TRUE(renderer_.UseOldBlurForBench(true));
  const Picture old = Draw(frame.get(), crop, 256, 80, {{}, 1, 0, 0.5f});
  EXPECT_GE(LargestStep(EdgeProfile(old)), 255 / 2);
}

}  // namespace
}  // namespace qn
