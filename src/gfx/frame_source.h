#pragma once
// The drawer takes its backdrop from whatever supplies frames of the game window, so that
// it can run where the system's window capture is missing.
#include <d3d11.h>
#include <windows.h>

#include "core/handles.h"
#include "gfx/capture_policy.h"

namespace qn {

// Where the drawer's backdrop frames come from: the live window capture in the product.
class FrameSource {
 public:
  virtual ~FrameSource() = default;
  virtual bool Start(HWND window, ID3D11Device* device, int throttle_hz, int divisor) = 0;
  virtual void Stop() = 0;
  // The newest frame (whole window, divisor 1), or the previous one, or empty.
  virtual ComPtr<ID3D11Texture2D> TakeLatest() = 0;
  // How many frames have been handed over since Start: cheap to ask on every tick, so that
  // a drawer holding frame N takes and blurs again only once this has moved on.
  virtual int64_t FrameNumber() const = 0;
  virtual FrameCounts Counts() const = 0;
  virtual bool Closed() const = 0;  // the window went away
};

}  // namespace qn
