#include "support/gdi_frames_win.h"

#include <cstdint>
#include <utility>
#include <vector>

#include "core/failure_log.h"

namespace qn::test {
namespace {

// Top-down BGRA rows of the area of `source` at (x, y), with alpha made opaque; empty when
// GDI fails.
std::vector<uint32_t> CopyFromDc(HDC source, int x, int y, int width, int height) {
  std::vector<uint32_t> pixels;
  BITMAPINFO info = {};  // a negative height: top-down rows
  info.bmiHeader = {sizeof(BITMAPINFOHEADER), width, -height, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
  void* bits = nullptr;
  const UniqueHdc memory(CreateCompatibleDC(nullptr));
  const UniqueHbitmap bitmap(CreateDIBSection(nullptr, &info, DIB_RGB_COLORS, &bits, nullptr, 0));
  if (!source || !memory || !bitmap || !bits) return pixels;
  const HGDIOBJ old = SelectObject(memory.get(), bitmap.get());
  const bool copied = BitBlt(memory.get(), 0, 0, width, height, source, x, y, SRCCOPY) != FALSE;
  SelectObject(memory.get(), old);
  GdiFlush();
  if (!copied) return pixels;
  const auto* begin = static_cast<const uint32_t*>(bits);
  pixels.assign(begin, begin + static_cast<size_t>(width) * static_cast<size_t>(height));
  for (uint32_t& pixel : pixels) pixel |= 0xFF000000u;
  return pixels;
}

class GdiFrameSource final : public FrameSource {
 public:
  explicit GdiFrameSource(StandInGame game) : game_(std::move(game)) {
    if (!game_.now_ms) game_.now_ms = [] { return GetTickCount64(); };
  }

  bool Start(HWND window, ID3D11Device* device, int throttle_hz, int) override {
    Stop();
    counters_.Reset();
    // Under Wine another process's window reads black through its own DC, and once the
    // drawer shows, the screen holds the drawer too. The stand-in game's picture never
    // changes, so the screen's copy taken now, before the drawer covers it, stands for every
    // frame.
    if (!device || !GetWindowRect(window, &rect_)) return false;
    still_ = ReadScreen(rect_);
    if (still_.empty()) return false;
    window_ = window;
    device_ = device;
    rate_ = throttle_hz > 0 && throttle_hz < game_.hz ? throttle_hz : game_.hz;
    started_ms_ = game_.now_ms();
    copied_ = 0;
    return true;
  }

  void Stop() override {
    window_ = nullptr;
    device_ = nullptr;
    texture_.reset();
  }

  ComPtr<ID3D11Texture2D> TakeLatest() override {
    const int64_t number = FrameNumber();
    if (number == copied_ || !IsWindow(window_)) return texture_;
    copied_ = number;
    counters_.CountArrived();
    counters_.CountAccepted();
    if (Copy()) counters_.CountConsumed();
    return texture_;
  }

  // The first frame is there at the start; the throttle lets through at most its rate.
  int64_t FrameNumber() const override {
    if (!window_) return 0;
    const uint64_t elapsed_ms = game_.now_ms() - started_ms_;
    return 1 + static_cast<int64_t>(elapsed_ms * static_cast<uint64_t>(rate_) / 1000);
  }

  FrameCounts Counts() const override { return counters_.Read(); }
  bool Closed() const override { return window_ && !IsWindow(window_); }

 private:
  bool Copy() {
    const int width = rect_.right - rect_.left;
    const int height = rect_.bottom - rect_.top;
    if (!EnsureTexture(static_cast<UINT>(width), static_cast<UINT>(height))) return false;
    ComPtr<ID3D11DeviceContext> context;
    device_->GetImmediateContext(context.put());
    context->UpdateSubresource(texture_.get(), 0, nullptr, still_.data(),
                               static_cast<UINT>(width) * 4, 0);
    return true;
  }

  bool EnsureTexture(UINT width, UINT height) {
    D3D11_TEXTURE2D_DESC have = {};
    if (texture_) texture_->GetDesc(&have);
    if (texture_ && have.Width == width && have.Height == height) return true;
    const CD3D11_TEXTURE2D_DESC desc(DXGI_FORMAT_B8G8R8A8_UNORM, width, height, 1, 1,
                                     D3D11_BIND_SHADER_RESOURCE);
    const HRESULT hr = device_->CreateTexture2D(&desc, nullptr, texture_.put());
    return CheckHr(hr, L"CreateTexture2D (GDI frame)", kLogError);
  }

  StandInGame game_;
  HWND window_ = nullptr;
  RECT rect_ = {};
  std::vector<uint32_t> still_;
  ID3D11Device* device_ = nullptr;
  int rate_ = 0;
  uint64_t started_ms_ = 0;
  int64_t copied_ = 0;
  FrameCounters counters_;
  ComPtr<ID3D11Texture2D> texture_;
};

}  // namespace

std::unique_ptr<FrameSource> MakeGdiFrameSource(StandInGame game) {
  return std::make_unique<GdiFrameSource>(std::move(game));
}

std::vector<uint32_t> ReadScreen(const RECT& area) {
  const HDC screen = GetDC(nullptr);
  std::vector<uint32_t> pixels =
      CopyFromDc(screen, area.left, area.top, area.right - area.left, area.bottom - area.top);
  if (screen) ReleaseDC(nullptr, screen);
  return pixels;
}

}  // namespace qn::test
