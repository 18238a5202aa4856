#include "support/hwnd_surface_win.h"

#include "core/failure_log.h"
#include "core/log.h"

namespace qn::test {
namespace {

class HwndSurface final : public DrawerSurface {
 public:
  explicit HwndSurface(SurfaceRecord* record) : record_(record) {}

  bool Attach(HWND window, IDXGIDevice*) override {
    window_ = IsWindow(window) ? window : nullptr;
    if (!window_) Log(kLogError, L"HwndSurface: no window to attach to");
    return window_ != nullptr;
  }

  bool CreateSwapChain(ID3D11Device* device, IDXGIFactory2* factory,
                       const DXGI_SWAP_CHAIN_DESC1& desc, ComPtr<IDXGISwapChain1>& chain) override {
    if (!window_) return false;
    DXGI_SWAP_CHAIN_DESC1 own = desc;
    // A window's own swap chain has nothing under it to blend with; premultiplied alpha is
    // refused for it.
    own.AlphaMode = DXGI_ALPHA_MODE_IGNORE;
    const HRESULT hr =
        factory->CreateSwapChainForHwnd(device, window_, &own, nullptr, nullptr, chain.put());
    return CheckHr(hr, L"CreateSwapChainForHwnd", kLogError);
  }

  HRESULT Present(IDXGISwapChain1* chain, float offset_y) override {
    if (record_) {
      record_->presents.push_back({IsWindowVisible(window_) != FALSE, offset_y});
      if (record_->presents.size() == record_->lose_device_at) return DXGI_ERROR_DEVICE_REMOVED;
    }
    return chain->Present(1, 0);
  }
  void ClearContent() override {}
  void Detach() override { window_ = nullptr; }

 private:
  SurfaceRecord* record_;
  HWND window_ = nullptr;
};

}  // namespace

std::unique_ptr<DrawerSurface> MakeHwndSurface(SurfaceRecord* record) {
  return std::make_unique<HwndSurface>(record);
}

}  // namespace qn::test
