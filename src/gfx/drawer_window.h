#pragma once
// The panel that slides up over the bottom of the game. It is a top-most popup that never
// takes the focus from the game (a game without focus often stops presenting, and the
// backdrop is made of its frames); its only content is a premultiplied flip-model swap
// chain, shown by a DrawerSurface, so nothing of the window itself is ever painted.
#include <windows.h>

#include <d2d1_1.h>
#include <d3d11.h>
#include <dwrite.h>
#include <dxgi1_2.h>

#include <cstdint>
#include <functional>

#include "core/failure_log.h"
#include "core/handles.h"
#include "gfx/blur_plan.h"
#include "gfx/drawer_geometry.h"
#include "gfx/drawer_surface.h"

namespace qn {

inline constexpr wchar_t kDrawerWindowClass[] = L"HintwickDrawer";

class Renderer;

// Computed each tick from the game window; the drawer rectangle follows DrawerRect.
struct DrawerPlacement {
  RECT game = {};
  RECT drawer = {};
  uint32_t dpi = 96;
  uint32_t covers_monitor = 0;
};

inline ScreenRect ToScreenRect(const RECT& r) {
  return {static_cast<int32_t>(r.left), static_cast<int32_t>(r.top), static_cast<int32_t>(r.right),
          static_cast<int32_t>(r.bottom)};
}
inline RECT ToRect(const ScreenRect& r) { return {r.left, r.top, r.right, r.bottom}; }

// Shows the window at the rectangle above everything, without activating it.
bool ShowDrawerAt(HWND window, const RECT& rect);

// The process's shared DirectWrite factory, from System32's dwrite.dll.
HRESULT CreateSharedWriteFactory(ComPtr<IDWriteFactory>& factory);

class DrawerWindow {
 public:
  // Draws the chat into its transparent layer, which keeps the last drawing unless `whole`
  // (a new layer, or one whose last drawing failed); one Direct2D unit is one pixel. The
  // layer is faded with the backdrop as it is composed.
  using DrawCallback = std::function<void(ID2D1DeviceContext* context, bool whole)>;
  // Receives the keyboard and wheel messages that reach the drawer itself.
  using InputHandler = std::function<void(UINT message, WPARAM wparam, LPARAM lparam)>;

  DrawerWindow() = default;
  ~DrawerWindow();
  // The window procedure finds the object through the window, so it must stay put.
  DrawerWindow(const DrawerWindow&) = delete;
  DrawerWindow& operator=(const DrawerWindow&) = delete;

  // The surface outlives the window; without one nothing is created. After DropDevice it
  // builds again on the renderer's device and keeps the window.
  bool Create(HINSTANCE instance, Renderer* renderer, DrawerSurface* surface);
  bool EnsureSize(uint32_t width, uint32_t height);
  // Shows the window at the placement; the size is the swap chain's, so a frame presented
  // after EnsureSize and before Place is the first thing seen.
  bool Place(const DrawerPlacement& placement);
  // Back to the top of the topmost windows, for when another one rose above it.
  void Raise();
  void Hide();
  // Redraws the layers `work` names (all of them while they were never drawn at this size),
  // composes them at opacity t and presents. `frame` is needed only for the backdrop. Returns
  // the first failure of the frame's Direct2D drawing or of its present.
  HRESULT Frame(ID3D11Texture2D* frame, const RECT& crop, float t, const BlurParams& params,
                const DrawCallback& draw, FrameWork work = {true, true, true});
  void ReleaseSurfaces();
  // Lets go of everything made on the device, for a lost one; the window stays.
  void DropDevice();
  void Destroy();

  void SetInputHandler(InputHandler handler) { input_ = std::move(handler); }

  HWND Window() const { return window_.get(); }
  bool Visible() const { return visible_; }
  uint32_t Width() const { return width_; }
  uint32_t Height() const { return height_; }
  IDWriteFactory* WriteFactory() const { return dwrite_factory_.get(); }

 private:
  static LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wparam, LPARAM lparam);

  bool CreateWindowHandle(HINSTANCE instance);
  bool CreateDirect2D(IDXGIDevice* device);
  bool CreateWriteFactory();
  void DropBufferReferences();
  void ResizeOrDrop(uint32_t width, uint32_t height);
  bool CreateSwapChain(uint32_t width, uint32_t height);
  bool TakeBackBuffer();
  bool CreateDirect2DTarget();
  bool CreateLayers();
  void DropLayers();
  void DrawBackdrop(ID3D11Texture2D* frame, const RECT& crop, const BlurParams& params);
  HRESULT DrawChat(const DrawCallback& draw);
  HRESULT Compose(float t);

  UniqueHwnd window_;
  Renderer* renderer_ = nullptr;
  DrawerSurface* surface_ = nullptr;
  bool attached_ = false;
  bool visible_ = false;
  ComPtr<IDXGISwapChain1> swap_chain_;
  ComPtr<ID3D11Texture2D> back_buffer_;  // buffer 0, which is always the one drawn next
  ComPtr<ID2D1Factory1> d2d_factory_;
  ComPtr<ID2D1Device> d2d_device_;
  ComPtr<ID2D1DeviceContext> d2d_context_;
  ComPtr<ID2D1Bitmap1> d2d_target_;
  // The blurred backdrop at full opacity, drawn by the renderer and read by Direct2D.
  ComPtr<ID3D11Texture2D> backdrop_texture_;
  ComPtr<ID3D11RenderTargetView> backdrop_view_;
  ComPtr<ID2D1Bitmap1> backdrop_;
  ComPtr<ID2D1Bitmap1> chat_layer_;
  bool backdrop_drawn_ = false;
  bool chat_drawn_ = false;
  ComPtr<IDWriteFactory> dwrite_factory_;
  uint32_t width_ = 0;
  uint32_t height_ = 0;

  InputHandler input_;
  // Per-frame failures repeat every tick; each is logged once until the call succeeds again.
  RepeatedFailures frame_failures_;
};

}  // namespace qn
