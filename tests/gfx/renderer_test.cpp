#include "gfx/renderer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "../chat/offscreen_target_win.h"
#include "core/log.h"

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

std::wstring NextToProgram(const std::wstring& name) {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  const std::wstring folder = path;
  return folder.substr(0, folder.find_last_of(L"\\/") + 1) + name;
}

// A picture on the renderer's device, and read-back of one.
struct Picture {
  uint32_t width = 0;
  uint32_t height = 0;
  std::vector<uint32_t> pixels;
  Rgba At(uint32_t x, uint32_t y) const { return Unpack(pixels[size_t{y} * width + x]); }
};

class RendererTest : public testing::Test {
 protected:
  void SetUp() override {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    OpenLogAt(NextToProgram(L"renderer_test.log"));
    ASSERT_TRUE(renderer_.Init());
  }
  void TearDown() override {
    renderer_.Release();
    CloseLog();
    CoUninitialize();
  }

  ComPtr<ID3D11Texture2D> MakeTexture(uint32_t width, uint32_t height, DXGI_FORMAT format,
                                      UINT bind, const void* data, UINT pitch) {
    const CD3D11_TEXTURE2D_DESC desc(format, width, height, 1, 1, bind);
    const D3D11_SUBRESOURCE_DATA init = {data, pitch, 0};
    ComPtr<ID3D11Texture2D> texture;
    EXPECT_HRESULT_SUCCEEDED(
        renderer_.Device()->CreateTexture2D(&desc, data ? &init : nullptr, texture.put()));
    return texture;
  }

  ComPtr<ID3D11Texture2D> MakeFrame(const Picture& p, UINT bind = D3D11_BIND_SHADER_RESOURCE) {
    return MakeTexture(p.width, p.height, DXGI_FORMAT_B8G8R8A8_UNORM, bind, p.pixels.data(),
                       p.width * 4);
  }

  // Renders into a cleared BGRA target of the given size and reads it back.
  Picture Draw(ID3D11Texture2D* frame, const RECT& crop, uint32_t width, uint32_t height,
               const BlurParams& params, bool* drawn = nullptr) {
    const auto target = MakeTexture(width, height, DXGI_FORMAT_B8G8R8A8_UNORM,
                                    D3D11_BIND_RENDER_TARGET, nullptr, 0);
    ComPtr<ID3D11RenderTargetView> view;
    EXPECT_HRESULT_SUCCEEDED(
        renderer_.Device()->CreateRenderTargetView(target.get(), nullptr, view.put()));
    const float clear[4] = {0, 0, 0, 0};
    renderer_.Context()->ClearRenderTargetView(view.get(), clear);
    const bool ok = renderer_.Render(frame, crop, view.get(), width, height, params);
    if (drawn) *drawn = ok;
    return ReadBack(target.get());
  }

  Picture ReadBack(ID3D11Texture2D* texture) {
    D3D11_TEXTURE2D_DESC desc;
    texture->GetDesc(&desc);
    desc.Usage = D3D11_USAGE_STAGING;
    desc.BindFlags = 0;
    desc.CPUAccessFlags = D3D11_CPU_ACCESS_READ;
    Picture p{desc.Width, desc.Height, {}};
    ComPtr<ID3D11Texture2D> copy;
    if (FAILED(renderer_.Device()->CreateTexture2D(&desc, nullptr, copy.put()))) return p;
    renderer_.Context()->CopyResource(copy.get(), texture);
    D3D11_MAPPED_SUBRESOURCE mapped;
    if (FAILED(renderer_.Context()->Map(copy.get(), 0, D3D11_MAP_READ, 0, &mapped))) return p;
    p.pixels.resize(size_t{p.width} * p.height);
    for (uint32_t y = 0; y < p.height; ++y) {
      std::memcpy(&p.pixels[size_t{y} * p.width],
                  static_cast<const uint8_t*>(mapped.pData) + size_t{y} * mapped.RowPitch,
                  size_t{p.width} * 4);
    }
    renderer_.Context()->Unmap(copy.get(), 0);
    return p;
  }

  static void Save(const Picture& p, const wchar_t* name) {
    EXPECT_TRUE(test::WritePng(NextToProgram(name), p.width, p.height, p.pixels));
  }

  Renderer renderer_;
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

int LargestStep(const Picture& p) {
  int step = 0;
  for (uint32_t y = 0; y < p.height; ++y) {
    for (uint32_t x = 1; x < p.width; ++x) {
      step = std::max(step, std::abs(p.At(x, y).r - p.At(x - 1, y).r));
    }
  }
  return step;
}

Rgba Mean(const Picture& p) {
  long long sum[4] = {};
  for (const uint32_t pixel : p.pixels) {
    const Rgba c = Unpack(pixel);
    sum[0] += c.r, sum[1] += c.g, sum[2] += c.b, sum[3] += c.a;
  }
  const auto n = static_cast<long long>(p.pixels.size());
  return {static_cast<int>(sum[0] / n), static_cast<int>(sum[1] / n), static_cast<int>(sum[2] / n),
          static_cast<int>(sum[3] / n)};
}

TEST_F(RendererTest, InitIsIdempotentAndKeepsTheDevice) {
  ID3D11Device* device = renderer_.Device();
  ASSERT_NE(device, nullptr);
  EXPECT_TRUE(renderer_.Init());
  EXPECT_EQ(renderer_.Device(), device);
  // No display under the tests runs in HDR; the walk over adapters and outputs must end.
  EXPECT_FALSE(Renderer::DisplayIsHdr(GetDesktopWindow()));
}

// The floor under a drawer over the bottom half: blurred to grey, 55% of the way to the
// tint, faded by the opacity with premultiplied alpha.
TEST_F(RendererTest, BackdropIsBlurredTintedAndPremultiplied) {
  const Picture game = GameFrame(256, 256);
  Save(game, L"renderer_source.png");
  const auto frame = MakeFrame(game);
  const RECT under_drawer = {0, 128, 256, 256};
  // Half grey blended with the tint: 0.45 * 0.5 + 0.55 * 0.06 = 0.258.
  const struct {
    float opacity;
    const wchar_t* png;
  } cases[] = {{1.0f, L"renderer_backdrop.png"}, {0.5f, nullptr}, {0.0f, nullptr}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.opacity);
    BlurParams params = kDrawerTint;
    params.opacity = c.opacity;
    const Picture out = Draw(frame.get(), under_drawer, 256, 128, params);
    if (c.png) Save(out, c.png);
    const Rgba mean = Mean(out);
    EXPECT_NEAR(mean.a, 255 * c.opacity, 1.5);
    EXPECT_NEAR(mean.r, 0.258 * 255 * c.opacity, 6);
    EXPECT_NEAR(mean.g, mean.r, 2) << "the sky leaked into the floor";
    EXPECT_GE(mean.b, mean.r);
    EXPECT_LT(LargestStep(out), 12 * c.opacity + 1) << "source steps are 255";
    for (const uint32_t pixel : out.pixels) {
      const Rgba px = Unpack(pixel);
      ASSERT_LE(std::max({px.r, px.g, px.b}), px.a);
    }
  }
}

// Every level has to contribute: the down passes alone leave a one-pixel line about half as
// wide and twice as bright as the upsampling tent does.
TEST_F(RendererTest, ThinLineSpreadsThroughTheWholeChain) {
  Picture line{256, 64, std::vector<uint32_t>(256 * 64, 0xFF000000u)};
  for (uint32_t y = 0; y < 64; ++y) line.pixels[y * 256 + 128] = 0xFFFFFFFFu;
  const Picture out = Draw(MakeFrame(line).get(), {0, 0, 256, 64}, 256, 64, BlurParams{});
  int spread = 0;
  int peak = 0;
  for (uint32_t x = 0; x < 256; ++x) {
    spread += out.At(x, 32).r > 0;
    peak = std::max(peak, out.At(x, 32).r);
  }
  EXPECT_GE(spread, 24);
  EXPECT_LE(peak, 22);
}

TEST_F(RendererTest, NothingIsDrawnWithoutACropOrTarget) {
  const auto frame = MakeFrame(GameFrame(64, 64));
  const RECT outside[] = {{0, 64, 64, 128}, {-40, 0, 0, 64}, {10, 10, 10, 40}};
  for (const RECT& crop : outside) {
    bool drawn = true;
    const Picture out = Draw(frame.get(), crop, 32, 32, kDrawerTint, &drawn);
    EXPECT_FALSE(drawn);
    EXPECT_EQ(Mean(out).a, 0);
  }
  EXPECT_FALSE(renderer_.Render(frame.get(), {0, 0, 64, 64}, nullptr, 64, 64, kDrawerTint));
  EXPECT_FALSE(renderer_.Render(nullptr, {0, 0, 64, 64}, nullptr, 64, 64, kDrawerTint));
}

TEST_F(RendererTest, ChainAndSourceCopyAreCachedUntilTheSizeChanges) {
  const Picture game = GameFrame(128, 96);
  const auto sampled = MakeFrame(game);
  // Frames that cannot be sampled go through the cached copy and must look the same.
  const auto copied = MakeFrame(game, D3D11_BIND_RENDER_TARGET);
  const RECT crop = {0, 48, 128, 96};
  const Picture reference = Draw(sampled.get(), crop, 128, 48, kDrawerTint);
  for (int i = 0; i < 2; ++i) {
    const Picture out = Draw(copied.get(), crop, 128, 48, kDrawerTint);
    EXPECT_EQ(out.pixels, reference.pixels);
  }
  EXPECT_EQ(renderer_.ChainBuilds(), 1u);
  Draw(sampled.get(), {0, 40, 128, 96}, 128, 56, kDrawerTint);
  EXPECT_EQ(renderer_.ChainBuilds(), 2u);
  Draw(sampled.get(), {0, 40, 128, 96}, 128, 56, kDrawerTint);
  EXPECT_EQ(renderer_.ChainBuilds(), 2u);
}

// scRGB above SDR white is tone-mapped only when it is scRGB on an HDR display.
TEST_F(RendererTest, ToneMapOnlyForHdrFrames) {
  constexpr uint16_t kHalfEight = 0x4800;
  const std::vector<uint16_t> bright(16 * 16 * 4, kHalfEight);
  const auto hdr_frame = MakeTexture(16, 16, DXGI_FORMAT_R16G16B16A16_FLOAT,
                                     D3D11_BIND_SHADER_RESOURCE, bright.data(), 16 * 8);
  const std::vector<uint32_t> white(16 * 16, 0xFFFFFFFFu);
  const auto sdr_frame = MakeFrame({16, 16, white});
  const struct {
    ID3D11Texture2D* frame;
    uint8_t hdr;
    int expected;  // Reinhard then gamma: pow(8 / 9, 1 / 2.2) = 0.948
  } cases[] = {{hdr_frame.get(), 1, 242}, {hdr_frame.get(), 0, 255}, {sdr_frame.get(), 1, 255}};
  for (const auto& c : cases) {
    const BlurParams params = {{0, 0, 0, 0}, 1.0f, c.hdr};
    const Picture out = Draw(c.frame, {0, 0, 16, 16}, 16, 16, params);
    EXPECT_NEAR(out.At(8, 8).g, c.expected, 2) << int{c.hdr};
  }
}

TEST_F(RendererTest, RendersAgainAfterTrimAndRelease) {
  const Picture game = GameFrame(64, 64);
  const RECT crop = {0, 32, 64, 64};
  const int expected = Mean(Draw(MakeFrame(game).get(), crop, 64, 32, kDrawerTint)).r;
  renderer_.Trim();
  EXPECT_EQ(Mean(Draw(MakeFrame(game).get(), crop, 64, 32, kDrawerTint)).r, expected);
  EXPECT_EQ(renderer_.ChainBuilds(), 2u);
  renderer_.Release();
  EXPECT_EQ(renderer_.Device(), nullptr);
  ASSERT_TRUE(renderer_.Init());
  EXPECT_EQ(Mean(Draw(MakeFrame(game).get(), crop, 64, 32, kDrawerTint)).r, expected);
}

}  // namespace
}  // namespace qn
