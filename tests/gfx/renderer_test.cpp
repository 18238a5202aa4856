#include "gfx/renderer.h"

#include <d3d11_4.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "support/test_files.h"

namespace qn {
namespace {

constexpr BlurParams kDrawerTint = {{0.06f, 0.06f, 0.08f, 0.55f}, 1.0f, 0};

struct Rgba {
  int r, g, b, a;
};
Rgba Unpack(uint32_t bgra) {
  return {static_cast<int>((bgra >> 16) & 255), static_cast<int>((bgra >> 8) & 255),
          static_cast<int>(bgra & 255), static_cast<int>(bgra >> 24)};
}

// BGRA pixels, row after row.
struct Picture {
  uint32_t width = 0;
  uint32_t height = 0;
  std::vector<uint32_t> pixels;
  Rgba At(uint32_t x, uint32_t y) const { return Unpack(pixels[size_t{y} * width + x]); }
  Rgba Mean() const {
    long long sum[4] = {};
    for (const uint32_t pixel : pixels) {
      const Rgba c = Unpack(pixel);
      sum[0] += c.r, sum[1] += c.g, sum[2] += c.b, sum[3] += c.a;
    }
    const auto n = static_cast<long long>(std::max<size_t>(pixels.size(), 1));
    return {static_cast<int>(sum[0] / n), static_cast<int>(sum[1] / n),
            static_cast<int>(sum[2] / n), static_cast<int>(sum[3] / n)};
  }
};

// Green sky over a black-and-white floor of 4-pixel squares: sharp edges to blur, and a
// colour that must not appear in a crop of the floor.
Picture GameFrame(uint32_t width, uint32_t height) {
  Picture p{width, height, std::vector<uint32_t>(size_t{width} * height)};
  for (uint32_t y = 0; y < height; ++y) {
    for (uint32_t x = 0; x < width; ++x) {
      const bool white = ((x / 4) + (y / 4)) % 2 == 0;
      p.pixels[size_t{y} * width + x] =
          y < height / 2 ? 0xFF20D040u : (white ? 0xFFFFFFFFu : 0xFF000000u);
    }
  }
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
               const BlurParams& params, bool* drawn = nullptr) {
    ID3D11DeviceContext* context = renderer_.Context();
    const auto target = Texture(CD3D11_TEXTURE2D_DESC(DXGI_FORMAT_B8G8R8A8_UNORM, width, height, 1,
                                                      1, D3D11_BIND_RENDER_TARGET));
    const auto staging =
        Texture(CD3D11_TEXTURE2D_DESC(DXGI_FORMAT_B8G8R8A8_UNORM, width, height, 1, 1, 0,
                                      D3D11_USAGE_STAGING, D3D11_CPU_ACCESS_READ));
    ComPtr<ID3D11RenderTargetView> view;
    EXPECT_HRESULT_SUCCEEDED(
        renderer_.Device()->CreateRenderTargetView(target.get(), nullptr, view.put()));
    const float clear[4] = {0, 0, 0, 0};
    context->ClearRenderTargetView(view.get(), clear);
    const bool ok = renderer_.Render(frame, crop, view.get(), width, height, params);
    if (drawn) *drawn = ok;
    context->CopyResource(staging.get(), target.get());
    Picture p{width, height, std::vector<uint32_t>(size_t{width} * height)};
    D3D11_MAPPED_SUBRESOURCE mapped;
    if (FAILED(context->Map(staging.get(), 0, D3D11_MAP_READ, 0, &mapped))) return {};
    for (uint32_t y = 0; y < height; ++y) {
      std::memcpy(&p.pixels[size_t{y} * width],
                  static_cast<const uint8_t*>(mapped.pData) + size_t{y} * mapped.RowPitch,
                  size_t{width} * 4);
    }
    context->Unmap(staging.get(), 0);
    return p;
  }

  ComApartment com_{COINIT_MULTITHREADED};
  test::CapturedLog log_;
  Renderer renderer_;
};

TEST_F(RendererTest, DeviceIsSafeForTheCaptureThreadAndInitIsIdempotent) {
  ID3D11Device* device = renderer_.Device();
  EXPECT_TRUE(renderer_.Init());
  EXPECT_EQ(renderer_.Device(), device);
  ComPtr<ID3D11Multithread> lock;
  ASSERT_HRESULT_SUCCEEDED(renderer_.Context()->QueryInterface(IID_PPV_ARGS(lock.put())));
  EXPECT_TRUE(lock->GetMultithreadProtected());
  // No display under the tests runs in HDR; the walk over adapters and outputs must end.
  EXPECT_FALSE(Renderer::DisplayIsHdr(GetDesktopWindow()));
}

// Its last set-up step fails once, as it would when the driver runs out of memory.
class LateFailingRenderer : public Renderer {
  bool CreateStates() override { return !std::exchange(fail_, false) && Renderer::CreateStates(); }
  bool fail_ = true;
};

TEST_F(RendererTest, FailedInitKeepsNothingSoTheNextOneStartsOver) {
  LateFailingRenderer renderer;
  EXPECT_FALSE(renderer.Init());
  EXPECT_EQ(renderer.Device(), nullptr);
  EXPECT_EQ(renderer.Context(), nullptr);
  EXPECT_TRUE(renderer.Init());
}

// The floor under a drawer over the bottom half: blurred to grey, 55% of the way to the
// tint, faded by the opacity with premultiplied alpha.
TEST_F(RendererTest, BackdropIsCroppedTintedAndPremultiplied) {
  const auto frame = Frame(GameFrame(256, 256));
  for (const float opacity : {1.0f, 0.5f, 0.0f}) {
    BlurParams params = kDrawerTint;
    params.opacity = opacity;
    const Picture out = Draw(frame.get(), {0, 128, 256, 256}, 256, 128, params);
    const Rgba mean = out.Mean();
    EXPECT_NEAR(mean.a, 255 * opacity, 1.5) << opacity;
    // Half grey blended with the tint: 0.45 * 0.5 + 0.55 * 0.06 = 0.258.
    EXPECT_NEAR(mean.r, 0.258 * 255 * opacity, 6) << opacity;
    EXPECT_NEAR(mean.g, mean.r, 2) << "the sky leaked into the floor";
    EXPECT_GE(mean.b, mean.r) << opacity;
    for (const uint32_t pixel : out.pixels) {
      const Rgba px = Unpack(pixel);
      ASSERT_LE(std::max({px.r, px.g, px.b}), px.a) << opacity;
    }
  }
}

// Every level has to contribute: the down passes alone leave a one-pixel line about half as
// wide and twice as bright as the upsampling tent does.
TEST_F(RendererTest, ThinLineSpreadsThroughTheWholeChain) {
  Picture line{256, 64, std::vector<uint32_t>(256 * 64, 0xFF000000u)};
  for (uint32_t y = 0; y < 64; ++y) line.pixels[y * 256 + 128] = 0xFFFFFFFFu;
  const Picture out = Draw(Frame(line).get(), {0, 0, 256, 64}, 256, 64, BlurParams{});
  int spread = 0;
  int peak = 0;
  for (uint32_t x = 0; x < 256; ++x) {
    spread += out.At(x, 32).r > 0;
    peak = std::max(peak, out.At(x, 32).r);
  }
  EXPECT_GE(spread, 24);
  EXPECT_LE(peak, 22);
}

// Captured frames are linear scRGB and the drawer's swap chain is shown as sRGB: linear
// 0.214 is the sRGB mid-grey 128. 8.0 is a highlight far above SDR white.
TEST_F(RendererTest, ScRgbIsEncodedForTheDisplayAndToneMappedOnlyOnHdr) {
  const auto scrgb = [&](uint16_t half) {
    const std::vector<uint16_t> texels(16 * 16 * 4, half);
    return Texture(CD3D11_TEXTURE2D_DESC(DXGI_FORMAT_R16G16B16A16_FLOAT, 16, 16, 1, 1,
                                         D3D11_BIND_SHADER_RESOURCE),
                   texels.data(), 16 * 8);
  };
  const auto grey = scrgb(0x32D9);
  const auto bright = scrgb(0x4800);
  const auto grey8 = Frame({16, 16, std::vector<uint32_t>(16 * 16, 0xFF808080u)});
  const struct {
    ID3D11Texture2D* frame;
    uint8_t hdr;
    int expected;
  } cases[] = {
      {grey.get(), 0, 128},
      {bright.get(), 0, 255},
      {bright.get(), 1, 242},  // Reinhard 8 / 9, then sRGB
      {grey8.get(), 1, 128},   // already sRGB, and never tone-mapped
  };
  for (const auto& c : cases) {
    const Picture out = Draw(c.frame, {0, 0, 16, 16}, 16, 16, {{0, 0, 0, 0}, 1.0f, c.hdr});
    EXPECT_NEAR(out.At(8, 8).g, c.expected, 2) << &c - cases;
  }
}

TEST_F(RendererTest, CachedObjectsFollowTheSizeAndSurviveTrimAndRelease) {
  const Picture game = GameFrame(128, 96);
  const auto sampled = Frame(game);
  // Frames that cannot be sampled go through the cached copy and must look the same.
  const auto copied = Frame(game, D3D11_BIND_RENDER_TARGET);
  const RECT crop = {0, 48, 128, 96};
  const Picture reference = Draw(sampled.get(), crop, 128, 48, kDrawerTint);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(Draw(copied.get(), crop, 128, 48, kDrawerTint).pixels, reference.pixels);
  }
  EXPECT_EQ(renderer_.ChainBuilds(), 1u);
  for (int i = 0; i < 2; ++i) Draw(sampled.get(), {0, 40, 128, 96}, 128, 56, kDrawerTint);
  EXPECT_EQ(renderer_.ChainBuilds(), 2u);
  renderer_.Trim();
  EXPECT_EQ(Draw(copied.get(), crop, 128, 48, kDrawerTint).pixels, reference.pixels);
  // A crop with no pixel in the frame draws nothing.
  for (const RECT& outside : {RECT{0, 96, 128, 140}, RECT{-40, 0, 0, 96}, RECT{9, 9, 9, 40}}) {
    bool drawn = true;
    EXPECT_EQ(Draw(sampled.get(), outside, 32, 32, kDrawerTint, &drawn).Mean().a, 0);
    EXPECT_FALSE(drawn);
  }
  renderer_.Release();
  EXPECT_EQ(renderer_.Device(), nullptr);
  EXPECT_FALSE(renderer_.Render(sampled.get(), crop, nullptr, 128, 48, kDrawerTint));
}

}  // namespace
}  // namespace qn
