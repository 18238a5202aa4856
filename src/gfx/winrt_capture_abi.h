#pragma once
// The few Windows Runtime interfaces of window capture, declared by hand because the
// MinGW headers lack them. Each carries its IID as kIid, so one declaration serves
// MinGW and MSVC alike. Named namespaces on purpose: g++ 12 turns virtual calls
// through interfaces declared in an anonymous namespace into pure-virtual calls.
#include <dxgi.h>
#include <eventtoken.h>
#include <inspectable.h>
#include <objidl.h>
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <new>

#include "core/handles.h"

// Exported by d3d11.dll as CreateDirect3D11DeviceFromDXGIDevice, but declared by no MinGW
// header.
using CreateDirect3D11DeviceFromDxgiFn = HRESULT(WINAPI*)(IDXGIDevice* dxgi_device,
                                                          IInspectable** device);

namespace qn::abi {

// The WinRT boolean is one byte; BOOL would misalign every later argument.
using Boolean = unsigned char;

template <typename T>
HRESULT Query(IUnknown* from, ComPtr<T>& to) {
  if (!from) return E_POINTER;
  return from->QueryInterface(T::kIid, reinterpret_cast<void**>(to.put()));
}

namespace foundation {

struct TimeSpan {
  int64_t duration = 0;
};

struct IClosable : IInspectable {
  static constexpr GUID kIid = {
      0x30d5a829, 0x7fa4, 0x4026, {0x83, 0xbb, 0xd7, 0x5b, 0xae, 0x4e, 0xa9, 0x9e}};
  virtual HRESULT STDMETHODCALLTYPE Close() = 0;
};

}  // namespace foundation

namespace metadata {

struct IApiInformationStatics : IInspectable {
  static constexpr GUID kIid = {
      0x997439fe, 0xf681, 0x4a11, {0xb4, 0x16, 0xc1, 0x3a, 0x47, 0xe8, 0xba, 0x36}};
  virtual HRESULT STDMETHODCALLTYPE IsTypePresent(HSTRING type, Boolean* present) = 0;
  virtual HRESULT STDMETHODCALLTYPE IsMethodPresent(HSTRING, HSTRING, Boolean*) = 0;
  virtual HRESULT STDMETHODCALLTYPE IsMethodPresentWithArity(HSTRING, HSTRING, UINT32,
                                                             Boolean*) = 0;
  virtual HRESULT STDMETHODCALLTYPE IsEventPresent(HSTRING, HSTRING, Boolean*) = 0;
  virtual HRESULT STDMETHODCALLTYPE IsPropertyPresent(HSTRING type, HSTRING property,
                                                      Boolean* present) = 0;
};

}  // namespace metadata

namespace directx {

struct SizeInt32 {
  int32_t width = 0;
  int32_t height = 0;
};

// The numbers equal the DXGI formats.
constexpr int32_t kPixelFormatR16G16B16A16Float = 10;

struct IDirect3DDevice : IInspectable {
  static constexpr GUID kIid = {
      0xa37624ab, 0x8d5f, 0x4650, {0x9d, 0x3e, 0x9e, 0xae, 0x3d, 0x9b, 0xc6, 0x70}};
  virtual HRESULT STDMETHODCALLTYPE Trim() = 0;
};

struct SurfaceDescription {
  int32_t width = 0;
  int32_t height = 0;
  int32_t format = 0;
  int32_t sample_count = 0;
  int32_t sample_quality = 0;
};

struct IDirect3DSurface : IInspectable {
  static constexpr GUID kIid = {
      0x0bf4a146, 0x13c1, 0x4694, {0xbe, 0xe3, 0x7a, 0xbf, 0x15, 0xea, 0xf5, 0x86}};
  virtual HRESULT STDMETHODCALLTYPE get_Description(SurfaceDescription* description) = 0;
};

// Derives from IUnknown, not IInspectable. A wrong IID ending in 86926B929D52 circulates.
struct IDirect3DDxgiInterfaceAccess : IUnknown {
  static constexpr GUID kIid = {
      0xa9b3d012, 0x3df2, 0x4ee3, {0xb8, 0xd1, 0x86, 0x95, 0xf4, 0x57, 0xd3, 0xc1}};
  virtual HRESULT STDMETHODCALLTYPE GetInterface(REFIID iid, void** object) = 0;
};

}  // namespace directx

namespace capture {

using directx::IDirect3DDevice;
using directx::SizeInt32;

struct IDirect3D11CaptureFramePool;
struct IGraphicsCaptureItem;

// TypedEventHandler<Direct3D11CaptureFramePool, IInspectable>
struct IFrameArrivedHandler : IUnknown {
  static constexpr GUID kIid = {
      0x51a947f7, 0x79cf, 0x5a3e, {0xa3, 0xa5, 0x12, 0x89, 0xcf, 0xa6, 0xdf, 0xe8}};
  virtual HRESULT STDMETHODCALLTYPE Invoke(IDirect3D11CaptureFramePool* sender,
                                           IInspectable* args) = 0;
};

// TypedEventHandler<GraphicsCaptureItem, IInspectable>
struct IItemClosedHandler : IUnknown {
  static constexpr GUID kIid = {
      0xe9c610c0, 0xa68c, 0x5bd9, {0x80, 0x21, 0x85, 0x89, 0x34, 0x6e, 0xee, 0xe2}};
  virtual HRESULT STDMETHODCALLTYPE Invoke(IGraphicsCaptureItem* sender, IInspectable* args) = 0;
};

struct IGraphicsCaptureItemInterop : IUnknown {
  static constexpr GUID kIid = {
      0x3628e81b, 0x3cac, 0x4c60, {0xb7, 0xf4, 0x23, 0xce, 0x0e, 0x0c, 0x33, 0x56}};
  virtual HRESULT STDMETHODCALLTYPE CreateForWindow(HWND window, REFIID iid, void** item) = 0;
  virtual HRESULT STDMETHODCALLTYPE CreateForMonitor(HMONITOR monitor, REFIID iid, void** item) = 0;
};

struct IGraphicsCaptureItem : IInspectable {
  static constexpr GUID kIid = {
      0x79c3f95b, 0x31f7, 0x4ec2, {0xa4, 0x64, 0x63, 0x2e, 0xf5, 0xd3, 0x07, 0x60}};
  virtual HRESULT STDMETHODCALLTYPE get_DisplayName(HSTRING* name) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_Size(SizeInt32* size) = 0;
  virtual HRESULT STDMETHODCALLTYPE add_Closed(IItemClosedHandler* handler,
                                               EventRegistrationToken* token) = 0;
  virtual HRESULT STDMETHODCALLTYPE remove_Closed(EventRegistrationToken token) = 0;
};

struct IDirect3D11CaptureFrame : IInspectable {
  static constexpr GUID kIid = {
      0xfa50c623, 0x38da, 0x4b32, {0xac, 0xf3, 0xfa, 0x97, 0x34, 0xad, 0x80, 0x0e}};
  virtual HRESULT STDMETHODCALLTYPE get_Surface(directx::IDirect3DSurface** surface) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_SystemRelativeTime(foundation::TimeSpan* time) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_ContentSize(SizeInt32* size) = 0;
};

struct IGraphicsCaptureSession : IInspectable {
  static constexpr GUID kIid = {
      0x814e42a9, 0xf70f, 0x4ad7, {0x93, 0x9b, 0xfd, 0xdc, 0xc6, 0xeb, 0x88, 0x0d}};
  virtual HRESULT STDMETHODCALLTYPE StartCapture() = 0;
};

struct IGraphicsCaptureSession2 : IInspectable {
  static constexpr GUID kIid = {
      0x2c39ae40, 0x7d2e, 0x5044, {0x80, 0x4e, 0x8b, 0x67, 0x99, 0xd4, 0xcf, 0x9e}};
  virtual HRESULT STDMETHODCALLTYPE get_IsCursorCaptureEnabled(Boolean* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_IsCursorCaptureEnabled(Boolean value) = 0;
};

struct IGraphicsCaptureSession3 : IInspectable {
  static constexpr GUID kIid = {
      0xf2cdd966, 0x22ae, 0x5ea1, {0x95, 0x96, 0x3a, 0x28, 0x93, 0x44, 0xc3, 0xbe}};
  virtual HRESULT STDMETHODCALLTYPE get_IsBorderRequired(Boolean* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_IsBorderRequired(Boolean value) = 0;
};

struct IGraphicsCaptureSessionStatics : IInspectable {
  static constexpr GUID kIid = {
      0x2224a540, 0x5974, 0x49aa, {0xb2, 0x32, 0x08, 0x82, 0x53, 0x6f, 0x4c, 0xb5}};
  virtual HRESULT STDMETHODCALLTYPE IsSupported(Boolean* supported) = 0;
};

struct IDirect3D11CaptureFramePool : IInspectable {
  static constexpr GUID kIid = {
      0x24eb6d22, 0x1975, 0x422e, {0x82, 0xe7, 0x78, 0x0d, 0xbd, 0x8d, 0xdf, 0x24}};
  virtual HRESULT STDMETHODCALLTYPE Recreate(IDirect3DDevice* device, int32_t format,
                                             int32_t buffers, SizeInt32 size) = 0;
  virtual HRESULT STDMETHODCALLTYPE TryGetNextFrame(IDirect3D11CaptureFrame** frame) = 0;
  virtual HRESULT STDMETHODCALLTYPE add_FrameArrived(IFrameArrivedHandler* handler,
                                                     EventRegistrationToken* token) = 0;
  virtual HRESULT STDMETHODCALLTYPE remove_FrameArrived(EventRegistrationToken token) = 0;
  virtual HRESULT STDMETHODCALLTYPE CreateCaptureSession(IGraphicsCaptureItem* item,
                                                         IGraphicsCaptureSession** session) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_DispatcherQueue(IInspectable** queue) = 0;
};

// CreateFreeThreaded: the plain Create needs a dispatcher queue on the calling thread,
// which this program does not run, or FrameArrived never fires.
struct IDirect3D11CaptureFramePoolStatics2 : IInspectable {
  static constexpr GUID kIid = {
      0x589b103f, 0x6bbc, 0x5df5, {0xa9, 0x91, 0x02, 0xe2, 0x8b, 0x3b, 0x66, 0xd5}};
  virtual HRESULT STDMETHODCALLTYPE CreateFreeThreaded(IDirect3DDevice* device, int32_t format,
                                                       int32_t buffers, SizeInt32 size,
                                                       IDirect3D11CaptureFramePool** pool) = 0;
};

// A delegate the system calls from its own threads: agile, atomically counted, and no
// exception ever reaches the caller, which is the Windows Runtime's thread pool.
template <typename Interface, typename Sender>
class Delegate final : public Interface {
 public:
  using Callback = std::function<void(Sender*)>;

  static ComPtr<Interface> Make(Callback callback) {
    ComPtr<Interface> made;
    made.attach(new (std::nothrow) Delegate(std::move(callback)));
    return made;
  }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    if (!object) return E_POINTER;
    if (IsEqualIID(iid, __uuidof(IUnknown)) || IsEqualIID(iid, Interface::kIid) ||
        IsEqualIID(iid, __uuidof(IAgileObject))) {
      *object = static_cast<Interface*>(this);
      AddRef();
      return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
  }
  HRESULT STDMETHODCALLTYPE Invoke(Sender* sender, IInspectable*) override {
    try {
      callback_(sender);
    } catch (...) {
      // An error result would make some event sources drop the subscription for good.
    }
    return S_OK;
  }

 private:
  explicit Delegate(Callback callback) : callback_(std::move(callback)) {}
  ~Delegate() = default;

  std::atomic<ULONG> references_{1};
  Callback callback_;
};

using FrameArrivedDelegate = Delegate<IFrameArrivedHandler, IDirect3D11CaptureFramePool>;
using ItemClosedDelegate = Delegate<IItemClosedHandler, IGraphicsCaptureItem>;

}  // namespace capture
}  // namespace qn::abi
