#include "gfx/capture.h"

#include <cwchar>
#include <exception>
#include <mutex>
#include <optional>
#include <utility>

#include "core/failure_log.h"
#include "core/log.h"
#include "core/module_proc.h"

namespace qn {

namespace cap = abi::capture;
namespace dx = abi::directx;
using FramePtr = ComPtr<cap::IDirect3D11CaptureFrame>;

namespace {

// FP16 scRGB: linear light that keeps HDR games' highlights; the renderer encodes it for display.
constexpr int32_t kFormat = dx::kPixelFormatR16G16B16A16Float;
constexpr int32_t kBufferCount = 3;
constexpr wchar_t kItemClass[] = L"Windows.Graphics.Capture.GraphicsCaptureItem";
constexpr wchar_t kPoolClass[] = L"Windows.Graphics.Capture.Direct3D11CaptureFramePool";
constexpr wchar_t kSessionClass[] = L"Windows.Graphics.Capture.GraphicsCaptureSession";
constexpr wchar_t kApiInformationClass[] = L"Windows.Foundation.Metadata.ApiInformation";

UniqueHstring MakeHstring(const wchar_t* text) {
  UniqueHstring made;
  WinRt().CreateString(text, static_cast<UINT32>(std::wcslen(text)), made.put());
  return made;
}

template <typename T>
HRESULT GetFactory(const wchar_t* class_name, ComPtr<T>& factory) {
  if (!WinRt()) return HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND);
  UniqueHstring name = MakeHstring(class_name);
  if (!name) return E_OUTOFMEMORY;
  return WinRt().GetActivationFactory(name.get(), T::kIid, reinterpret_cast<void**>(factory.put()));
}

// Frames, pools and sessions hold system resources until closed; a release alone can
// leave them to a finaliser that may never run.
void CloseObject(IUnknown* object) {
  ComPtr<abi::foundation::IClosable> closable;
  if (SUCCEEDED(abi::Query(object, closable))) closable->Close();
}

// Empty when the system cannot answer, which is itself a sign of an old or partial one.
std::optional<bool> ApiPresent(const wchar_t* type, const wchar_t* property) {
  ComPtr<abi::metadata::IApiInformationStatics> info;
  if (FAILED(GetFactory(kApiInformationClass, info))) return std::nullopt;
  UniqueHstring type_name = MakeHstring(type);
  abi::Boolean present = 0;
  HRESULT hr = E_FAIL;
  if (property) {
    hr = info->IsPropertyPresent(type_name.get(), MakeHstring(property).get(), &present);
  } else {
    hr = info->IsTypePresent(type_name.get(), &present);
  }
  if (FAILED(hr)) return std::nullopt;
  return present != 0;
}

bool SessionPropertyPresent(const wchar_t* property) {
  return ApiPresent(kSessionClass, property).value_or(false);
}

FrameSize ToFrameSize(dx::SizeInt32 size) { return {size.width, size.height}; }
dx::SizeInt32 ToSizeInt32(FrameSize size) { return {size.width, size.height}; }

// Not GetTickCount64: it steps in 15.6 ms on Windows (every millisecond under Wine), too coarse
// to pace 30 frames a second.
int64_t SystemMicroseconds() {
  LARGE_INTEGER count{}, frequency{};
  QueryPerformanceCounter(&count);
  QueryPerformanceFrequency(&frequency);
  return count.QuadPart / frequency.QuadPart * 1'000'000 +
         count.QuadPart % frequency.QuadPart * 1'000'000 / frequency.QuadPart;
}

HRESULT FrameTexture(cap::IDirect3D11CaptureFrame* frame, ComPtr<ID3D11Texture2D>& texture) {
  ComPtr<dx::IDirect3DSurface> surface;
  HRESULT hr = frame->get_Surface(surface.put());
  ComPtr<dx::IDirect3DDxgiInterfaceAccess> access;
  if (SUCCEEDED(hr)) hr = abi::Query(surface.get(), access);
  if (SUCCEEDED(hr)) hr = access->GetInterface(IID_PPV_ARGS(texture.put()));
  return hr;
}

// E_INVALIDARG from CreateForWindow means a window the system will not capture: a child,
// or one that is not shown in Alt+Tab.
bool ActivateItem(HWND window, ComPtr<cap::IGraphicsCaptureItem>& item) {
  ComPtr<cap::IGraphicsCaptureItemInterop> interop;
  if (!CheckHr(GetFactory(kItemClass, interop), L"RoGetActivationFactory(GraphicsCaptureItem)",
               kLogError)) {
    return false;
  }
  const HRESULT hr = interop->CreateForWindow(window, cap::IGraphicsCaptureItem::kIid,
                                              reinterpret_cast<void**>(item.put()));
  return CheckHr(hr, L"CreateForWindow", kLogWarn);
}

bool WrapDevice(ID3D11Device* device, ComPtr<dx::IDirect3DDevice>& wrapped) {
  ComPtr<IDXGIDevice> dxgi;
  if (!CheckHr(device->QueryInterface(IID_PPV_ARGS(dxgi.put())), L"QueryInterface(IDXGIDevice)",
               kLogError)) {
    return false;
  }
  ComPtr<IInspectable> inspectable;
  static const SystemFunction<CreateDirect3D11DeviceFromDxgiFn> wrap(
      L"d3d11.dll", "CreateDirect3D11DeviceFromDXGIDevice");
  const HRESULT made =
      wrap ? wrap.get()(dxgi.get(), inspectable.put()) : HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND);
  if (!CheckHr(made, L"CreateDirect3D11DeviceFromDXGIDevice", kLogError)) {
    return false;
  }
  return CheckHr(abi::Query(inspectable.get(), wrapped), L"QueryInterface(IDirect3DDevice)",
                 kLogError);
}

}  // namespace

struct Capture::Stream {
  std::mutex mutex;
  FramePtr pending;                        // guarded by mutex
  FrameSize pool_size;                     // guarded by mutex
  ComPtr<dx::IDirect3DDevice> device;      // guarded by mutex once subscribed; null once detached
  RepeatedFailures failures;               // guarded by mutex
  int divisor = 1;                         // fixed before subscription
  FrameThrottle throttle{0};               // guarded by mutex
  int64_t (*now)() = &SystemMicroseconds;  // fixed before subscription
  FrameCounters counters;
  std::atomic<bool> closed{false};

  void OnFrameArrived(cap::IDirect3D11CaptureFramePool* pool);
  void OnClosed();
  void Recreate(cap::IDirect3D11CaptureFramePool* pool, FrameSize size,
                const ComPtr<dx::IDirect3DDevice>& on);
  std::optional<FrameSize> ResizeNeeded(cap::IDirect3D11CaptureFrame* frame,
                                        ComPtr<dx::IDirect3DDevice>& on);
  bool Due();
  void Publish(FramePtr frame);
  FramePtr TakePending();
  void Detach();
  // Per-frame calls would repeat a failure sixty times a second; the first of a run tells.
  // Both the capture thread and the tick report here.
  bool CheckFrameCall(HRESULT hr, const wchar_t* call);
};

void Capture::Stream::OnFrameArrived(cap::IDirect3D11CaptureFramePool* pool) {
  counters.CountArrived();
  if (!pool) return;
  FramePtr frame;
  if (!CheckFrameCall(pool->TryGetNextFrame(frame.put()), L"TryGetNextFrame") || !frame) return;
  // Dropped frames are still taken and closed: the pool has three buffers and stops
  // delivering once all of them are held.
  if (!Due()) return CloseObject(frame.get());
  ComPtr<dx::IDirect3DDevice> on;
  if (const std::optional<FrameSize> size = ResizeNeeded(frame.get(), on)) {
    // This frame was cut to the old pool size, so it would show the wrong part.
    CloseObject(frame.get());
    return Recreate(pool, *size, on);
  }
  Publish(std::move(frame));
}

bool Capture::Stream::Due() {
  const int64_t at = now();
  std::lock_guard lock(mutex);
  return throttle.Accept(at);
}

std::optional<FrameSize> Capture::Stream::ResizeNeeded(cap::IDirect3D11CaptureFrame* frame,
                                                       ComPtr<dx::IDirect3DDevice>& on) {
  dx::SizeInt32 content{};
  if (FAILED(frame->get_ContentSize(&content))) return std::nullopt;
  std::lock_guard lock(mutex);
  std::optional<FrameSize> size = PoolSizeToRecreate(ToFrameSize(content), pool_size, divisor);
  if (size && device) {
    pool_size = *size;
    on = device;
  }
  return on ? size : std::nullopt;
}

void Capture::Stream::Recreate(cap::IDirect3D11CaptureFramePool* pool, FrameSize size,
                               const ComPtr<dx::IDirect3DDevice>& on) {
  const HRESULT hr = pool->Recreate(on.get(), kFormat, kBufferCount, ToSizeInt32(size));
  if (!CheckFrameCall(hr, L"Recreate")) return;
  Log(kLogInfo, L"capture frames resized to %ldx%ld", static_cast<long>(size.width),
      static_cast<long>(size.height));
}

void Capture::Stream::Publish(FramePtr frame) {
  {
    std::lock_guard lock(mutex);
    // After a stop nobody takes the slot: the frame goes back at once.
    if (device) std::swap(pending, frame);
  }
  if (frame) CloseObject(frame.get());  // displaced before the tick took it, or too late
  counters.CountAccepted();
}

FramePtr Capture::Stream::TakePending() {
  FramePtr frame;
  std::lock_guard lock(mutex);
  std::swap(frame, pending);
  return frame;
}

// A callback already under way when the subscription ends may still run once; it then
// finds no device and neither recreates the pool nor keeps its frame.
void Capture::Stream::Detach() {
  FramePtr left = TakePending();
  if (left) CloseObject(left.get());
  std::lock_guard lock(mutex);
  device.reset();
}

void Capture::Stream::OnClosed() {
  Log(kLogInfo, L"capture item closed: target window is gone");
  closed.store(true);
}

bool Capture::Stream::CheckFrameCall(HRESULT hr, const wchar_t* call) {
  std::lock_guard lock(mutex);
  return failures.Check(hr, call);
}

Capture::~Capture() { Stop(); }

bool Capture::IsSupported() {
  if (ApiPresent(kSessionClass, nullptr) == false) {
    Log(kLogError, L"GraphicsCaptureSession is not present on this system");
    return false;
  }
  ComPtr<cap::IGraphicsCaptureSessionStatics> statics;
  if (!CheckHr(GetFactory(kSessionClass, statics),
               L"RoGetActivationFactory(GraphicsCaptureSession)", kLogError)) {
    return false;
  }
  abi::Boolean supported = 0;
  return CheckHr(statics->IsSupported(&supported), L"GraphicsCaptureSession.IsSupported",
                 kLogError) &&
         supported != 0;
}

bool Capture::Start(HWND window, ID3D11Device* device, int throttle_hz, int divisor) {
  Stop();
  stream_.reset();  // a failed start must not report the last window's counts or closing
  if (!device) {
    Log(kLogError, L"capture start without a device");
    return false;
  }
  CaptureSources sources;
  if (!ActivateItem(window, sources.item) || !WrapDevice(device, sources.device) ||
      !CheckHr(GetFactory(kPoolClass, sources.pools),
               L"RoGetActivationFactory(Direct3D11CaptureFramePool)", kLogError)) {
    return false;
  }
  return Start(sources, device, throttle_hz, divisor);
}

bool Capture::Start(const CaptureSources& sources, ID3D11Device* device, int throttle_hz,
                    int divisor) {
  Stop();
  try {
    if (StartUnguarded(sources, device, throttle_hz, divisor)) return true;
  } catch (const std::exception& error) {
    Log(kLogError, L"capture start threw: %hs", error.what());
  }
  Stop();
  return false;
}

bool Capture::StartUnguarded(const CaptureSources& sources, ID3D11Device* device, int throttle_hz,
                             int divisor) {
  device_ = device;
  item_ = sources.item;
  stream_ = std::make_shared<Stream>();
  stream_->throttle = FrameThrottle(throttle_hz);
  stream_->divisor = divisor;
  stream_->device = sources.device;
  if (sources.now) stream_->now = sources.now;
  if (!device || !item_ || !sources.device || !sources.pools) {
    Log(kLogError, L"capture start without a device");
    return false;
  }
  dx::SizeInt32 source{};
  if (!CheckHr(item_->get_Size(&source), L"GraphicsCaptureItem.Size", kLogError)) return false;
  stream_->pool_size = FramePoolSize(ToFrameSize(source), divisor);
  if (!CreatePool(sources.pools.get(), stream_->pool_size)) return false;
  ConfigureSession();
  if (!Subscribe() || !CheckHr(session_->StartCapture(), L"StartCapture", kLogError)) return false;
  Log(kLogInfo, L"capture started: source %ldx%ld, frames %ldx%ld, throttle %dHz",
      static_cast<long>(source.width), static_cast<long>(source.height),
      static_cast<long>(stream_->pool_size.width), static_cast<long>(stream_->pool_size.height),
      throttle_hz);
  return true;
}

bool Capture::CreatePool(cap::IDirect3D11CaptureFramePoolStatics2* pools, FrameSize size) {
  const HRESULT hr = pools->CreateFreeThreaded(stream_->device.get(), kFormat, kBufferCount,
                                               ToSizeInt32(size), pool_.put());
  if (!CheckHr(hr, L"CreateFreeThreaded", kLogError)) return false;
  return CheckHr(pool_->CreateCaptureSession(item_.get(), session_.put()), L"CreateCaptureSession",
                 kLogError);
}

void Capture::ConfigureSession() {
  ComPtr<cap::IGraphicsCaptureSession2> cursor;
  if (SessionPropertyPresent(L"IsCursorCaptureEnabled") &&
      SUCCEEDED(abi::Query(session_.get(), cursor))) {
    CheckHr(cursor->put_IsCursorCaptureEnabled(0), L"put_IsCursorCaptureEnabled", kLogWarn);
  }
  // Windows 10 lacks the property; Windows 11 accepts false without the user's consent
  // and keeps the border, which is not an error either.
  ComPtr<cap::IGraphicsCaptureSession3> border;
  if (!SessionPropertyPresent(L"IsBorderRequired") || FAILED(abi::Query(session_.get(), border))) {
    return;
  }
  if (FAILED(border->put_IsBorderRequired(0))) {
    Log(kLogWarn, L"IsBorderRequired(false) rejected; a capture border may be visible");
  }
}

bool Capture::Subscribe() {
  std::shared_ptr<Stream> stream = stream_;
  ComPtr<cap::IFrameArrivedHandler> arrived = cap::FrameArrivedDelegate::Make(
      [stream](cap::IDirect3D11CaptureFramePool* pool) { stream->OnFrameArrived(pool); });
  ComPtr<cap::IItemClosedHandler> closed =
      cap::ItemClosedDelegate::Make([stream](cap::IGraphicsCaptureItem*) { stream->OnClosed(); });
  if (!arrived || !closed) return CheckHr(E_OUTOFMEMORY, L"capture handlers", kLogError);
  frame_arrived_subscribed_ = CheckHr(pool_->add_FrameArrived(arrived.get(), &frame_arrived_token_),
                                      L"add_FrameArrived", kLogError);
  if (!frame_arrived_subscribed_) return false;
  // Closed is raised through a dispatcher queue this program does not run, so it may
  // never come; the drawer control checks the window itself as well.
  closed_subscribed_ =
      CheckHr(item_->add_Closed(closed.get(), &closed_token_), L"add_Closed", kLogWarn);
  return true;
}

void Capture::Stop() {
  if (frame_arrived_subscribed_) pool_->remove_FrameArrived(frame_arrived_token_);
  if (closed_subscribed_) item_->remove_Closed(closed_token_);
  frame_arrived_subscribed_ = closed_subscribed_ = false;
  // Detached before the pool closes, so that a callback still under way neither recreates
  // the pool nor keeps a frame. The counters stay readable until the next start.
  if (stream_) stream_->Detach();
  if (session_) CloseObject(session_.get());
  if (pool_) CloseObject(pool_.get());
  session_.reset();
  pool_.reset();
  item_.reset();
  copy_.reset();
  device_ = nullptr;
}

ComPtr<ID3D11Texture2D> Capture::TakeLatest() {
  FramePtr frame = stream_ ? stream_->TakePending() : FramePtr{};
  if (!frame) return copy_;
  if (!device_) {
    CloseObject(frame.get());
    return copy_;
  }
  const bool copied = CopyFrame(frame.get());
  CloseObject(frame.get());
  if (!copied) return {};
  stream_->counters.CountConsumed();
  return copy_;
}

bool Capture::CopyFrame(cap::IDirect3D11CaptureFrame* frame) {
  ComPtr<ID3D11Texture2D> texture;
  if (!stream_->CheckFrameCall(FrameTexture(frame, texture), L"Direct3D11CaptureFrame.Surface")) {
    return false;
  }
  D3D11_TEXTURE2D_DESC desc{};
  texture->GetDesc(&desc);
  if (!EnsureCopy(desc)) return false;
  ComPtr<ID3D11DeviceContext> context;
  device_->GetImmediateContext(context.put());
  context->CopyResource(copy_.get(), texture.get());
  return true;
}

bool Capture::EnsureCopy(const D3D11_TEXTURE2D_DESC& frame) {
  if (copy_) {
    D3D11_TEXTURE2D_DESC have{};
    copy_->GetDesc(&have);
    if (have.Width == frame.Width && have.Height == frame.Height && have.Format == frame.Format) {
      return true;
    }
  }
  D3D11_TEXTURE2D_DESC desc = frame;
  desc.Usage = D3D11_USAGE_DEFAULT;
  desc.BindFlags = D3D11_BIND_SHADER_RESOURCE;
  desc.CPUAccessFlags = 0;
  desc.MiscFlags = 0;
  if (stream_->CheckFrameCall(device_->CreateTexture2D(&desc, nullptr, copy_.put()),
                              L"CreateTexture2D")) {
    return true;
  }
  copy_.reset();
  return false;
}

int64_t Capture::FrameNumber() const { return stream_ ? stream_->counters.Accepted() : 0; }

FrameCounts Capture::Counts() const { return stream_ ? stream_->counters.Read() : FrameCounts{}; }

bool Capture::Closed() const { return stream_ && stream_->closed.load(); }

}  // namespace qn
