#pragma once
// How the drawer's swap chain reaches the screen, apart from the drawing itself: the
// drawer draws the same way whichever surface shows it.
#include <windows.h>

#include <d3d11.h>
#include <dxgi1_2.h>

#include <memory>

#include "core/handles.h"

namespace qn {

// Where the drawer's swap chain is shown. The product's composes it on the window with
// DirectComposition; tests, under Wine which has none, give their own.
class DrawerSurface {
 public:
  virtual ~DrawerSurface() = default;
  // Binds to the drawer's window; false (logged) leaves nothing bound.
  virtual bool Attach(HWND window, IDXGIDevice* device) = 0;
  // Creates a swap chain of `desc` (flip model, premultiplied) that shows in the window.
  virtual bool CreateSwapChain(ID3D11Device* device, IDXGIFactory2* factory,
                               const DXGI_SWAP_CHAIN_DESC1& desc,
                               ComPtr<IDXGISwapChain1>& chain) = 0;
  // Presents the frame drawn into `chain` with its content `offset_y` below its place; the
  // offset must reach the screen with this frame, not one ahead of it. Returns Present's
  // result.
  virtual HRESULT Present(IDXGISwapChain1* chain, float offset_y) = 0;
  // The swap chain is about to be released.
  virtual void ClearContent() = 0;
  virtual void Detach() = 0;
};

// The swap chain as a DirectComposition visual on the window, above its other content.
std::unique_ptr<DrawerSurface> MakeCompositionSurface();

}  // namespace qn
