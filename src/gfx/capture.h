#pragma once
// Live capture of the game window onto the renderer's Direct3D device. Frames arrive on
// a system thread and meet the tick in a one-frame slot, so a slow tick never builds a
// queue.
#include <d3d11.h>
#include <windows.h>

#include <cstdint>
#include <memory>

#include "core/handles.h"
#include "gfx/capture_policy.h"
#include "gfx/frame_source.h"
#include "gfx/winrt_capture_abi.h"

namespace qn {

// The Windows Runtime objects a capture runs on. Start(HWND, ...) activates the system's;
// tests hand in their own, which is the only way the frame handling runs without them.
struct CaptureSources {
  ComPtr<abi::capture::IGraphicsCaptureItem> item;
  ComPtr<abi::directx::IDirect3DDevice> device;  // the Direct3D device, wrapped
  ComPtr<abi::capture::IDirect3D11CaptureFramePoolStatics2> pools;
  int64_t (*now)() = nullptr;  // microseconds of a monotonic clock; null for the system's
};

class Capture : public FrameSource {
 public:
  Capture() = default;
  ~Capture() override;
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

  // Whether this system can capture windows at all; needs COM initialised.
  static bool IsSupported();

  // Capture stays off when these return false; each failed call has been logged.
  // The device is the renderer's; frames are copied on its immediate context.
  bool Start(HWND window, ID3D11Device* device, int throttle_hz, int divisor) override;
  bool Start(const CaptureSources& sources, ID3D11Device* device, int throttle_hz, int divisor);
  void Stop() override;

  // The newest frame copied into a texture the renderer can sample; when no frame came
  // since the last call, the previous texture again (or empty). Tick thread only.
  ComPtr<ID3D11Texture2D> TakeLatest() override;

  // A frame is in the slot by the time it is counted here.
  int64_t FrameNumber() const override;
  FrameCounts Counts() const override;
  // The capture item reported its window gone.
  bool Closed() const override;

 private:
  // Shared with the frame callbacks, which may outlive a Stop by one call.
  struct Stream;

  bool StartUnguarded(const CaptureSources& sources, ID3D11Device* device, int throttle_hz,
                      int divisor);
  bool CreatePool(abi::capture::IDirect3D11CaptureFramePoolStatics2* pools, FrameSize size);
  void ConfigureSession();
  bool Subscribe();
  bool CopyFrame(abi::capture::IDirect3D11CaptureFrame* frame);
  bool EnsureCopy(const D3D11_TEXTURE2D_DESC& frame);

  std::shared_ptr<Stream> stream_;
  ComPtr<abi::capture::IGraphicsCaptureItem> item_;
  ComPtr<abi::capture::IDirect3D11CaptureFramePool> pool_;
  ComPtr<abi::capture::IGraphicsCaptureSession> session_;
  EventRegistrationToken frame_arrived_token_{};
  EventRegistrationToken closed_token_{};
  bool frame_arrived_subscribed_ = false;
  bool closed_subscribed_ = false;
  ComPtr<ID3D11Texture2D> copy_;
  ID3D11Device* device_ = nullptr;  // the renderer's
};

}  // namespace qn
