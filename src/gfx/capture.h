#pragma once
// Live capture of the game window onto the renderer's Direct3D device. Frames arrive on
// a system thread and meet the tick in a one-frame slot, so a slow tick never builds a
// queue.
#include <d3d11.h>
#include <windows.h>

#include <memory>

#include "core/handles.h"
#include "gfx/capture_policy.h"
#include "gfx/winrt_capture_abi.h"

namespace qn {

class Capture {
 public:
  Capture() = default;
  ~Capture();
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

  // Whether this system can capture windows at all; needs COM initialised.
  static bool IsSupported();

  // Capture stays off when this returns false; each failed call has been logged.
  bool Start(HWND window, ID3D11Device* device, int throttle_hz, int divisor);
  void Stop();

  // The newest frame copied into a texture the renderer can sample; when no frame came
  // since the last call, the previous texture again (or empty). Tick thread only.
  ComPtr<ID3D11Texture2D> TakeLatest();

  FrameCounts Counts() const;
  // The capture item reported its window gone.
  bool Closed() const;

 private:
  // Shared with the frame callbacks, which may outlive a Stop by one call.
  struct Stream;

  bool StartUnguarded(HWND window, ID3D11Device* device, int throttle_hz, int divisor);
  bool CreateItem(HWND window);
  bool WrapDevice();
  bool CreatePool(FrameSize size);
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
