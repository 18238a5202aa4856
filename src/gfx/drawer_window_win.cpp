#include "gfx/drawer_window.h"

#include <algorithm>
#include <utility>

#include "core/failure_log.h"
#include "core/log.h"
#include "core/module_proc.h"
#include "core/os.h"
#include "gfx/renderer.h"

namespace qn {
namespace {

constexpr const wchar_t* kClassName = kDrawerWindowClass;
constexpr DWORD kExStyle =
    WS_EX_NOACTIVATE | WS_EX_NOREDIRECTIONBITMAP | WS_EX_TOOLWINDOW | WS_EX_TOPMOST;
static_assert(kExStyle == 0x08200088);
static_assert(kDxgiDeviceRemoved == static_cast<HRESULT>(DXGI_ERROR_DEVICE_REMOVED) &&
              kDxgiDeviceReset == static_cast<HRESULT>(DXGI_ERROR_DEVICE_RESET) &&
              kD2dRecreateTarget == static_cast<HRESULT>(D2DERR_RECREATE_TARGET));

ComPtr<IDXGIDevice> DxgiDevice(Renderer* renderer) {
  ComPtr<IDXGIDevice> device;
  const HRESULT hr = renderer->Device()->QueryInterface(IID_PPV_ARGS(device.put()));
  CheckHr(hr, L"QueryInterface(IDXGIDevice)", kLogError);
  return device;
}

}  // namespace

bool ShowDrawerAt(HWND window, const RECT& rect) {
  const bool shown = SetWindowPos(window, HWND_TOPMOST, rect.left, rect.top, rect.right - rect.left,
                                  rect.bottom - rect.top, SWP_NOACTIVATE | SWP_SHOWWINDOW) != FALSE;
  if (!shown) Log(kLogWarn, L"SetWindowPos failed: %lu", GetLastError());
  return shown;
}

DrawerWindow::~DrawerWindow() { Destroy(); }

bool DrawerWindow::Create(HINSTANCE instance, Renderer* renderer, DrawerSurface* surface) {
  if (d2d_context_ && dwrite_factory_) return true;
  // What a failed attempt left is started over rather than taken as ready.
  DropDevice();
  if (!renderer || !surface || !renderer->Init()) return false;
  renderer_ = renderer;
  surface_ = surface;
  if (!window_ && !CreateWindowHandle(instance)) return false;
  const ComPtr<IDXGIDevice> device = DxgiDevice(renderer);
  if (!device) return false;
  attached_ = surface_->Attach(window_.get(), device.get());
  if (!attached_ || !CreateDirect2D(device.get())) return false;
  if (!dwrite_factory_ && !CreateWriteFactory()) return false;
  Log(kLogInfo, L"drawer window created (D3D + D2D + DirectWrite)");
  return true;
}

bool DrawerWindow::CreateWindowHandle(HINSTANCE instance) {
  WNDCLASSEXW window_class = {};
  window_class.cbSize = sizeof(window_class);
  window_class.lpfnWndProc = &DrawerWindow::WindowProc;
  window_class.hInstance = instance;
  window_class.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  window_class.lpszClassName = kClassName;
  // Registered once per process; a second registration fails harmlessly.
  RegisterClassExW(&window_class);
  window_.reset(CreateWindowExW(kExStyle, kClassName, L"Hintwick", WS_POPUP, 0, 0, 16, 16, nullptr,
                                nullptr, instance, this));
  if (!window_) Log(kLogError, L"drawer window creation failed: %lu", GetLastError());
  return static_cast<bool>(window_);
}

bool DrawerWindow::CreateDirect2D(IDXGIDevice* device) {
  // Everything is drawn on the interface thread, so the factory needs no locking.
  D2D1_FACTORY_OPTIONS options = {D2D1_DEBUG_LEVEL_NONE};
  // d2d1.h overloads the name with templates, so the plain function's type is spelled out.
  using CreateFactoryFn =
      HRESULT(WINAPI*)(D2D1_FACTORY_TYPE, REFIID, const D2D1_FACTORY_OPTIONS*, void**);
  static const SystemFunction<CreateFactoryFn> create(L"d2d1.dll", "D2D1CreateFactory");
  HRESULT hr = create ? create.get()(D2D1_FACTORY_TYPE_SINGLE_THREADED, __uuidof(ID2D1Factory1),
                                     &options, reinterpret_cast<void**>(d2d_factory_.put()))
                      : HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND);
  if (!CheckHr(hr, L"D2D1CreateFactory", kLogError)) return false;
  hr = d2d_factory_->CreateDevice(device, d2d_device_.put());
  if (!CheckHr(hr, L"ID2D1Factory1::CreateDevice", kLogError)) return false;
  return SUCCEEDED(
      d2d_device_->CreateDeviceContext(D2D1_DEVICE_CONTEXT_OPTIONS_NONE, d2d_context_.put()));
}

HRESULT CreateSharedWriteFactory(ComPtr<IDWriteFactory>& factory) {
  static const SystemFunction<decltype(&::DWriteCreateFactory)> create(L"dwrite.dll",
                                                                       "DWriteCreateFactory");
  if (!create) return HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND);
  return create.get()(DWRITE_FACTORY_TYPE_SHARED, __uuidof(IDWriteFactory),
                      reinterpret_cast<IUnknown**>(factory.put()));
}

bool DrawerWindow::CreateWriteFactory() {
  return CheckHr(CreateSharedWriteFactory(dwrite_factory_), L"DWriteCreateFactory", kLogError);
}

bool DrawerWindow::EnsureSize(uint32_t width, uint32_t height) {
  const SurfaceChange change =
      PlanSurface(static_cast<bool>(swap_chain_), width_, height_, width, height);
  if (change == SurfaceChange::kRefuse) return false;
  if (change == SurfaceChange::kKeep) return true;
  // Without a bound surface a swap chain would have nowhere to show.
  if (!attached_) return false;
  DropBufferReferences();
  if (change == SurfaceChange::kResize) ResizeOrDrop(width, height);
  if (!swap_chain_ && !CreateSwapChain(width, height)) return false;
  if (!TakeBackBuffer()) return false;
  if (!d2d_context_ || !CreateDirect2DTarget()) return false;
  width_ = width;
  height_ = height;
  return CreateLayers();
}

void DrawerWindow::DropBufferReferences() {
  // ResizeBuffers fails while anything still holds a buffer: ours, the Direct2D target,
  // or the view bound to the immediate context by the last frame. Direct3D destroys
  // released views lazily, so a view that is merely unbound can still pin its buffer:
  // ClearState unbinds everything and Flush lets the released views actually go.
  back_buffer_.reset();
  if (d2d_context_) d2d_context_->SetTarget(nullptr);
  d2d_target_.reset();
  DropLayers();
  ID3D11DeviceContext* const context = renderer_->Context();
  context->OMSetRenderTargets(0, nullptr, nullptr);
  context->ClearState();
  context->Flush();
}

void DrawerWindow::ResizeOrDrop(uint32_t width, uint32_t height) {
  const HRESULT hr = swap_chain_->ResizeBuffers(0, width, height, DXGI_FORMAT_UNKNOWN, 0);
  if (SUCCEEDED(hr)) return;
  Log(kLogWarn, L"ResizeBuffers failed (%ls); recreating", ErrorText(hr).c_str());
  swap_chain_.reset();
}

bool DrawerWindow::CreateSwapChain(uint32_t width, uint32_t height) {
  ID3D11Device* device = renderer_->Device();
  const ComPtr<IDXGIDevice> dxgi_device = DxgiDevice(renderer_);
  if (!dxgi_device) return false;
  ComPtr<IDXGIAdapter> adapter;
  ComPtr<IDXGIFactory2> factory;
  if (!CheckHr(dxgi_device->GetAdapter(adapter.put()), L"GetAdapter", kLogError)) return false;
  HRESULT hr = adapter->GetParent(IID_PPV_ARGS(factory.put()));
  if (!CheckHr(hr, L"IDXGIAdapter::GetParent", kLogError)) return false;
  DXGI_SWAP_CHAIN_DESC1 desc = {};
  desc.Width = width;
  desc.Height = height;
  desc.Format = DXGI_FORMAT_B8G8R8A8_UNORM;
  desc.SampleDesc.Count = 1;
  desc.BufferUsage = DXGI_USAGE_RENDER_TARGET_OUTPUT;
  desc.BufferCount = 2;
  desc.Scaling = DXGI_SCALING_STRETCH;
  desc.SwapEffect = DXGI_SWAP_EFFECT_FLIP_SEQUENTIAL;
  desc.AlphaMode = DXGI_ALPHA_MODE_PREMULTIPLIED;
  return surface_->CreateSwapChain(device, factory.get(), desc, swap_chain_);
}

bool DrawerWindow::TakeBackBuffer() {
  const HRESULT hr = swap_chain_->GetBuffer(0, IID_PPV_ARGS(back_buffer_.put()));
  return CheckHr(hr, L"IDXGISwapChain1::GetBuffer", kLogError);
}

bool DrawerWindow::CreateDirect2DTarget() {
  ComPtr<IDXGISurface> surface;
  HRESULT hr = swap_chain_->GetBuffer(0, IID_PPV_ARGS(surface.put()));
  if (!CheckHr(hr, L"IDXGISwapChain1::GetBuffer", kLogError)) return false;
  // 96 DPI keeps one Direct2D unit at one pixel; the chat view scales by the game's DPI.
  const D2D1_BITMAP_PROPERTIES1 properties = {
      {DXGI_FORMAT_B8G8R8A8_UNORM, D2D1_ALPHA_MODE_PREMULTIPLIED},
      96.0f,
      96.0f,
      D2D1_BITMAP_OPTIONS_TARGET | D2D1_BITMAP_OPTIONS_CANNOT_DRAW,
      nullptr};
  hr = d2d_context_->CreateBitmapFromDxgiSurface(surface.get(), &properties, d2d_target_.put());
  if (!CheckHr(hr, L"CreateBitmapFromDxgiSurface", kLogError)) return false;
  d2d_context_->SetTarget(d2d_target_.get());
  return true;
}

bool DrawerWindow::Place(const DrawerPlacement& placement) {
  const ScreenRect rect = ToScreenRect(placement.drawer);
  if (rect.Width() < 1 || rect.Height() < 1) return false;
  if (!EnsureSize(static_cast<uint32_t>(rect.Width()), static_cast<uint32_t>(rect.Height()))) {
    return false;
  }
  if (!ShowDrawerAt(window_.get(), placement.drawer)) return false;
  visible_ = true;
  return true;
}

void DrawerWindow::Raise() {
  if (!SetWindowPos(window_.get(), HWND_TOPMOST, 0, 0, 0, 0,
                    SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE)) {
    LogLastError(L"SetWindowPos", kLogWarn);
  }
}

void DrawerWindow::Hide() {
  if (window_) ShowWindow(window_.get(), SW_HIDE);
  visible_ = false;
}

// Both layers are the drawer's size at 96 DPI, so composing them copies pixel for pixel.
bool DrawerWindow::CreateLayers() {
  ID3D11Device* const device = renderer_->Device();
  const CD3D11_TEXTURE2D_DESC desc(DXGI_FORMAT_B8G8R8A8_UNORM, width_, height_, 1, 1,
                                   D3D11_BIND_RENDER_TARGET | D3D11_BIND_SHADER_RESOURCE);
  ComPtr<IDXGISurface> surface;
  HRESULT hr = device->CreateTexture2D(&desc, nullptr, backdrop_texture_.put());
  if (!CheckHr(hr, L"CreateTexture2D (backdrop layer)", kLogError)) return false;
  hr = device->CreateRenderTargetView(backdrop_texture_.get(), nullptr, backdrop_view_.put());
  if (!CheckHr(hr, L"CreateRenderTargetView (backdrop layer)", kLogError)) return false;
  hr = backdrop_texture_->QueryInterface(IID_PPV_ARGS(surface.put()));
  D2D1_BITMAP_PROPERTIES1 properties = {{DXGI_FORMAT_B8G8R8A8_UNORM, D2D1_ALPHA_MODE_PREMULTIPLIED},
                                        96.0f,
                                        96.0f,
                                        D2D1_BITMAP_OPTIONS_NONE,
                                        nullptr};
  if (SUCCEEDED(hr)) {
    hr = d2d_context_->CreateBitmapFromDxgiSurface(surface.get(), &properties, backdrop_.put());
  }
  if (!CheckHr(hr, L"CreateBitmapFromDxgiSurface (backdrop layer)", kLogError)) return false;
  properties.bitmapOptions = D2D1_BITMAP_OPTIONS_TARGET;
  hr = d2d_context_->CreateBitmap({width_, height_}, nullptr, 0, &properties, chat_layer_.put());
  return CheckHr(hr, L"CreateBitmap (chat layer)", kLogError);
}

void DrawerWindow::DropLayers() {
  backdrop_texture_.reset();
  backdrop_view_.reset();
  backdrop_.reset();
  chat_layer_.reset();
  backdrop_drawn_ = false;
  chat_drawn_ = false;
}

HRESULT DrawerWindow::Frame(ID3D11Texture2D* frame, const RECT& crop, float t,
                            const BlurParams& params, const DrawCallback& draw, FrameWork work) {
  if (!swap_chain_ || !back_buffer_ || !backdrop_view_ || !chat_layer_ || !renderer_) {
    return E_UNEXPECTED;
  }
  if (work.backdrop || !backdrop_drawn_) DrawBackdrop(frame, crop, params);
  HRESULT hr = S_OK;
  if (work.chat || !chat_drawn_) hr = DrawChat(draw);
  if (SUCCEEDED(hr)) hr = Compose(params.opacity);
  // Direct2D's device is gone with it: presenting would only fail the same way.
  if (hr == kD2dRecreateTarget) return hr;
  hr = surface_->Present(swap_chain_.get(), SlideOffset(height_, t));
  frame_failures_.Check(hr, L"Present");
  return hr;
}

// Drawn opaque: the slide fades the composed layers instead, so it never blurs again. The
// tint alone is what shows while no frame has been captured yet.
void DrawerWindow::DrawBackdrop(ID3D11Texture2D* frame, const RECT& crop,
                                const BlurParams& params) {
  BlurParams opaque = params;
  opaque.opacity = 1.0f;
  const float tint[4] = {params.tint[0], params.tint[1], params.tint[2], 1.0f};
  renderer_->Context()->ClearRenderTargetView(backdrop_view_.get(), tint);
  if (frame) renderer_->Render(frame, crop, backdrop_view_.get(), width_, height_, opaque);
  backdrop_drawn_ = true;
}

HRESULT DrawerWindow::DrawChat(const DrawCallback& draw) {
  const bool whole = !chat_drawn_;
  d2d_context_->SetTarget(chat_layer_.get());
  d2d_context_->BeginDraw();
  if (whole) d2d_context_->Clear(D2D1::ColorF(0, 0.0f));
  if (draw) draw(d2d_context_.get(), whole);
  const HRESULT hr = d2d_context_->EndDraw();
  d2d_context_->SetTarget(d2d_target_.get());
  chat_drawn_ = frame_failures_.Check(hr, L"D2D EndDraw (chat)");
  return hr;
}

// Premultiplied layers drawn at the opacity over a clear target: (c, a) becomes (c t, a t),
// the same as had each been drawn at t. At rest the opaque backdrop covers the drawer, and
// copying it costs far less than drawing it.
HRESULT DrawerWindow::Compose(float opacity) {
  const D2D1_RECT_F whole = {0, 0, static_cast<float>(width_), static_cast<float>(height_)};
  const float faded = std::clamp(opacity, 0.0f, 1.0f);
  const bool at_rest = faded >= 1.0f;
  if (at_rest) renderer_->Context()->CopyResource(back_buffer_.get(), backdrop_texture_.get());
  d2d_context_->BeginDraw();
  if (!at_rest) {
    d2d_context_->Clear(D2D1::ColorF(0, 0.0f));
    d2d_context_->DrawBitmap(backdrop_.get(), whole, faded,
                             D2D1_INTERPOLATION_MODE_NEAREST_NEIGHBOR);
  }
  d2d_context_->DrawBitmap(chat_layer_.get(), whole, faded,
                           D2D1_INTERPOLATION_MODE_NEAREST_NEIGHBOR);
  const HRESULT hr = d2d_context_->EndDraw();
  frame_failures_.Check(hr, L"D2D EndDraw");
  return hr;
}

void DrawerWindow::ReleaseSurfaces() {
  if (d2d_context_) d2d_context_->SetTarget(nullptr);
  d2d_target_.reset();
  DropLayers();
  back_buffer_.reset();
  if (swap_chain_ && attached_) surface_->ClearContent();
  swap_chain_.reset();
  width_ = 0;
  height_ = 0;
  if (renderer_) renderer_->Trim();
}

void DrawerWindow::DropDevice() {
  ReleaseSurfaces();
  d2d_context_.reset();
  d2d_device_.reset();
  d2d_factory_.reset();
  if (attached_) surface_->Detach();
  attached_ = false;
}

void DrawerWindow::Destroy() {
  DropDevice();
  dwrite_factory_.reset();
  surface_ = nullptr;
  window_.reset();
  renderer_ = nullptr;
  visible_ = false;
}

LRESULT CALLBACK DrawerWindow::WindowProc(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  if (message == WM_NCCREATE) {
    const auto* create = reinterpret_cast<const CREATESTRUCTW*>(lparam);
    SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(create->lpCreateParams));
  }
  switch (message) {
    case WM_KEYDOWN:
    case WM_CHAR:
    case WM_SYSKEYDOWN:
    case WM_MOUSEWHEEL: {
      const auto* self =
          reinterpret_cast<const DrawerWindow*>(GetWindowLongPtrW(window, GWLP_USERDATA));
      if (self && self->input_) self->input_(message, wparam, lparam);
      return 0;
    }
    case WM_ERASEBKGND:
      return 1;  // the window has no surface of its own to paint
    case WM_NCHITTEST:
      return HTCLIENT;
    case WM_DESTROY:
      return 0;  // the drawer comes and goes; the program carries on
    default:
      return DefWindowProcW(window, message, wparam, lparam);
  }
}

}  // namespace qn
