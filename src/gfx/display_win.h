#pragma once
// The graphics adapters as DXGI lists them, for making the device on the one that shows the
// game, and what the renderer needs to know of a monitor.
#include <d3d11.h>
#include <dxgi.h>

#include <cstdint>

#include "core/handles.h"
#include "gfx/renderer.h"

namespace qn {

// Nothing when dxgi.dll cannot make one.
ComPtr<IDXGIFactory1> DxgiFactory();
// Nothing for LUID 0 or an adapter that is gone.
ComPtr<IDXGIAdapter1> AdapterWithLuid(IDXGIFactory1* factory, uint64_t luid);
// Of the monitor that shows most of `window`.
DisplayFacts DisplayShowing(IDXGIFactory1* factory, HWND window);
// 0 when the device cannot tell.
uint64_t AdapterOf(ID3D11Device* device);

}  // namespace qn
