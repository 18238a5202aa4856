// What one backdrop costs: Renderer::Render over a 1920x1080 game frame, for the 1600x356
// strip a drawer shows at the bottom, at blur 0, 50 and 100 %, against the former blur (the
// whole chain at every setting, cross-faded with the sharp frame, and a frame that cannot be
// sampled copied whole) measured in the same run; then what asking about the display costs
// at each opening. Needs no game nor window. Run by hand:
//   tests/wine/bench.sh start /tmp/blurbench
//   (. /tmp/blurbench/env && wine build/windows/bench/blur_bench.exe)
//   tests/wine/bench.sh stop /tmp/blurbench
// Under Wine the "GPU" is llvmpipe, which rasterises on the processor: its times say how the
// work scales with the passes and pixels, not what a graphics card would take.
#include <windows.h>

#include <d3d11.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <vector>

#include "core/handles.h"
#include "gfx/renderer.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr UINT kFrameWidth = 1920;
constexpr UINT kFrameHeight = 1080;
constexpr RECT kCrop = {160, 724, 1760, 1080};
constexpr UINT kCropWidth = 1600;
constexpr UINT kCropHeight = 356;
constexpr int kWarmUp = 10;
constexpr int kRounds = 60;

struct Timing {
  double cpu_ms = 0;   // the Render call itself
  double gpu_ms = 0;   // between timestamps around it; negative when the device could not tell
  double wall_ms = 0;  // from the call until the device has done the work
};

double Ms(Clock::time_point from, Clock::time_point to) {
  return std::chrono::duration<double, std::milli>(to - from).count();
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values.empty() ? 0 : values[values.size() / 2];
}

// Noise, so that no pass can take a shortcut over flat colour.
std::vector<uint32_t> GamePixels() {
  std::vector<uint32_t> pixels(size_t{kFrameWidth} * kFrameHeight);
  uint32_t seed = 12345;
  for (uint32_t& px : pixels) {
    seed = seed * 1664525u + 1013904223u;
    px = 0xFF000000u | seed >> 8;
  }
  return pixels;
}

class Bench {
 public:
  bool Init() {
    if (!renderer_.Init()) return false;
    device_ = renderer_.Device();
    context_ = renderer_.Context();
    const std::vector<uint32_t> pixels = GamePixels();
    const D3D11_SUBRESOURCE_DATA data = {pixels.data(), kFrameWidth * 4, 0};
    const CD3D11_TEXTURE2D_DESC sampled(DXGI_FORMAT_B8G8R8A8_UNORM, kFrameWidth, kFrameHeight, 1, 1,
                                        D3D11_BIND_SHADER_RESOURCE);
    const CD3D11_TEXTURE2D_DESC copied(DXGI_FORMAT_B8G8R8A8_UNORM, kFrameWidth, kFrameHeight, 1, 1,
                                       D3D11_BIND_RENDER_TARGET);
    const CD3D11_TEXTURE2D_DESC target(DXGI_FORMAT_B8G8R8A8_UNORM, kCropWidth, kCropHeight, 1, 1,
                                       D3D11_BIND_RENDER_TARGET);
    const D3D11_QUERY_DESC disjoint = {D3D11_QUERY_TIMESTAMP_DISJOINT, 0};
    const D3D11_QUERY_DESC stamp = {D3D11_QUERY_TIMESTAMP, 0};
    const D3D11_QUERY_DESC event = {D3D11_QUERY_EVENT, 0};
    return SUCCEEDED(device_->CreateTexture2D(&sampled, &data, sampled_.put())) &&
           SUCCEEDED(device_->CreateTexture2D(&copied, &data, copied_.put())) &&
           SUCCEEDED(device_->CreateTexture2D(&target, nullptr, target_.put())) &&
           SUCCEEDED(device_->CreateRenderTargetView(target_.get(), nullptr, view_.put())) &&
           SUCCEEDED(device_->CreateQuery(&disjoint, disjoint_.put())) &&
           SUCCEEDED(device_->CreateQuery(&stamp, begin_.put())) &&
           SUCCEEDED(device_->CreateQuery(&stamp, end_.put())) &&
           SUCCEEDED(device_->CreateQuery(&event, done_.put()));
  }

  qn::DisplayFacts DisplayOf(HWND window) { return renderer_.DisplayOf(window); }

  bool CanUseOld() { return renderer_.UseOldBlurForBench(true); }

  // Medians over the rounds, the new and the former way taking turns (and turns at going
  // first), so that whatever else runs on the machine weighs on both alike.
  std::array<Timing, 2> Measure(bool copy, float blur) {
    ID3D11Texture2D* frame = copy ? copied_.get() : sampled_.get();
    const qn::BlurParams look = {{0.06f, 0.06f, 0.08f, 0.55f}, 1.0f, 0, blur};
    std::array<std::vector<double>, 2> cpu, gpu, wall;
    for (int round = 0; round < kWarmUp + kRounds; ++round) {
      for (int turn = 0; turn < 2; ++turn) {
        const int old = (round + turn) % 2;
        renderer_.UseOldBlurForBench(old == 1);
        const Timing once = Once(frame, look);
        if (round < kWarmUp) continue;
        cpu[old].push_back(once.cpu_ms);
        gpu[old].push_back(once.gpu_ms);
        wall[old].push_back(once.wall_ms);
      }
    }
    return {Timing{Median(cpu[0]), Median(gpu[0]), Median(wall[0])},
            Timing{Median(cpu[1]), Median(gpu[1]), Median(wall[1])}};
  }

 private:
  Timing Once(ID3D11Texture2D* frame, const qn::BlurParams& look) {
    context_->Begin(disjoint_.get());
    context_->End(begin_.get());
    const Clock::time_point start = Clock::now();
    renderer_.Render(frame, kCrop, view_.get(), kCropWidth, kCropHeight, look);
    const Clock::time_point end = Clock::now();
    context_->End(end_.get());
    context_->End(disjoint_.get());
    Finish();
    return {Ms(start, end), GpuMs().value_or(-1), Ms(start, Clock::now())};
  }

  // Polled with Sleep(1) rather than spun: on a two-core machine a spinning thread takes a
  // core from llvmpipe's rasteriser.
  void Finish() {
    context_->End(done_.get());
    BOOL done = FALSE;
    while (context_->GetData(done_.get(), &done, sizeof(done), 0) == S_FALSE) Sleep(1);
  }

  std::optional<double> GpuMs() {
    D3D11_QUERY_DATA_TIMESTAMP_DISJOINT clock = {};
    UINT64 begin = 0;
    UINT64 end = 0;
    if (context_->GetData(disjoint_.get(), &clock, sizeof(clock), 0) != S_OK || clock.Disjoint ||
        clock.Frequency == 0 || context_->GetData(begin_.get(), &begin, sizeof(begin), 0) != S_OK ||
        context_->GetData(end_.get(), &end, sizeof(end), 0) != S_OK) {
      return std::nullopt;
    }
    return static_cast<double>(end - begin) * 1000.0 / static_cast<double>(clock.Frequency);
  }

  qn::Renderer renderer_;
  ID3D11Device* device_ = nullptr;
  ID3D11DeviceContext* context_ = nullptr;
  qn::ComPtr<ID3D11Texture2D> sampled_;
  qn::ComPtr<ID3D11Texture2D> copied_;
  qn::ComPtr<ID3D11Texture2D> target_;
  qn::ComPtr<ID3D11RenderTargetView> view_;
  qn::ComPtr<ID3D11Query> disjoint_;
  qn::ComPtr<ID3D11Query> begin_;
  qn::ComPtr<ID3D11Query> end_;
  qn::ComPtr<ID3D11Query> done_;
};

void PrintRow(const char* frame, int blur, const Timing& now, const Timing& old) {
  const auto ratio = [](double a, double b) { return a > 0 && b > 0 ? a / b : 0.0; };
  std::printf(
      "  %-18s %3d %%  call %5.3f/%5.3f ms x%.2f  GPU %6.2f/%6.2f ms x%.2f  "
      "done %6.2f/%6.2f ms x%.2f\n",
      frame, blur, now.cpu_ms, old.cpu_ms, ratio(now.cpu_ms, old.cpu_ms), now.gpu_ms, old.gpu_ms,
      ratio(now.gpu_ms, old.gpu_ms), now.wall_ms, old.wall_ms, ratio(now.wall_ms, old.wall_ms));
}

}  // namespace

int main() {
  Bench bench;
  if (!bench.Init()) {
    std::printf("no Direct3D 11 device (see hintwick.log)\n");
    return 1;
  }
  if (!bench.CanUseOld()) {
    std::printf("the former blur's shader did not compile\n");
    return 1;
  }
  std::printf(
      "Renderer::Render, %ux%u frame, %ux%u crop, medians of %d rounds, new/former "
      "and the ratio:\n",
      kFrameWidth, kFrameHeight, kCropWidth, kCropHeight, kRounds);
  for (const bool copy : {false, true}) {
    for (const int blur : {0, 50, 100}) {
      const auto [now, old] = bench.Measure(copy, static_cast<float>(blur) / 100.0f);
      PrintRow(copy ? "frame copied first" : "frame sampled", blur, now, old);
    }
  }
  // Asked at each opening of the drawer.
  std::vector<double> asked;
  for (int round = 0; round < 5; ++round) {
    const Clock::time_point start = Clock::now();
    bench.DisplayOf(GetDesktopWindow());
    asked.push_back(Ms(start, Clock::now()));
  }
  std::printf("Renderer::DisplayOf, the DXGI factory kept: median %.2f ms of 5\n", Median(asked));
  return 0;
}
