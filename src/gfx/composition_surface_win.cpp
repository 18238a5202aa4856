#include "gfx/drawer_surface.h"

#include <dcomp.h>

#include "core/failure_log.h"
#include "core/module_proc.h"

namespace qn {
namespace {

class CompositionSurface final : public DrawerSurface {
 public:
  ~CompositionSurface() override { Detach(); }

  bool Attach(HWND window, IDXGIDevice* device) override {
    Detach();
    if (Bind(window, device)) return true;
    Detach();
    return false;
  }

  bool CreateSwapChain(ID3D11Device* device, IDXGIFactory2* factory,
                       const DXGI_SWAP_CHAIN_DESC1& desc, ComPtr<IDXGISwapChain1>& chain) override {
    if (!visual_) return false;
    const HRESULT hr = factory->CreateSwapChainForComposition(device, &desc, nullptr, chain.put());
    if (!CheckHr(hr, L"CreateSwapChainForComposition", kLogError)) return false;
    visual_->SetContent(chain.get());
    target_->SetRoot(visual_.get());
    return true;
  }

  // Composition changes are batched until Commit, while a present queues its buffer at
  // once: committing the offset right after the present hands both to the compositor for the
  // same pass. Committed first, the slide moved the previous frame. One vertical blank of
  // sync is the drawer's only pacing.
  HRESULT Present(IDXGISwapChain1* chain, float offset_y) override {
    const HRESULT hr = chain->Present(1, 0);
    if (FAILED(hr) || !visual_) return hr;
    visual_->SetOffsetY(offset_y);
    device_->Commit();
    return hr;
  }

  void ClearContent() override {
    if (!visual_) return;
    // Committed at once: the visual must not show a swap chain that is going away.
    visual_->SetContent(nullptr);
    device_->Commit();
  }

  void Detach() override {
    visual_.reset();
    target_.reset();
    device_.reset();
  }

 private:
  bool Bind(HWND window, IDXGIDevice* device) {
    static const SystemFunction<decltype(&::DCompositionCreateDevice)> create(
        L"dcomp.dll", "DCompositionCreateDevice");
    HRESULT hr = create ? create.get()(device, IID_PPV_ARGS(device_.put()))
                        : HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND);
    if (!CheckHr(hr, L"DCompositionCreateDevice", kLogError)) return false;
    // Topmost: the visual goes above anything else the window might show.
    hr = device_->CreateTargetForHwnd(window, TRUE, target_.put());
    if (!CheckHr(hr, L"CreateTargetForHwnd", kLogError)) return false;
    return CheckHr(device_->CreateVisual(visual_.put()), L"CreateVisual", kLogError);
  }

  ComPtr<IDCompositionDevice> device_;
  ComPtr<IDCompositionTarget> target_;
  ComPtr<IDCompositionVisual> visual_;
};

}  // namespace

std::unique_ptr<DrawerSurface> MakeCompositionSurface() {
  return std::make_unique<CompositionSurface>();
}

}  // namespace qn
