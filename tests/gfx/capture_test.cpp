// Wine lacks Windows.Graphics.Capture: the frame handling runs here on fakes of its objects.
#include "gfx/capture.h"

#include <d3d11.h>
#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <memory>
#include <tuple>
#include <vector>

#include "support/test_files.h"

namespace qn {
namespace {

namespace cap = abi::capture;
namespace dx = abi::directx;
using abi::foundation::IClosable;
using abi::foundation::TimeSpan;
using dx::SizeInt32;
using Token = EventRegistrationToken;

// Counts without owning: the test owns every fake, so a leak or an extra release shows.
template <typename Primary, typename... More>
class Fake : public Primary, public IClosable, public More... {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    const bool primary = iid == __uuidof(IUnknown) || iid == __uuidof(IInspectable);
    *out = primary || iid == Primary::kIid ? static_cast<Primary*>(this) : nullptr;
    if (iid == IClosable::kIid) *out = static_cast<IClosable*>(this);
    ((iid == More::kIid ? (void)(*out = static_cast<More*>(this)) : void()), ...);
    return *out ? (AddRef(), S_OK) : E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++refs); }
  ULONG STDMETHODCALLTYPE Release() override { return static_cast<ULONG>(--refs); }
  HRESULT STDMETHODCALLTYPE GetIids(ULONG*, IID**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetRuntimeClassName(HSTRING*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetTrustLevel(TrustLevel*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Close() override { return ++closes, S_OK; }

  std::atomic<long> refs{0};
  std::atomic<int> closes{0};
};

template <typename T>
ComPtr<T> Ref(IUnknown* object) {
  ComPtr<T> ref;
  abi::Query(object, ref);
  return ref;
}

// A frame that is its own surface, over a real texture.
struct FakeFrame
    : Fake<cap::IDirect3D11CaptureFrame, dx::IDirect3DSurface, dx::IDirect3DDxgiInterfaceAccess> {
  HRESULT STDMETHODCALLTYPE get_Surface(dx::IDirect3DSurface** out) override {
    return AddRef(), *out = this, S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_SystemRelativeTime(TimeSpan*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_ContentSize(SizeInt32* out) override {
    return *out = content, S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_Description(dx::SurfaceDescription*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetInterface(REFIID iid, void** out) override {
    return ++reads, texture->QueryInterface(iid, out);
  }
  ComPtr<ID3D11Texture2D> texture;
  SizeInt32 content;
  int reads = 0;
};

// One object plays the item, the wrapped device, the pool, its factory and the session.
struct FakeSystem
    : Fake<cap::IDirect3D11CaptureFramePool, cap::IDirect3D11CaptureFramePoolStatics2,
           cap::IGraphicsCaptureItem, cap::IGraphicsCaptureSession, dx::IDirect3DDevice> {
  HRESULT STDMETHODCALLTYPE CreateFreeThreaded(dx::IDirect3DDevice* device, int32_t format,
                                               int32_t buffers, SizeInt32 made_size,
                                               cap::IDirect3D11CaptureFramePool** out) override {
    Recreate(device, format, buffers, made_size);
    recreates = 0;
    return AddRef(), *out = this, S_OK;
  }
  HRESULT STDMETHODCALLTYPE Recreate(dx::IDirect3DDevice* device, int32_t format, int32_t,
                                     SizeInt32 new_size) override {
    EXPECT_TRUE(device && format == 10) << "frames are FP16 scRGB on the renderer's device";
    pool_size = new_size;
    return ++recreates, S_OK;
  }
  HRESULT STDMETHODCALLTYPE TryGetNextFrame(cap::IDirect3D11CaptureFrame** out) override {
    *out = queued.empty() ? nullptr : queued.front();
    if (*out) (*out)->AddRef(), queued.pop_front();
    return S_OK;
  }
  // Free-threaded handlers are called from the system's own threads, so they must be agile.
  HRESULT STDMETHODCALLTYPE add_FrameArrived(cap::IFrameArrivedHandler* handler, Token*) override {
    ComPtr<IAgileObject> agile;
    if (FAILED(handler->QueryInterface(IID_PPV_ARGS(agile.put())))) return E_INVALIDARG;
    return arrived = Ref<cap::IFrameArrivedHandler>(handler), S_OK;
  }
  HRESULT STDMETHODCALLTYPE remove_FrameArrived(Token) override { return arrived.reset(), S_OK; }
  HRESULT STDMETHODCALLTYPE CreateCaptureSession(cap::IGraphicsCaptureItem*,
                                                 cap::IGraphicsCaptureSession** out) override {
    return AddRef(), *out = this, S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_DispatcherQueue(IInspectable**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_DisplayName(HSTRING*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE get_Size(SizeInt32* out) override { return *out = {640, 480}, S_OK; }
  HRESULT STDMETHODCALLTYPE add_Closed(cap::IItemClosedHandler* handler, Token*) override {
    return closed = Ref<cap::IItemClosedHandler>(handler), S_OK;
  }
  HRESULT STDMETHODCALLTYPE remove_Closed(Token) override { return closed.reset(), S_OK; }
  HRESULT STDMETHODCALLTYPE StartCapture() override { return ++starts, S_OK; }
  HRESULT STDMETHODCALLTYPE Trim() override { return S_OK; }

  std::deque<FakeFrame*> queued;
  ComPtr<cap::IFrameArrivedHandler> arrived;
  ComPtr<cap::IItemClosedHandler> closed;
  SizeInt32 pool_size;
  int recreates = 0;
  int starts = 0;
};

class CaptureFramesTest : public testing::Test {
 protected:
  // A frame over a texture of its content size, handed to the pool's handler at a time.
  FakeFrame& Deliver(int32_t width, int32_t height, int64_t at_ms,
                     cap::IFrameArrivedHandler* handler = nullptr) {
    FakeFrame& frame = *frames_.emplace_back(std::make_unique<FakeFrame>());
    frame.content = {width, height};
    const CD3D11_TEXTURE2D_DESC desc(DXGI_FORMAT_R16G16B16A16_FLOAT, static_cast<UINT>(width),
                                     static_cast<UINT>(height), 1, 1);
    EXPECT_HRESULT_SUCCEEDED(device_->CreateTexture2D(&desc, nullptr, frame.texture.put()));
    clock_ms = at_ms;
    system_.queued.push_back(&frame);
    (handler ? handler : system_.arrived.get())->Invoke(&system_, nullptr);
    return frame;
  }

  void SetUp() override {
    ASSERT_HRESULT_SUCCEEDED(D3D11CreateDevice(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, 0,
                                               nullptr, 0, D3D11_SDK_VERSION, device_.put(),
                                               nullptr, nullptr));
    IUnknown* system = static_cast<cap::IDirect3D11CaptureFramePool*>(&system_);
    const CaptureSources sources = {Ref<cap::IGraphicsCaptureItem>(system),
                                    Ref<dx::IDirect3DDevice>(system),
                                    Ref<cap::IDirect3D11CaptureFramePoolStatics2>(system),
                                    [] { return clock_ms.load() * 1000; }};
    ASSERT_TRUE(capture_.Start(sources, device_.get(), 30, 1)) << log_.Text();
  }

  // Every frame closed and released exactly once; the session and the pool closed.
  void TearDown() override {
    capture_.Stop();
    for (const auto& frame : frames_) {
      EXPECT_EQ(frame->closes.load(), 1) << &frame - frames_.data();
      EXPECT_EQ(frame->refs.load(), 0) << &frame - frames_.data();
    }
    EXPECT_EQ(system_.closes.load(), 2);
    EXPECT_EQ(system_.refs.load(), 0);
  }

  static inline std::atomic<int64_t> clock_ms{0};
  ComApartment com_{COINIT_MULTITHREADED};
  test::CapturedLog log_;
  ComPtr<ID3D11Device> device_;
  FakeSystem system_;
  std::vector<std::unique_ptr<FakeFrame>> frames_;
  Capture capture_;  // last, so that it lets go of the fakes before they go
};

TEST_F(CaptureFramesTest, TheTickGetsTheNewestAcceptedFrameAndEveryOtherIsClosedOnce) {
  EXPECT_EQ(system_.starts, 1);
  EXPECT_FALSE(capture_.TakeLatest());
  Deliver(640, 480, 1000);
  const ComPtr<ID3D11Texture2D> copy = capture_.TakeLatest();
  ASSERT_TRUE(copy);
  // No new frame: the same copy is shown again, and nothing more is consumed.
  EXPECT_EQ(capture_.TakeLatest().get(), copy.get());
  EXPECT_EQ(Deliver(640, 480, 1020).closes, 1)
      << "well before its time: dropped, and closed at once";
  const FakeFrame& displaced = Deliver(640, 480, 1033);
  const FakeFrame& newest = Deliver(640, 480, 1070);
  EXPECT_EQ(displaced.closes, 1);
  EXPECT_EQ(capture_.TakeLatest().get(), copy.get()) << "same size: the copy is reused";
  EXPECT_EQ(newest.reads, 1);
  const FrameCounts counts = capture_.Counts();
  EXPECT_EQ(std::tie(counts.arrived, counts.accepted, counts.consumed), std::tuple(4, 3, 2));
  // Stop closes the frame still waiting, and one from a callback already under way.
  Deliver(640, 480, 1200);
  system_.closed->Invoke(&system_, nullptr);
  EXPECT_TRUE(capture_.Closed());
  const ComPtr<cap::IFrameArrivedHandler> late = system_.arrived;
  capture_.Stop();
  EXPECT_FALSE(system_.arrived || system_.closed);
  EXPECT_EQ(Deliver(640, 480, 2000, late.get()).closes, 1);
  EXPECT_FALSE(capture_.TakeLatest());
}

// The pool clips rather than scales: a frame of a resized window shows the wrong part.
TEST_F(CaptureFramesTest, AResizedWindowRecreatesThePoolAndDropsTheCutFrame) {
  EXPECT_EQ(Deliver(800, 600, 1000).closes, 1);
  EXPECT_EQ(system_.pool_size.height, 600);
  EXPECT_TRUE(log_.Has("capture frames resized to 800x600"));
  EXPECT_FALSE(capture_.TakeLatest());
  Deliver(800, 600, 1100);
  D3D11_TEXTURE2D_DESC desc = {};
  if (const auto copy = capture_.TakeLatest()) copy->GetDesc(&desc);
  EXPECT_EQ(desc.Width, 800u);
  EXPECT_EQ(system_.recreates, 1);
}

}  // namespace
}  // namespace qn
